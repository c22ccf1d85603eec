"""Files that are cut, damaged or foreign: a verdict or one line, never a crash, and no essence that is not there."""

import json
import random
import unittest

from kmxf_case import DONE, ESSENCE, FINDINGS, INPUT, KmxfCase, essence, samples

DV25 = ESSENCE / "dv25-5994i.dif"
HEADER, FRAME, FOOTER = 32768, 120000, 224
BODY_PACK = 32620


class BadFile(KmxfCase):
    def setUp(self):
        super().setUp()
        self.video = self.wrap("--video", DV25).read_bytes()
        self.wrap("--audio", self.wav("in.wav", [samples(3204)]), "--standard", "59.94i", folder=self.folder / "sound")
        self.sound = (self.folder / "sound" / "CLIP00.mxf").read_bytes()
        self.wrap("--video", ESSENCE / "avci50-720-5994p-header.raw", folder=self.folder / "avci")
        self.avci = (self.folder / "avci" / "CLIP.mxf").read_bytes()

    def bad(self, content):
        return self.file("BAD.mxf", bytes(content))

    def survives(self, content, message=""):
        """Every command ends with a status of its own, one line, and JSON that is as described."""
        file = self.bad(content)
        for command in (["info", "--json", "--only"], ["frames"], ["unwrap", "-o", "-", "--only"]):
            result = self.run_kmxf(*command, file)
            self.assertIn(result.returncode, (DONE, FINDINGS, INPUT), f"{message} {command}: {result.stderr}")
            self.assertRegex(result.stderr, r"\A(kmxf: [^\n]*BAD.mxf: [^\n]+\n)?\Z", f"{message} {command}")
            if result.returncode == INPUT:
                self.assertNotEqual("", result.stderr)
            elif command[0] == "info":
                self.assertDescribed(json.loads(result.stdout))
            self.assertLessEqual(len(result.stdout), len(content) + 100000, f"{message} {command}")


class Cut(BadFile):
    def verdict(self, content):
        return self.file_info(self.bad(content), status=FINDINGS)["verdict"]

    def test_before_there_is_a_partition_pack(self):
        for size in (0, 1, 19):
            self.refused(INPUT, r"BAD.mxf: is not an MXF file: .*\(offset 0\)", "info", self.bad(self.video[:size]))
        for size in (20, 64, 88, 123):
            self.refused(INPUT, rf"BAD.mxf: ends within its first partition pack \(offset {size}\)", "info",
                         self.bad(self.video[:size]))

    def test_within_the_header_area(self):
        for size in (124, 500, 5000, 16384, BODY_PACK - 1, BODY_PACK):
            self.assertEqual(f"damaged at offset {size}", self.verdict(self.video[:size]))
            self.refused(INPUT, f"damaged at offset {size}: its essence cannot be found", "unwrap", self.bad(
                self.video[:size]), "-o", self.folder / "out")
        for size in (HEADER - 20, HEADER - 1, HEADER):
            for content in (self.video, self.sound, self.avci):
                self.assertEqual("cut off at frame 0", self.verdict(content[:size]))

    def test_within_the_essence(self):
        for content, first, frame in [(self.video, HEADER, FRAME), (self.avci, HEADER + 512, 116224)]:
            for size, frames in [(HEADER + 1, 0), (first + frame - 1, 0), (first + frame, 1), (first + 2 * frame - 1, 1),
                                 (first + 2 * frame, 2)]:
                values = self.file_info(self.bad(content[:size]), status=FINDINGS)
                lead = 0 if first == HEADER or size < first else 512
                there = size - HEADER if size < first else lead + frames * frame  # whole frames
                self.assertEqual((f"cut off at frame {frames}", frames, there),
                                 (values["verdict"], values["duration"], values["data_size"]))
        # Sound: frames of 1600 and 1604 samples.
        for size, frames in [(HEADER, 0), (HEADER + 3000, 0), (HEADER + 3200, 1), (HEADER + 6000, 1)]:
            self.assertEqual(f"cut off at frame {frames}", self.verdict(self.sound[:size]))

    def test_within_the_footer(self):
        whole = HEADER + 2 * FRAME
        for size in (whole, whole + 1, whole + 123):
            self.assertEqual("cut off at frame 2", self.verdict(self.video[:size]))
        self.assertEqual(len(self.video), whole + FOOTER)

    def test_what_is_there_is_given_back(self):
        cut = self.bad(self.video[:HEADER + FRAME + 1000])
        says = "BAD.mxf: cut off at frame 1; what is there is given back"
        self.assertSameBytes(essence(DV25.name)[:FRAME], self.unwrap(cut, status=FINDINGS, says=says)["BAD.dv"])
        self.assertSameBytes(essence(DV25.name)[:FRAME],
                             self.unwrap(cut, "--frames", "0", status=FINDINGS, says=says)["BAD.dv"])
        self.assertEqual([0], [each["frame"] for each in self.json("frames", cut, status=FINDINGS)["frames"]])
        within_a_sample = self.bad(self.sound[:HEADER + 3201])
        self.assertEqual(44 + 3200, len(self.unwrap(within_a_sample, status=FINDINGS, says=says)["BAD.wav"]))

    def test_anywhere(self):
        for content in (self.video, self.sound, self.avci):
            for size in sorted(random.Random(len(content)).sample(range(HEADER), 12)):
                self.survives(content[:size], f"cut at {size}")


class Damaged(BadFile):
    def test_footer(self):
        content = bytearray(self.video)
        content[-FOOTER] ^= 0xFF
        self.assertEqual("cut off at frame 2", self.file_info(self.bad(content), status=FINDINGS)["verdict"])

    def test_primer_pack(self):
        content = bytearray(self.video)
        content[124] ^= 0xFF
        self.assertEqual("damaged at offset 124", self.file_info(self.bad(content), status=FINDINGS)["verdict"])

    def test_body_partition(self):
        content = bytearray(self.video)
        content[BODY_PACK] ^= 0xFF
        self.assertEqual(f"damaged at offset {BODY_PACK}",
                         self.file_info(self.bad(content), status=FINDINGS)["verdict"])

    def test_a_set_whose_length_lies(self):
        content = bytearray(self.video)
        at = content.index(bytes.fromhex("060E2B34025301010D01010101013000"))  # Identification
        content[at + 17:at + 20] = b"\xFF\xFF\xFF"
        self.assertEqual(f"damaged at offset {at}", self.file_info(self.bad(content), status=FINDINGS)["verdict"])

    def test_length_of_the_essence(self):
        content = bytearray(self.video)
        content[HEADER - 1] += 1
        self.assertEqual(f"damaged at offset {HEADER - 8}",
                         self.file_info(self.bad(content), status=FINDINGS)["verdict"])

    def test_no_footer_where_the_header_says(self):
        self.assertEqual("cut off at frame 2",
                         self.file_info(self.bad(self.video[:-FOOTER] + bytes(FOOTER)), status=FINDINGS)["verdict"])

    def test_random_bytes_anywhere(self):
        for content, seed in [(self.video, 1), (self.sound, 2), (self.avci, 3)]:
            choice = random.Random(seed)
            for round_ in range(12):
                bad = bytearray(content)
                for _ in range(1 + round_):
                    # Most of the header area is fill: the sets are what matters.
                    bad[choice.choice((choice.randrange(12000), choice.randrange(BODY_PACK, HEADER)))] = (
                        choice.choice((0, 0x7F, 0x80, 0x83, 0x88, 0xFF, choice.randrange(256))))
                self.survives(bad, f"round {round_} of {seed}")

    def test_lengths_of_all_ones(self):
        for start, end in [(16, 25), (16, 64), (24, 124), (124 + 16, 200), (200, 4000), (BODY_PACK + 16, HEADER),
                           (0, HEADER), (20, HEADER)]:
            content = bytearray(self.video)
            content[start:end] = b"\xFF" * (end - start)
            self.survives(content, f"ones at {start}")


class Foreign(BadFile):
    def test_no_mxf(self):
        for content in (random.Random(1).randbytes(50000), bytes(50000), b"\xFF" * 50000, essence(DV25.name)):
            for command in (["info"], ["frames"], ["unwrap", "-o", self.folder / "out"]):
                self.refused(INPUT, r"BAD.mxf: is not an MXF file: it does not begin with a partition pack "
                                    r"\(offset 0\)", *command, self.bad(content))

    def test_other_patterns(self):
        content = bytearray(self.video)
        content[96], content[97] = 0x01, 0x02  # OP-1a and the like instead of OP-Atom
        pattern = bytes(content[84:100])
        self.assertEqual(bytes.fromhex("060E2B3404010102"), bytes(self.video[84:92]), "the operational pattern")
        content[84:100] = pattern[:12] + b"\x01\x01\x09\x00"
        self.refused(INPUT, r"BAD.mxf: is an MXF file of another operational pattern than OP-Atom and OP-1b "
                                r"\(offset 84\)", "info", self.bad(content))

    def test_other_essence(self):
        content = bytearray(self.video)
        self.assertEqual(bytes.fromhex("060E2B34"), bytes(content[108:112]), "the essence container")
        content[108 + 13] = 0x7F
        self.refused(INPUT, r"BAD.mxf: holds essence of a kind not known here \(offset 108\)", "info", self.bad(content))

    def test_nothing_to_open(self):
        for command in (["info"], ["frames"], ["unwrap", "-o", self.folder / "out"]):
            self.refused(INPUT, "nowhere.mxf: cannot be opened: No such file or directory", *command,
                         self.folder / "nowhere.mxf")


if __name__ == "__main__":
    unittest.main()
