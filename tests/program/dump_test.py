"""kmxf dump: every packet of a file, whatever its state, and the map of it."""

import re
import unittest
import xml.etree.ElementTree as ElementTree

from kmxf_case import ESSENCE, INPUT, OUTPUT, USAGE, files_in
from op1b_case import Op1bCase

DV25 = ESSENCE / "dv25-5994i.dif"
SVG = "{http://www.w3.org/2000/svg}"


class DumpCase(Op1bCase):
    def assertTiles(self, packets, size):
        """The packets fill the file from its first byte to its last."""
        at = 0
        for packet in packets:
            self.assertEqual(at, packet["offset"])
            at += packet.get("head_size", 0) + packet.get("available", packet["length"])
        self.assertEqual(size, at)


class Json(DumpCase):
    def test_op_atom_packets_and_their_items(self):
        path = self.wrap("--video", DV25, "--title", "River", "--umid", "060A2B34" + "00" * 28)
        document = self.json("dump", path)
        self.assertEqual(str(path), document["path"])
        packets = document["packets"]
        self.assertTiles(packets, path.stat().st_size)
        self.assertEqual(["HeaderPartitionPack", "PrimerPack", "Preface", "Identification", "ContentStorage"],
                         [packet["name"] for packet in packets[:5]])
        self.assertEqual(["BodyPartitionPack", "DVElement", "FooterPartitionPack", "IndexTableSegment"],
                         [packet["name"] for packet in packets[-4:]])
        self.assertEqual([1, 2, 2, 3, 3], [packet["partition"] for packet in packets[-5:]])
        items = {item["name"]: item for item in packets[0]["items"]}
        self.assertEqual(("closed, complete", "272768", "060E2B34040101020D01020110020000"),
                         tuple(items[name]["value"] for name in ("Status", "FooterPartition", "OperationalPattern")))
        self.assertEqual(44, items["FooterPartition"]["offset"])
        primer = packets[1]["items"]
        self.assertEqual(120, len(primer))
        self.assertEqual({"offset": 154, "length": 16, "tag": "3C0A", "name": "InstanceUID",
                          "label": "060E2B34010101010101150200000000", "value": "060E2B34010101010101150200000000"},
                         primer[2])
        package = next(packet for packet in packets if packet.get("name") == "MaterialPackage")
        self.assertEqual("River", {item["name"]: item["value"] for item in package["items"]}["PackageName"])
        segment = {item["name"]: item["value"] for item in packets[-1]["items"]}
        self.assertEqual(("30000/1001", "2", "120000"), tuple(
            segment[name] for name in ("IndexEditRate", "IndexDuration", "EditUnitByteCount")))

    def test_op1b_groups_and_random_index(self):
        path = self.wrap_op1b(61, 1)
        packets = self.json("dump", path)["packets"]
        self.assertTiles(packets, path.stat().st_size)
        names = [packet["name"] for packet in packets]
        self.assertEqual((61, 61, 2), tuple(map(names.count, ("AVCLongGOPElement", "ANCElement", "PCMBlockElement"))))
        packs = [packet["offset"] for packet in packets if packet["kind"] == "partition"]
        random = packets[-1]
        self.assertEqual("random index", random["kind"])
        self.assertEqual(packs, [int(item["value"]) for item in random["items"] if item["name"] == "ByteOffset"])

    def test_any_klv_file(self):
        unknown = bytes.fromhex("060E2B34030101017A7A7A7A7A7A7A7A 03 D1D2D3".replace(" ", ""))
        fill = bytes.fromhex("060E2B3401010102030102100100000002 0000".replace(" ", ""))
        path = self.file("any.klv", unknown + b"rubbish" + fill)
        packets = self.json("dump", path)["packets"]
        self.assertEqual([("dark", 0), ("damage", 20), ("fill", 27)],
                         [(packet["kind"], packet["offset"]) for packet in packets])
        self.assertEqual([{"offset": 17, "length": 3, "value": "D1D2D3"}], packets[0]["items"])
        self.assertTiles(packets, path.stat().st_size)

    def test_cut_anywhere_and_damaged(self):
        content = self.wrap_op1b(2, 1).read_bytes()
        for size in (1, 20, 99, 156, 1000, 8000, 40000, 131072, 131300, len(content) - 1):
            strange = {"status": INPUT, "says": "cut.mxf: is not an MXF file"} if size == 1 else {}
            packets = self.json("dump", self.file("cut.mxf", content[:size]), **strange)["packets"]
            self.assertTiles(packets, size)
        for at in range(0, 131072, 16384):
            damaged = content[:at] + bytes(4096) + content[at + 4096:]
            self.assertTiles(self.json("dump", self.file("damaged.mxf", damaged))["packets"], len(content))


class Text(DumpCase):
    def test_lines(self):
        path = self.wrap("--video", DV25)
        lines = self.kmxf("dump", path).decode().splitlines()
        self.assertRegex(lines[0], r"\A +0  HeaderPartitionPack +104\Z")
        self.assertRegex(lines[1], r"\A +Status +closed, complete\Z")
        self.assertTrue(any(re.fullmatch(r" +EditRate +30000/1001", line) for line in lines))
        self.assertTrue(any(re.fullmatch(r" +32744  DVElement +240000", line) for line in lines))
        self.assertTrue(any(re.fullmatch(r" +3C0A InstanceUID +060E2B34010101010101150200000000", line)
                            for line in lines))

    def test_a_packet_that_is_not_whole_says_what_is_there(self):
        content = self.wrap("--video", DV25).read_bytes()
        lines = self.kmxf("dump", self.file("cut.mxf", content[:100000])).decode().splitlines()
        self.assertRegex(lines[-1], r" +32744  DVElement +240000  67232 are there\Z")

    def test_reads_no_essence(self):
        path = self.wrap("--video", DV25)
        result = self.run_kmxf("dump", "--stats", path)
        self.assertLess(int(result.stderr.split(" bytes")[0].removeprefix("read ").replace(" ", "")), 65536)

    def test_what_is_refused(self):
        self.refused(INPUT, "nowhere: cannot be opened", "dump", self.folder / "nowhere")
        self.refused(INPUT, "is not a file", "dump", self.folder)
        self.refused(USAGE, "FILE", "dump")
        strange = self.file("t.txt", b"no packets")
        self.kmxf("dump", strange, status=INPUT, says=f"^kmxf: {strange}: is not an MXF file .offset 0.$")


class Map(DumpCase):
    def map(self, path, name):
        output = self.folder / name
        self.assertEqual(b"", self.kmxf("dump", path, "--map", output))
        return output.read_text()

    def test_svg(self):
        path = self.wrap_op1b(61, 2)
        root = ElementTree.fromstring(self.map(path, "a.svg"))
        self.assertEqual(SVG + "svg", root.tag)
        rows = {text.text for text in root.iter(SVG + "text") if text.get("class") == "row"}
        self.assertEqual({"partitions", "header metadata", "fill", "index", "random index",
                          "AVCLongGOPElement, stream 1", "ANCElement, stream 2", "PCMBlockElement, stream 3",
                          "PCMBlockElement, stream 4"}, rows)
        for rect in root.iter(SVG + "rect"):
            if rect.find(SVG + "title") is not None:
                left, width = float(rect.get("x")), float(rect.get("width"))
                self.assertTrue(200 <= left and left + width <= 1400.02 and width >= 1, rect.attrib)

    def test_partitions_are_told_apart(self):
        root = ElementTree.fromstring(self.map(self.wrap_op1b(120, 1), "a.svg"))
        partitions = [rect.get("fill") for rect in root.iter(SVG + "rect")
                      if "Partition" in rect.findtext(SVG + "title", "")]
        self.assertGreaterEqual(min(map(partitions.count, ("#7f8c99", "#a9b4bf"))), 3)

    def test_is_to_scale(self):
        path = self.file("scale.klv", bytes.fromhex("060E2B34010101020301021001000000 83 0003D4".replace(" ", "")) +
                         bytes(980) + b"x" * 1000)
        root = ElementTree.fromstring(self.map(path, "a.svg"))
        places = {rect.get("fill"): (float(rect.get("x")), float(rect.get("width"))) for rect in root.iter(SVG + "rect")
                  if rect.find(SVG + "title") is not None}
        self.assertEqual({"#b9bec4": (200.0, 600.0), "#d62728": (800.0, 600.0)}, places)

    def test_html_needs_nothing_else(self):
        path = self.wrap("--video", DV25, name="<&>")
        html = self.map(path, "a.html")
        self.assertTrue(html.startswith("<!DOCTYPE html>"))
        self.assertIn("&lt;&amp;&gt;.mxf", html)
        self.assertNotRegex(html, r"<script|<link|<img|src=|href=|url\(|@import")
        self.assertEqual(["http://www.w3.org/2000/svg"], re.findall(r"https?://[^\"]*", html))
        self.assertRegex(html, r"<td>DVElement, stream 2</td><td>1</td><td>240 024</td><td>87\.9")

    def test_size_does_not_grow_with_the_file(self):
        sizes = [len(self.map(self.wrap_op1b(frames, 1, name=f"N{frames}"), f"{frames}.svg")) for frames in (120, 1200)]
        self.assertLess(sizes[1], 500000)

    def test_with_json_both_are_made(self):
        path = self.wrap("--video", DV25)
        self.json("dump", path, "--map", self.folder / "a.svg")
        self.assertIn("a.svg", files_in(self.folder))

    def test_what_is_refused(self):
        path = self.wrap("--video", DV25)
        self.refused(USAGE, "neither .svg nor .html", "dump", path, "--map", self.folder / "a.png")
        self.map(path, "a.svg")
        self.refused(OUTPUT, "a.svg: exists; --force overwrites it", "dump", path, "--map", self.folder / "a.svg")
        self.assertEqual(b"", self.kmxf("dump", path, "--force", "--map", self.folder / "a.svg"))
        self.refused(OUTPUT, "a.svg: cannot be created", "dump", path, "--map", self.folder / "nowhere" / "a.svg")


if __name__ == "__main__":
    unittest.main()
