"""Standard input and output as essence."""

import unittest

from kmxf_case import ESSENCE, FINDINGS, INPUT, USAGE, KmxfCase, essence, frames, read_wav, samples

DV25 = ESSENCE / "dv25-5994i.dif"


class StandardInput(KmxfCase):
    def test_essence_from_a_pipe(self):
        for name, options in [("dv25-5994i.dif", []), ("avci50-720-5994p-header.raw", []),
                              ("avci100-1080-5994i.raw", ["--standard", "59.94i"])]:
            with self.subTest(name):
                file = self.wrap("--video", "-", *options, "--force", input=essence(name))
                self.assertSameBytes(essence(name), self.unwrap(file, "--raw")["CLIP.raw"][-len(essence(name)):])

    def test_more_than_what_is_looked_at_first(self):
        for codec, raster, standard, size, count in [("dv25", "525", "59.94i", 120000, 41),
                                                     ("avci100", "1080", "50i", 568320, 7),
                                                     ("dv100", "720", "50p", 288000, 20)]:
            with self.subTest(codec):
                content = frames(codec, raster, standard, size, count)
                file = self.wrap("--video", "-", "--codec", codec, "--standard", standard, "--force", input=content)
                self.assertEqual(count, self.file_info(file)["duration"])
                self.assertSameBytes(content, self.unwrap(file, "--raw")["CLIP.raw"][-len(content):])

    def test_a_long_stream_that_ends_within_a_frame_keeps_those_before(self):
        content = frames("dv25", "525", "59.94i", 120000, 42)
        file = self.wrap("--video", "-", input=content[:-60001], status=FINDINGS,
                         says="-: ends within frame 41; what is before it is kept")
        self.assertEqual(41, self.file_info(file)["duration"])
        self.assertSameBytes(content[:41 * 120000], self.unwrap(file)["CLIP.dv"])

    def test_a_short_stream_that_ends_within_a_frame(self):
        self.wrap_refused(INPUT, r"-: ends within frame 1 of dv25 525 59.94i \(offset 120000\)", "--video", "-",
                          input=essence(DV25.name)[:-1])

    def test_an_odd_frame_of_720_lines_at_the_end_of_a_stream(self):
        content = frames("dv100", "720", "50p", 288000, 3)
        self.wrap_refused(INPUT, "-: .*pairs", "--video", "-", input=content)
        file = self.wrap("--video", "-", input=frames("dv100", "720", "50p", 288000, 11), status=FINDINGS,
                         says="-: ends within the pair of frame 10; what is before it is kept")
        self.assertEqual(10, self.file_info(file)["duration"])

    def test_nothing_comes(self):
        self.wrap_refused(INPUT, "-: is empty", "--video", "-", input=b"")

    def test_size_is_not_known_in_advance(self):
        self.wrap_refused(USAGE, "--no-header-rewrite: the size of - is not known", "--no-header-rewrite", "--video",
                          "-", input=frames("dv25", "525", "59.94i", 120000, 41))
        self.assertFalse((self.folder / "refused").exists())

    def test_sound_is_fitted_to_a_picture_from_a_pipe(self):
        wav = self.wav("in.wav", [samples(4000)])
        self.wrap("--video", "-", "--audio", wav, says="796 samples longer", input=essence(DV25.name))
        self.assertEqual([], self.info(self.folder / "clip")["disagreements"])


class StandardOutput(KmxfCase):
    def test_picture(self):
        file = self.wrap("--video", DV25)
        self.assertSameBytes(essence(DV25.name), self.kmxf("unwrap", file, "-o", "-"))
        self.assertSameBytes(essence(DV25.name)[120000:], self.kmxf("unwrap", file, "-o", "-", "--frames", "1"))

    def test_playable_picture(self):
        whole = essence("avci50-720-5994p-header.raw")
        file = self.wrap("--video", ESSENCE / "avci50-720-5994p-header.raw")
        self.assertSameBytes(whole, self.kmxf("unwrap", file, "-o", "-"))
        self.assertSameBytes(whole[:512] + whole[512 + 116224:],
                             self.kmxf("unwrap", file, "-o", "-", "--frames", "1-2"))

    def test_sound(self):
        for bits, rate in [(16, 48000), (24, 96000)]:
            folder = self.folder / f"{bits}"
            self.wrap("--audio", self.wav("in.wav", [samples(5000, bits)], bits, rate), "--standard", "25p",
                      folder=folder)
            wav = self.kmxf("unwrap", folder, "-o", "-")
            self.assertEqual((rate, bits, 1, samples(5000, bits)), read_wav(wav, self.folder))
            self.assertSameBytes(samples(5000, bits), self.kmxf("unwrap", folder, "-o", "-", "--raw"))

    def test_only_one_stream(self):
        file = self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(3204)]))
        self.refused(USAGE, "takes one stream, and these files hold 2; --only", "unwrap", file, "-o", "-")
        self.assertSameBytes(essence(DV25.name), self.kmxf("unwrap", file, "-o", "-", "--only"))


if __name__ == "__main__":
    unittest.main()
