"""Essence is recognised, or refused with a line that says what was seen."""

import random
import unittest

from kmxf_case import ESSENCE, EXPECTED, INPUT, KmxfCase, dv_frame, essence, frames

DV25 = ESSENCE / "dv25-5994i.dif"
BARE_720 = ESSENCE / "avci50-720-5994p.raw"
BLOCK_720 = ESSENCE / "avci50-720-5994p-header.raw"


class Refused(KmxfCase):
    def test_what_is_no_essence(self):
        whole = essence("dv25-5994i.dif")
        noise = bytes([0x5A]) + random.Random(1).randbytes(300000)
        for name, content, says in [
                ("noise", noise, "no essence known here.*it begins with 5A.*offset 0"),
                ("zeros", bytes(240000), "begins with 0000000000000000 "),
                ("empty", b"", "is empty"), ("short", b"abc", "begins with 616263 "),
                ("mp4", b"\0\0\0\x18ftypmp42" + bytes(1000), "MP4 or QuickTime file.*offset 4"),
                ("wav", essence("tone-16bit-mono.wav"), "RIFF file; sound goes with --audio"),
                ("cut", whole[:180000], r"ends within frame 1 of dv25 525 59.94i \(offset 120000\)"),
                ("cut-early", whole[:50000], r"ends within frame 0 of dv25 525 59.94i \(offset 0\)"),
                ("cut-first", whole[:11999], "no essence known here"),
                ("cut-by-one", whole[:-1], r"ends within frame 1 .*\(offset 120000\)"),
                ("one-more", whole + b"\0", r"ends within frame 2 .*\(offset 240000\)"),
                ("single-720", essence("dv100-720-5994p.dif")[:240000], "1 frames; those of dv100 720 come in pairs"),
                ("avci-cut", essence(BLOCK_720.name)[:-1], "H.264, profile 110, 960 x 720"),
                ("avci-bare-cut", essence(BARE_720.name)[:-1], "H.264 without parameter sets")]:
            with self.subTest(name):
                self.wrap_refused(INPUT, f"/{name}: .*{says}", "--video", self.file(name, content))

    def test_mxf_is_no_bare_essence(self):
        self.wrap_refused(INPUT, "is an MXF file; bare essence is needed", "--video", self.wrap("--video", DV25))

    def test_what_is_no_file(self):
        self.wrap_refused(INPUT, "nowhere: cannot be opened: No such file", "--video", self.folder / "nowhere")
        self.wrap_refused(INPUT, "is a folder", "--video", self.folder)
        self.wrap_refused(INPUT, r"cannot be read: Input/output error \(offset 0\)", "--video", "/proc/self/mem")

    def test_foreign_parameter_sets_are_refused(self):
        content = bytearray(essence(BLOCK_720.name))
        at = content.index(b"\0\0\0\1\x68")  # the picture parameter set
        content[at + 6] ^= 0x10
        self.wrap_refused(INPUT, "parameter sets are not those of avci50 720 59.94p", "--video",
                          self.file("foreign", bytes(content)))


class Choice(KmxfCase):
    def test_bare_avc_intra_needs_the_standard(self):
        self.wrap_refused(INPUT, "can be avci50 720 23.98p, avci50 720 29.97p or avci50 720 59.94p: say which with "
                                 "--standard", "--video", BARE_720)
        self.wrap_refused(INPUT, "can be avci100 1080 59.94i, avci100 1080 23.98p, avci100 1080 29.97p or "
                                 "avci100 1080 59.94p", "--video", ESSENCE / "avci100-1080-5994i.raw")
        for standard in ("23.98p", "29.97p", "59.94p"):
            self.assertEqual(standard, self.file_info(self.wrap("--video", BARE_720, "--standard", standard,
                                                                "--force"))["standard"])

    def test_same_sizes_are_told_apart_by_the_raster(self):
        # Four frames of 720 lines have the size of two of 1080 lines.
        content = self.file("four", (essence(BARE_720.name) * 2)[:4 * 116224])
        self.wrap_refused(INPUT, "can be avci50 1080 59.94p or avci50 720 59.94p", "--video", content,
                          "--standard", "59.94p")
        file = self.wrap("--video", content, "--standard", "59.94p", "--raster", "720")
        self.assertEqual(4, self.file_info(file)["duration"])

    def test_dv_720_does_not_tell_its_rate(self):
        dv100 = ESSENCE / "dv100-720-5994p.dif"
        self.assertEqual("59.94p", self.file_info(self.wrap("--video", dv100))["standard"])
        for standard in ("23.98p", "29.97p", "59.94p"):
            file = self.wrap("--video", dv100, "--standard", standard, "--force")
            self.assertEqual(standard, self.file_info(file)["standard"])

    def test_saying_what_it_is_anyway_changes_nothing(self):
        file = self.wrap("--video", DV25, "--codec", "dv25", "--raster", "525", "--standard", "59.94i")
        self.assertEqual("dv25", self.file_info(file)["codec"])

    def test_contradictions_are_refused(self):
        for video, options, says in [
                (DV25, ["--codec", "dv50"], "is dv25 525 59.94i, not dv50"),
                (DV25, ["--codec", "dv25-iec"], "is dv25 525 59.94i, not dv25-iec"),
                (DV25, ["--standard", "50i"], "is dv25 525 59.94i, not 50i"),
                (DV25, ["--raster", "625"], "is dv25 525 59.94i, not 625"),
                (DV25, ["--codec", "avci100", "--raster", "1080"], "is dv25 525 59.94i, not avci100 1080"),
                (ESSENCE / "dv100-720-5994p.dif", ["--standard", "50p"], "59.94p, not 50p"),
                (BARE_720, ["--codec", "avci100"], "not avci100"), (BLOCK_720, ["--standard", "50p"], "not 50p"),
                (BLOCK_720, ["--standard", "29.97p"], "is avci50 720 59.94p, not 29.97p")]:
            with self.subTest(f"{video.name} {options}"):
                self.wrap_refused(INPUT, says, "--video", video, *options)

    def test_dv_tells_all_of_its_formats(self):
        for codec, raster, standard, size in [("dv50", "525", "59.94i", 240000), ("dv100", "1080", "59.94i", 480000),
                                              ("dv100", "1080", "50i", 576000), ("dv25", "625", "50i", 144000),
                                              ("dv25-iec", "525", "59.94i", 120000)]:
            with self.subTest(f"{codec} {raster} {standard}"):
                content = dv_frame(codec, raster, standard, size, 1) * 2
                values = self.file_info(self.wrap("--video", self.file("video", content), "--force"))
                self.assertEqual((codec, raster, standard), (values["codec"], values["raster"], values["standard"]))

    def test_avc_intra_without_a_codec_is_told_by_its_size(self):
        for codec, size in [("avci50", 280576), ("avci100", 568320), ("avci200", 1143808)]:
            file = self.wrap("--video", self.file("video", frames(codec, "1080", "50i", size)), "--standard", "50i",
                             "--force")
            self.assertEqual(codec, self.file_info(file)["codec"])


class ParameterSets(KmxfCase):
    def test_of_the_bundled_stream_settle_everything(self):
        values = self.file_info(self.wrap("--video", BLOCK_720))
        self.assertEqual(("avci50", "720", "59.94p", 3),
                         (values["codec"], values["raster"], values["standard"], values["duration"]))
        self.assertEqual(512 + 3 * EXPECTED[BLOCK_720.name]["frame_size"], values["data_size"])


if __name__ == "__main__":
    unittest.main()
