"""kmxf frames, and unwrap of a range of frames."""

import unittest

from kmxf_case import (ESSENCE, EXPECTED, INPUT, PARAMETER_SETS, USAGE, KmxfCase, essence, frames, samples)

DV25 = ESSENCE / "dv25-5994i.dif"
AVCI = ESSENCE / "avci50-720-5994p-header.raw"


class Lines(KmxfCase):
    def frames(self, *arguments):
        return self.json("frames", *arguments)["frames"]

    def test_a_folder_means_its_clips_picture(self):
        file = self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(3204)]))
        self.assertEqual(self.kmxf("frames", file), self.kmxf("frames", file.parent))
        self.assertEqual(self.kmxf("frames", file), self.kmxf("frames", "--only", file))
        self.wrap("--video", DV25, name="OTHER")
        self.refused(INPUT, "clip: holds 2 clips; name a file", "frames", file.parent)

    def test_timecodes_of_the_bundled_essence(self):
        for name, options in [("dv25-5994i.dif", []), ("dv25-50i-iec.dif", []), ("dv50-50i.dif", []),
                              ("dv100-720-5994p.dif", []), ("avci100-1080-5994i.raw", ["--standard", "59.94i"])]:
            with self.subTest(name):
                known = EXPECTED[name]
                file = self.wrap("--video", ESSENCE / name, *options, "--force")
                found = self.frames(file)
                self.assertEqual(known["timecodes"], [each["timecode"] for each in found])
                first = 32768 + (PARAMETER_SETS if "header_md5" in known else 0)
                self.assertEqual([(n, first + n * known["frame_size"], known["frame_size"])
                                  for n in range(known["frames"])],
                                 [(each["frame"], each["offset"], each["size"]) for each in found])
                self.assertEqual([known["user_bits"]] * known["frames"] if "user_bits" in known else [],
                                 [each["user_bits"] for each in found if "user_bits" in each])
                for each in found:
                    content = file.read_bytes()[each["offset"]:each["offset"] + each["size"]]
                    self.assertSameBytes(essence(name)[each["frame"] * each["size"]:][:each["size"]], content)

    def test_text(self):
        file = self.wrap("--video", DV25)
        lines = self.kmxf("frames", file).decode().splitlines()
        self.assertEqual([["0", "32768", "120000", "01:02:03;04", "--------"],
                          ["1", "152768", "120000", "01:02:03;05", "--------"]], [line.split() for line in lines])
        file = self.wrap("--video", ESSENCE / "avci100-1080-5994i.raw", "--standard", "59.94i", "--force")
        lines = self.kmxf("frames", file).decode().splitlines()
        self.assertEqual([["0", "33280", "472064", "02:03:59;25", "12345678"],
                          ["1", "505344", "472064", "02:03:59;26", "12345678"]], [line.split() for line in lines])

    def test_frames_without_timecode(self):
        file = self.wrap("--video", self.file("video", frames("dv50", "525", "59.94i", 240000)))
        self.assertEqual([{"frame": 0, "offset": 32768, "size": 240000}, {"frame": 1, "offset": 272768, "size": 240000}],
                         self.frames(file))
        self.assertIn(b"--:--:--:--  --------", self.kmxf("frames", file))

    def test_ranges(self):
        file = self.wrap("--video", AVCI)
        for options, wanted in [([], [0, 1, 2]), (["--from", "1"], [1, 2]), (["--count", "2"], [0, 1]),
                                (["--from", "1", "--count", "1"], [1]), (["--from", "3"], []), (["--count", "0"], []),
                                (["--from", "2", "--count", "100"], [2]),
                                (["--from", "1", "--count", str(2 ** 64 - 1)], [1, 2])]:
            self.assertEqual(wanted, [each["frame"] for each in self.frames(file, *options)], options)
            self.assertEqual(wanted, [int(line.split()[0]) for line in self.kmxf("frames", file, *options).splitlines()])
        self.refused(INPUT, "CLIP.mxf: has 3 frames; frame 4 is not among them", "frames", file, "--from", "4")
        for options in (["--from", "-1"], ["--count", "x"], ["--from", "1.5"]):
            self.refused(USAGE, options[0], "frames", file, *options)

    def test_sound_has_the_cadence_of_its_picture(self):
        known = EXPECTED["tone-16bit-mono.wav"]
        self.wrap("--audio", ESSENCE / "tone-16bit-mono.wav", "--standard", "59.94i")
        found = self.frames(self.folder / "clip" / "CLIP00.mxf")
        self.assertEqual([2 * count for count in known["samples_per_frame"]], [each["size"] for each in found])
        self.assertEqual([32768 + 2 * sum(known["samples_per_frame"][:n]) for n in range(24)],
                         [each["offset"] for each in found])
        self.assertNotIn("timecode", found[0])

    def test_reads_only_a_little_of_each_frame(self):
        content = frames("dv25", "525", "59.94i", 120000, 10)
        file = self.wrap("--video", self.file("video", content))
        result = self.run_kmxf("frames", file, "--from", "4", "--count", "2", "--stats")
        self.assertIn("in 4 reads", result.stderr)


class UnwrapRange(KmxfCase):
    def test_of_dv(self):
        content = frames("dv25", "525", "59.94i", 120000, 6)
        file = self.wrap("--video", self.file("video", content))
        for text, first, last in [("0-0", 0, 0), ("0-5", 0, 5), ("2-3", 2, 3), ("4", 4, 4)]:
            self.assertSameBytes(content[first * 120000:(last + 1) * 120000],
                                 self.unwrap(file, "--frames", text)["CLIP.dv"], text)

    def test_of_avc_intra(self):
        whole = essence(AVCI.name)
        block, pictures = whole[:PARAMETER_SETS], whole[PARAMETER_SETS:]
        file = self.wrap("--video", AVCI)
        self.assertSameBytes(block + pictures[116224:], self.unwrap(file, "--frames", "1-2")["CLIP.h264"])
        self.assertSameBytes(pictures[116224:2 * 116224], self.unwrap(file, "--frames", "1-1", "--raw")["CLIP.raw"])

    def test_of_a_clip_with_sound(self):
        sound, counts = samples(38440), EXPECTED["tone-16bit-mono.wav"]["samples_per_frame"]
        content = frames("dv25", "525", "59.94i", 120000, 24)
        file = self.wrap("--video", self.file("video", content), "--audio", self.wav("in.wav", [sound]))
        back = self.unwrap(file, "--frames", "3-9", "--raw")
        self.assertSameBytes(content[3 * 120000:10 * 120000], back["CLIP.raw"])
        self.assertSameBytes(sound[2 * sum(counts[:3]):2 * sum(counts[:10])], back["CLIP00.pcm"])

    def test_parts_of_the_sound_make_the_whole(self):
        self.wrap("--audio", self.wav("in.wav", [samples(38440, 24)], 24), "--standard", "59.94i")
        parts = [self.unwrap(self.folder / "clip", "--raw", "--frames", text)["CLIP00.pcm"]
                 for text in ("0-0", "1-10", "11-22", "23")]
        self.assertSameBytes(samples(38440, 24), b"".join(parts))

    def test_what_is_no_range(self):
        file = self.wrap("--video", DV25)
        for text in ("1-0", "a-b", "-1", "1-", "1-1x", "1,2", "0x1"):
            self.refused(USAGE, "is no range; A-B is needed, counted from 0", "unwrap", file, "-o",
                         self.folder / "out", f"--frames={text}")
        for text in ("0-2", "2", "5-9"):
            self.refused(INPUT, "has 2 frames; frame [0-9]+ is not among them", "unwrap", file, "-o",
                         self.folder / "new" / "out", "--frames", text)
        self.assertFalse((self.folder / "new").exists(), "a folder that was made for nothing")


if __name__ == "__main__":
    unittest.main()
