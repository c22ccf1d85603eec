"""kmxf check: the rules of the layout, one line per fault."""

import shutil
import unittest

from kmxf_case import ESSENCE, FINDINGS, INPUT, USAGE, samples, sparse_essence
from op1b_case import Op1bCase

DV25 = ESSENCE / "dv25-5994i.dif"
STANDARDS = {"5994i": "59.94i", "50i": "50i", "5994p": "59.94p"}  # as the files are named


def statistics(stderr):
    """Bytes and reads that --stats tells."""
    words = stderr.split(" bytes in ")
    return int(words[0].removeprefix("read ").replace(" ", "")), int(words[1].split(" reads")[0].replace(" ", ""))


class CheckCase(Op1bCase):
    def make_clip(self, *options, video=DV25, name="A", folder=None):
        wav = self.wav("in.wav", [samples(3204), samples(3204, seed=2)])
        return self.wrap("--video", video, "--audio", wav, *options, name=name, folder=folder).parent

    def check(self, *arguments, status=FINDINGS, says=None):
        """The lines that are printed."""
        return self.kmxf("check", *arguments, status=status, says=says).decode().splitlines()

    def assertClean(self, *arguments):
        self.assertEqual(b"", self.kmxf("check", *arguments), arguments)
        self.assertEqual([], self.json("check", *arguments)["findings"])


class Clean(CheckCase):
    def test_clips_of_every_codec_in_the_test_data(self):
        for video in sorted(ESSENCE.glob("*.dif")) + sorted(ESSENCE.glob("*.raw")):
            (standard,) = {name for word, name in STANDARDS.items() if word in video.name}
            folder = self.folder / video.stem
            self.wrap("--video", video, "--standard", standard, folder=folder)
            self.assertClean(folder)
        self.assertClean(self.wrap_op1b(61, 2, "--layout", "strict", name="S"))
        self.assertClean(self.wrap_op1b(121, 3, "--project-name", "River", "--scene", "12A", name="P"))

    def test_any_member_and_the_folder_name_the_clip(self):
        folder = self.make_clip("--job-function", "Camera", "--scene", "7")
        for path in (folder, folder / "A.mxf", folder / "A01.mxf"):
            self.assertClean(path)
            self.assertEqual([str(folder / name) for name in ("A.mxf", "A00.mxf", "A01.mxf")],
                             self.json("check", path)["files"])
        self.assertEqual([str(folder / "A01.mxf")], self.json("check", "--only", folder / "A01.mxf")["files"])


class Faults(CheckCase):
    def patch(self, path, offset, new):
        content = bytearray(path.read_bytes())
        content[offset:offset + len(new)] = new
        path.write_bytes(content)

    def test_are_a_line_each(self):
        folder = self.make_clip()
        self.patch(folder / "A.mxf", 26, b"\2")
        self.patch(folder / "A01.mxf", 32668, bytes(4))
        line = f"{folder}/A.mxf: 24: PP-004: expected KAGSize 1, found KAGSize 513"
        self.assertIn(line, self.check(folder))
        self.assertEqual(2, len(self.check(folder)))
        self.assertEqual([line], self.check("--only", folder / "A.mxf"))
        document = self.json("check", "--only", folder / "A.mxf", status=FINDINGS)
        self.assertEqual([{"path": f"{folder}/A.mxf", "offset": 24, "rule": "PP-004", "text": "The KAG size is 1.",
                           "expected": "KAGSize 1", "found": "KAGSize 513"}], document["findings"])

    def test_between_the_files_of_a_clip(self):
        folder = self.make_clip()
        (folder / "A01.mxf").unlink()
        (line,) = self.check(folder)
        self.assertRegex(line, r"/A\.mxf: \d+: CL-007: expected a file for SoundTrack 4, found none\Z")
        self.assertClean("--only", folder / "A.mxf", folder / "A00.mxf")
        shutil.copy(folder / "A00.mxf", folder / "B.mxf")
        self.assertEqual(["CL-007", "CL-008"], sorted(line.split(": ")[2] for line in self.check(folder)))

    def test_recording_that_was_cut_off(self):
        path = self.wrap("--video", DV25)
        content = path.read_bytes()
        path.write_bytes(content[:100000])
        (line,) = self.check(path)
        self.assertRegex(line, r": 44: PP-001: expected the place of a footer partition, found FooterPartition \d+: "
                               r"the file ends at 100000\Z")

    def test_file_that_does_not_tell_what_it_is(self):
        folder = self.make_clip()
        self.patch(folder / "A.mxf", 0, bytes(4096))
        lines = self.check(folder / "A.mxf")
        self.assertIn(f"{folder}/A.mxf: 0: KLV-003: expected a packet, found 4", "\n".join(lines))
        self.assertTrue(all(line.startswith(f"{folder}/A.mxf: ") for line in lines))
        self.assertLess(len(lines), 8)

    def test_file_of_a_folder_that_does_not_tell_what_it_is(self):
        folder = self.make_clip()
        self.wrap_op1b(1, name="B", folder=folder)
        (folder / "notes.txt").write_text("no MXF at all, but long enough to be looked at")
        self.patch(folder / "A01.mxf", 0, bytes(124))
        alone = self.check(folder / "A01.mxf")
        self.assertIn(f"{folder}/A01.mxf: 0: KLV-003: expected a packet, found 124 bytes of none", alone)
        lines = self.check(folder)
        self.assertRegex(lines[0], rf"\A{folder}/A\.mxf: \d+: CL-007: expected a file for SoundTrack 4, found none\Z")
        self.assertEqual(alone, lines[1:])
        names = ["A.mxf", "A00.mxf", "B.mxf", "A01.mxf"]
        self.assertEqual([str(folder / name) for name in names],
                         self.json("check", folder, status=FINDINGS)["files"])
        # Also where it is the only file, and named beside its folder.
        for name in names[:3]:
            (folder / name).unlink()
        self.assertEqual(alone, self.check(folder))
        self.assertEqual(alone, self.check(folder / "A01.mxf", folder))

    def test_file_of_a_clip_with_essence_of_another_kind(self):
        folder = self.make_clip()
        self.patch(folder / "A00.mxf", 108, bytes.fromhex("060E2B34040101010D01030102030405"))
        lines = self.check(folder / "A.mxf")
        self.assertTrue(any(line.startswith(f"{folder}/A00.mxf: 100: HM-042: ") for line in lines), lines)
        self.assertTrue(any(line.startswith(f"{folder}/A.mxf: ") for line in lines), lines)

    def test_damage_of_4_kibibytes_in_an_op1b_file(self):
        path = self.wrap_op1b(61, 1)
        self.patch(path, 131072 - 100, bytes(4096))
        self.assertTrue(any(": KLV-003: " in line for line in self.check(path)))

    def test_files_of_other_writers(self):
        path = self.wrap("--video", DV25)
        content = path.read_bytes()
        path.write_bytes(bytes(11) + content)
        self.assertEqual([f"{path}: 0: KLV-002: expected HeaderPartitionPack, found run-in of 11 bytes"],
                         self.check("--only", path))


class Refused(CheckCase):
    def test_what_is_no_mxf_file(self):
        path = self.file("text.mxf", b"no MXF at all, but long enough to be looked at")
        self.refused(INPUT, "text.mxf: is not an MXF file", "check", path)
        self.refused(INPUT, r"empty.mxf: is not an MXF file .offset 0.$", "check", self.file("empty.mxf", b""))

    def test_what_is_no_mxf_file_is_not_among_the_files_that_were_checked(self):
        for content in (b"", b"no MXF at all, but long enough to be looked at"):
            document = self.json("check", self.file("x.mxf", content), status=INPUT, says="x.mxf: is not an MXF file")
            self.assertEqual(([], []), (document["files"], document["findings"]))

    def test_what_is_no_mxf_file_costs_the_findings_of_no_other(self):
        path = self.wrap("--video", DV25)
        path.write_bytes(bytes(11) + path.read_bytes())
        strange = self.file("text.mxf", b"no MXF at all, but long enough to be looked at")
        document = self.json("check", "--only", path, strange, status=INPUT, says=f"^kmxf: {strange}: is not an MXF file .offset 0.$")
        self.assertEqual(["KLV-002"], [finding["rule"] for finding in document["findings"]])

    def test_what_cannot_be_opened(self):
        self.refused(INPUT, "nowhere.mxf: cannot be opened: No such", "check", self.folder / "nowhere.mxf")
        (self.folder / "empty").mkdir()
        self.refused(INPUT, "empty: holds no MXF files", "check", self.folder / "empty")
        self.refused(USAGE, "FILE", "check")


    def test_what_cannot_be_opened_costs_the_findings_of_no_other(self):
        path = self.wrap("--video", DV25)
        path.write_bytes(bytes(11) + path.read_bytes())
        (self.folder / "empty").mkdir()
        for missing, says in (("nowhere.mxf", "nowhere.mxf: cannot be opened: No such"),
                              ("empty", "empty: holds no MXF files")):
            for arguments in ((path, self.folder / missing), (self.folder / missing, path)):
                document = self.json("check", *arguments, status=INPUT, says=says)
                self.assertEqual([str(path)], document["files"])
                self.assertEqual(["KLV-002"], [finding["rule"] for finding in document["findings"]])
                (line,) = self.check(*arguments, status=INPUT, says=says)
                self.assertIn(": KLV-002: ", line)


class Cost(CheckCase):
    def test_dv_costs_less_than_a_thousandth(self):
        path = self.wrap("--video", sparse_essence(self.folder / "in.dv", 2000))
        read, _ = statistics(self.run_kmxf("check", "--stats", path).stderr)
        self.assertLess(read, path.stat().st_size / 1000)

    def test_long_gop_costs_less_than_a_hundredth_of_12_megabits_a_second(self):
        read, reads = statistics(self.run_kmxf("check", "--stats", self.wrap_op1b(600, 2)).stderr)
        self.assertLess(read, 2 * 131072 + 600 * 50000 // 100)
        # The heads of pictures and of ancillary data, and what is around each group
        self.assertLess(reads, 600 * 3)

    def test_a_folder_of_100_clips_costs_100_times_one(self):
        folder = self.folder / "many"
        first = self.make_clip(folder=self.folder / "one")
        umid = bytes.fromhex(self.file_info(first / "A.mxf")["material_umid"])
        folder.mkdir()
        for number in range(100):
            own = umid[:28] + number.to_bytes(4, "big")
            for path in first.iterdir():
                content = path.read_bytes()
                (folder / path.name.replace("A", f"{number}_", 1)).write_bytes(content.replace(umid, own))
        one, _ = statistics(self.run_kmxf("check", "--stats", first).stderr)
        all_clips, _ = statistics(self.run_kmxf("check", "--stats", folder).stderr)
        self.assertLessEqual(all_clips, 100 * one)


if __name__ == "__main__":
    unittest.main()
