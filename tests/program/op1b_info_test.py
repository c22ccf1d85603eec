"""kmxf info on OP-1b clips: all that one file says, and whether it is whole."""

import os
import random
import unittest

from kmxf_case import DONE, ESSENCE, FINDINGS, INPUT, essence, growing, samples
from op1b_case import GROUP, HEADER, Op1bCase, long_gop, partitions, samples_before
from op1b_file import RANDOM_INDEX

PICTURE_DESCRIPTOR = bytes.fromhex("060E2B34025301010D01010101012800")
CONTAINER_DURATION = bytes.fromhex("30020008")


class Values(Op1bCase):
    def test_of_a_clip_with_everything(self):
        umid = "060A2B340101010501010F2013000000" + "00" * 15 + "01"
        file = self.wrap_op1b(
            70, 2, "--xml", ESSENCE / "clip.xml", "--thumbnail", ESSENCE / "thumbnail.bmp", "--shot-umid", umid,
            "--start-timecode", "10:00:00;00", "--title", "Überfahrt", "--creation-date", "2024-01-02T03:04:05",
            "--job-function", "Camera", "--family-name", "Doe", "--given-name", "Jo", "--project-number", "P7",
            "--project-name", "Sea", "--take", "3", "--scene", "12A", "--company", "Firm", "--product", "Thing",
            "--product-version", "1.2", bits=24)
        document = self.info(file)
        (found,) = document["files"]
        end = partitions(file.read_bytes())[-1][0]
        self.assertEqual({
            "path": str(file), "verdict": "closed", "pattern": "OP-1b", "kind": "clip", "codec": "avclg25",
            "raster": "1080", "standard": "59.94i", "video_standard_code": "0x0100007C",
            "compression_code": "0x1000C100", "frame_rate": "30000/1001", "duration": 70, "data_offset": HEADER,
            "data_size": end - HEADER, "file_size": file.stat().st_size, "start_timecode": "10:00:00;00",
            "drop_frame": True, "material_umid": umid, "file_umid": umid[:30] + "01" + umid[32:],
            "package_name": "Überfahrt", "creation_date": found["creation_date"], "wide": True,
            "sampling_rate": 48000, "bits_per_sample": 24, "samples": samples_before(70), "channels": 2, "origin": 0,
            "partition_frames": GROUP, "company": "Firm", "product": "Thing", "product_version": "1.2",
            "descriptive_metadata": {
                "job_function": "Camera", "family_name": "Doe", "first_given_name": "Jo", "project_number": "P7",
                "project_name": "Sea", "take_number": 3, "clip_kind": "moving pictures and sound",
                "scene_number": "12A"},
            "xml_size": len(essence("clip.xml")),
            "thumbnail": {"width": 80, "height": 45, "format": 0, "size": len(essence("thumbnail.bmp"))},
        }, found)
        self.assertEqual([], document["disagreements"])
        self.assertEqual(("closed", "avclg25", "1080", "59.94i", 70, 2),
                         tuple(document["clip"][key] for key in ("verdict", "codec", "raster", "standard", "duration",
                                                                 "channels")))

    def test_of_a_clip_without_sound(self):
        for layout in ("players", "strict"):
            found = self.file_info(self.wrap_op1b(24, 0, "--layout", layout, "--force"))
            self.assertEqual((0, 24), (found["channels"], found["duration"]))
            for absent in ("samples", "sampling_rate", "bits_per_sample", "frame_size", "consumer_dv",
                           "descriptive_metadata"):
                self.assertNotIn(absent, found)

    def test_of_the_strict_layout(self):
        found = self.file_info(self.wrap_op1b(130, 3, "--layout", "strict"))
        self.assertEqual((3, 130, samples_before(130), 16, "closed"),
                         tuple(found[key] for key in ("channels", "duration", "samples", "bits_per_sample", "verdict")))

    def test_placeholders_count_as_what_the_file_holds(self):
        found = self.file_info(self.wrap_op1b(1))
        self.assertEqual(6, found["xml_size"])
        self.assertEqual({"width": 80, "height": 45, "format": 0, "size": 10854}, found["thumbnail"])

    def test_frames_in_front_of_the_clip(self):
        # The I picture stored tenth is followed by two that need one before it.
        file = self.wrap("--video", self.file("in.264", long_gop(10, 24)))
        found = self.file_info(file)
        self.assertEqual((2, 12), (found["origin"], found["duration"]))
        self.assertEqual(14, len(self.json("frames", file)["frames"]))

    def test_text(self):
        file = self.wrap_op1b(24, 1)
        text = self.kmxf("info", file).decode()
        self.assertEqual(["clip of 1 file", f"{file}: closed"],
                         [line for line in text.splitlines() if not line.startswith(" ")])
        self.assertRegex(text, r"\n  partition_frames +60\n")

    def test_is_a_clip_by_itself(self):
        umid = "060A2B340101010501010F2013000000" + "00" * 15 + "01"
        self.wrap("--audio", self.wav("in.wav", [samples(3204)]), "--standard", "59.94i", "--shot-umid", umid)
        file = self.wrap_op1b(2, 0, "--shot-umid", umid, name="X")
        self.wrap_op1b(2, 0, "--shot-umid", umid, name="Y")
        names = lambda document: [os.path.basename(each["path"]) for each in document["files"]]
        self.assertEqual(["X.mxf"], names(self.info(file)))
        self.assertEqual(["CLIP00.mxf"], names(self.info(file.parent / "CLIP00.mxf")))
        self.assertEqual([["CLIP00.mxf"], ["X.mxf"], ["Y.mxf"]], [names(each) for each in
                                                                   self.info(file.parent)["clips"]])

    def test_costs_six_reads_whatever_the_length(self):
        for frames in (1, 300):
            result = self.run_kmxf("info", "--stats", self.wrap_op1b(frames, 4, "--force"))
            size, reads = (int(text.replace(" ", "")) for text in
                           (result.stderr.split(" bytes in ")[0][5:],
                            result.stderr.split(" bytes in ")[1].split(" reads")[0]))
            self.assertLessEqual(reads, 7)
            self.assertLessEqual(size, HEADER + 32768)


class NotWhole(Op1bCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        case = cls("setUp")
        case.setUp()
        try:
            cls.clip = case.wrap_op1b(130, 2).read_bytes()
        finally:
            case.doCleanups()

    def bad(self, content):
        return self.file("BAD.mxf", bytes(content))

    def values(self, content):
        return self.file_info(self.bad(content), status=FINDINGS)

    def group_ends(self):
        """Where each group ends, and how many frames are there then."""
        packs = partitions(self.clip)
        starts = [at for at, sid in packs if sid == 1] + [packs[-1][0]]
        return list(zip(starts[1:], (60, 120, 130)))

    def expected(self, size):
        return max([0] + [frames for end, frames in self.group_ends() if end <= size])

    def test_cut_off_keeps_the_whole_groups(self):
        ends = [end for end, _ in self.group_ends()]
        packs = [at for at, _ in partitions(self.clip)]
        sizes = {HEADER, HEADER + 1, ends[0] - 1, *ends, ends[1] + 1, ends[0] + 20, ends[0] + 156, ends[1] + 157,
                 packs[-2] + 17, packs[-2] + 200, packs[12] + 300, packs[-1] + 100,
                 *random.Random(1).sample(range(HEADER, packs[-1]), 6)}
        for size in sorted(sizes):
            values = self.values(self.clip[:size])
            frames = self.expected(size)
            self.assertEqual((f"cut off at frame {frames}", frames, 2, 0),
                             tuple(values[key] for key in ("verdict", "duration", "channels", "origin")), size)
            self.assertEqual(samples_before(frames), values["samples"])
            kept = max([HEADER] + [end for end in ends if end <= size])
            self.assertEqual((HEADER if frames else 0, kept - HEADER), (values["data_offset"], values["data_size"]))

    def test_cut_off_within_a_group_says_that_only_whole_ones_are_counted(self):
        says = "counted are whole groups"
        ends = [end for end, _ in self.group_ends()]
        for whole, frames in ((HEADER, 0), (ends[0], 60), (ends[1], 120)):
            file = self.bad(self.clip[:whole + 20000])
            self.assertEqual(f"{file}: cut off at frame {frames}\n  {says}; behind them are 20000 bytes of one that is not: "
                             "kmxf salvage --dry-run tells what of it can be kept\n",
                             self.text_of(file), whole)
        # Nothing follows that could be kept.
        footer = partitions(self.clip)[-1][0]
        for size in (HEADER, HEADER + 15, ends[0], footer + 15, footer + 100):
            self.assertNotIn(says, self.text_of(self.bad(self.clip[:size])), size)

    def text_of(self, file):
        """The verdict, and what is said of it."""
        text = self.kmxf("info", file, status=FINDINGS).decode()
        return text[text.index(f"{file}: "):text.index("  pattern ")]

    def test_cut_within_the_header(self):
        for size in (156, 500, 20000, 32768, 100000, 120000):
            self.assertEqual(f"damaged at offset {size}", self.values(self.clip[:size])["verdict"])
            self.refused(INPUT, f"damaged at offset {size}: its essence cannot be found", "unwrap",
                         self.bad(self.clip[:size]), "-o", self.folder / "out")

    def test_cut_within_footer_and_random_index(self):
        footer = partitions(self.clip)[-1][0]
        index = self.clip.index(RANDOM_INDEX)
        self.assertEqual("cut off at frame 130", self.values(self.clip[:footer + 100])["verdict"])
        for size in (footer + 300, index, index + 30, len(self.clip) - 1):
            values = self.values(self.clip[:size])
            self.assertEqual((f"damaged at offset {min(index, size)}", 130), (values["verdict"], values["duration"]))

    def test_a_header_that_was_never_completed(self):
        content = bytearray(self.clip)
        content[44:52] = bytes(8)  # FooterPartition
        self.assertEqual(("cut off at frame 130", 130), tuple(self.values(content)[key] for key in
                                                              ("verdict", "duration")))

    def test_damage_where_it_is(self):
        index, size = self.clip.index(RANDOM_INDEX), len(self.clip)
        entry = index + 20 + 12 * 3  # of the ancillary data of the first group
        for at, value, damage in [(index, b"\xFF", index),
                                  (size - 4, b"\xFF", index),
                                  (size - 1, bytes([self.clip[-1] ^ 1]), index),
                                  (entry + 4, b"\xFF", entry),  # behind the file
                                  (entry + 8, bytes(4), entry),  # in front of the entry before
                                  (entry + 3, b"\x07", index + 20 + 12)]:  # another BodySID: no group begins
            content = bytearray(self.clip)
            content[at:at + len(value)] = value
            self.assertEqual((f"damaged at offset {damage}", 130), tuple(self.values(content)[key] for key in
                                                                        ("verdict", "duration")))
        back = self.unwrap(self.bad(content), status=FINDINGS, says="damaged at offset [0-9]+; what is there is given")
        self.assertSameBytes(long_gop(0, 130), back["BAD.h264"])

    def test_damage_to_the_primer_pack_leaves_no_format(self):
        content = bytearray(self.clip)
        content[156] ^= 0xFF
        values = self.values(content)
        self.assertEqual("damaged at offset 156", values["verdict"])
        self.assertNotIn("kind", values)
        self.refused(INPUT, "damaged at offset 156: its essence cannot be found", "unwrap", self.bad(content), "-o",
                     self.folder / "out")

    def test_a_duration_that_the_groups_do_not_have(self):
        at = self.clip.index(PICTURE_DESCRIPTOR)
        at = self.clip.index(CONTAINER_DURATION, at)
        for frames in (0, 120, 181):
            content = bytearray(self.clip)
            content[at + 4:at + 12] = frames.to_bytes(8, "big")
            self.assertEqual(f"damaged at offset {at + 4}", self.values(content)["verdict"])

    def test_damage_to_the_footer_leaves_a_file_without_one(self):
        content = bytearray(self.clip)
        content[partitions(self.clip)[-1][0]] ^= 0xFF
        self.assertEqual("cut off at frame 130", self.values(content)["verdict"])

    def test_growing(self):
        content = bytearray(self.clip[:self.group_ends()[0][0] + 5000])
        content[44:52] = bytes(8)
        file = self.bad(content)
        with growing(file):
            self.assertEqual(("growing", 60), tuple(self.file_info(file, status=FINDINGS)[key] for key in
                                                    ("verdict", "duration")))

    def test_random_bytes_anywhere(self):
        packs = [at for at, _ in partitions(self.clip)]
        places = [lambda r: r.randrange(20000), lambda r: r.choice(packs) + r.randrange(600),
                  lambda r: r.randrange(len(self.clip) - 2000, len(self.clip)), lambda r: 32768 + r.randrange(1500)]
        for seed in range(10):
            choice = random.Random(seed)
            content = bytearray(self.clip)
            for _ in range(1 + seed % 7):
                content[min(choice.choice(places)(choice), len(content) - 1)] = choice.choice(
                    (0, 0x7F, 0x80, 0x83, 0x88, 0xFF, choice.randrange(256)))
            file = self.bad(content)
            for command in (["info", "--json"], ["frames"], ["unwrap", "-o", self.folder / f"out{seed}"]):
                result = self.run_kmxf(*command, file)
                self.assertIn(result.returncode, (DONE, FINDINGS, INPUT), f"{seed} {command}: {result.stderr}")
                self.assertRegex(result.stderr, r"\A(kmxf: [^\n]*BAD.mxf: [^\n]+\n)*\Z", f"{seed} {command}")


if __name__ == "__main__":
    unittest.main()
