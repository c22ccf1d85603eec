"""kmxf unwrap on OP-1b clips: pictures, sound, XML and thumbnail come back as they went in."""

import unittest

from kmxf_case import ESSENCE, FINDINGS, INPUT, USAGE, essence, files_in, read_wav, samples
from op1b_case import (ACCESS_UNITS, GROUP, LONG_GOP, Op1bCase, access_unit, aligned, group_starts, long_gop,
                       samples_before)
from op1b_file import PICTURE, SOUND, walk


class Whole(Op1bCase):
    def test_everything_comes_back(self):
        for frames, channels, bits in [(1, 1, 16), (24, 4, 24), (59, 2, 16), (60, 2, 24), (61, 1, 24), (130, 3, 16)]:
            for layout in ("players", "strict"):
                file = self.wrap_op1b(frames, channels, "--xml", ESSENCE / "clip.xml", "--thumbnail",
                                      ESSENCE / "thumbnail.bmp", "--layout", layout, "--force", bits=bits)
                back = self.unwrap(file)
                self.assertEqual(["CLIP.bmp", "CLIP.h264", *(f"CLIP{c:02}.wav" for c in range(channels)), "CLIP.xml"],
                                 sorted(back, key=lambda name: (name != "CLIP.bmp", name != "CLIP.h264",
                                                                name == "CLIP.xml", name)))
                self.assertSameBytes(long_gop(0, frames), back["CLIP.h264"], f"{frames} frames")
                for channel in range(channels):
                    self.assertEqual((48000, bits, 1, samples(samples_before(frames), bits, 1 + channel)),
                                     read_wav(back[f"CLIP{channel:02}.wav"], self.folder))
                self.assertSameBytes(essence("clip.xml"), back["CLIP.xml"])
                self.assertSameBytes(essence("thumbnail.bmp"), back["CLIP.bmp"])

    def test_placeholders_are_not_given_back(self):
        self.assertEqual(["CLIP.h264"], sorted(self.unwrap(self.wrap_op1b(3))))

    def test_raw_is_the_elements_as_they_are(self):
        file = self.wrap_op1b(70, 2, bits=24)
        content = file.read_bytes()
        elements = lambda key: [packet.value for packet in walk(content)
                                if packet.key == key]
        back = self.unwrap(file, "--raw")
        self.assertEqual(["CLIP.raw", "CLIP00.pcm", "CLIP01.pcm"], sorted(back))
        self.assertSameBytes(b"".join(elements(PICTURE)), back["CLIP.raw"])
        self.assertSameBytes(b"".join(aligned(access_unit(n)) for n in range(70)), back["CLIP.raw"])
        for channel in range(2):
            self.assertSameBytes(b"".join(elements(SOUND)[channel::2]), back[f"CLIP{channel:02}.pcm"])

    def test_zeros_at_the_end_of_a_picture(self):
        # Up to three align a picture; where there are more, some are its own, and none is taken away. The elements are
        # made by hand: what a picture is given up to is not in question here.
        file = self.wrap_op1b(3)
        content = bytearray(file.read_bytes())
        places = [(each.value_offset, len(each.value)) for each in walk(bytes(content)) if each.key == PICTURE]
        for zeros in (0, 1, 2, 3, 4, 5, 8):
            for value, length in places:
                content[value + length - 9:value + length] = b"\x55" * (9 - zeros) + bytes(zeros)
            file.write_bytes(content)
            back = self.unwrap(file)["CLIP.h264"]
            kept = [content[value:value + length - (zeros if zeros <= 3 else 0)] for value, length in places]
            self.assertSameBytes(b"".join(kept), back, f"{zeros} zeros")

    def test_several_clips_at_once(self):
        first, second = self.wrap_op1b(2, name="A"), self.wrap_op1b(3, name="B")
        self.assertEqual({"A.h264": long_gop(0, 2), "B.h264": long_gop(0, 3)}, self.unwrap(first.parent))
        self.assertEqual({"B.h264": long_gop(0, 3)}, self.unwrap(second))

    def test_nothing_is_left_when_an_output_exists(self):
        file = self.wrap_op1b(2, 1)
        out = self.folder / "out"
        out.mkdir()
        (out / "CLIP00.wav").write_bytes(b"mine")
        self.refused(4, "CLIP00.wav: exists; --force overwrites it", "unwrap", file, "-o", out)
        self.assertEqual(["CLIP00.wav"], files_in(out))
        self.kmxf("unwrap", file, "-o", out, "--force")
        self.assertEqual(["CLIP.h264", "CLIP00.wav"], files_in(out))

    def test_reads_the_file_once(self):
        file = self.wrap_op1b(200, 4)
        result = self.run_kmxf("unwrap", file, "-o", self.folder / "out", "--stats")
        size = int(result.stderr.split(" bytes in ")[0][5:].replace(" ", ""))
        reads = int(result.stderr.split(" bytes in ")[1].split(" reads")[0].replace(" ", ""))
        self.assertLess(size, 1.01 * file.stat().st_size)
        # A look at the head of each picture and a copy of it that the system makes, and a few around each group
        self.assertLess(reads, 2 * 200 + 100)


class StandardOutput(Op1bCase):
    def test_a_clip_without_sound_is_one_stream(self):
        file = self.wrap_op1b(24, 0, "--xml", ESSENCE / "clip.xml", "--thumbnail", ESSENCE / "thumbnail.bmp")
        self.assertSameBytes(essence(LONG_GOP), self.kmxf("unwrap", file, "-o", "-"))

    def test_a_clip_with_sound_is_not(self):
        self.refused(USAGE, r"-o -: takes one stream, and these files hold 3\n", "unwrap", self.wrap_op1b(2, 2), "-o", "-")


class Ranges(Op1bCase):
    def check(self, file, text, first, last, says=None, channels=2):
        back = self.unwrap(file, "--frames", text, says=says)
        self.assertSameBytes(long_gop(first, last + 1), back["CLIP.h264"], text)
        for channel in range(channels):
            whole = samples(samples_before(130), 16, 1 + channel)
            self.assertSameBytes(whole[2 * samples_before(first):2 * samples_before(last + 1)],
                                 read_wav(back[f"CLIP{channel:02}.wav"], self.folder)[3], text)

    def test_begin_where_decoding_can(self):
        file = self.wrap_op1b(130, 2)
        keys = [n for n in range(130) if ACCESS_UNITS[n % 24]["type"] == "I"]
        for first, last in [(0, 0), (0, 129), (10, 12), (48, 59), (58, 61), (120, 129), (48, 125)]:
            self.assertIn(first, keys)
            self.check(file, f"{first}-{last}", first, last)
        for first, last in [(1, 1), (9, 9), (11, 20), (59, 60), (60, 60), (61, 129), (129, 129), (125, 126)]:
            key = max(key for key in keys if key <= first)
            self.check(file, f"{first}-{last}", key, last,
                       f"CLIP.mxf: frame {first} is decoded from frame {key} on: frames {key}-{last} are given back")

    def test_raw_begins_where_it_is_told(self):
        file = self.wrap_op1b(130, 2)
        for first, last in [(1, 1), (59, 60), (65, 129)]:
            back = self.unwrap(file, "--frames", f"{first}-{last}", "--raw")
            self.assertSameBytes(b"".join(aligned(access_unit(n)) for n in range(first, last + 1)), back["CLIP.raw"])
            self.assertSameBytes(samples(samples_before(130))[2 * samples_before(first):2 * samples_before(last + 1)],
                                 back["CLIP00.pcm"])

    def test_parts_of_the_sound_make_the_whole(self):
        file = self.wrap_op1b(130, 1, bits=24)
        parts = [self.unwrap(file, "--raw", "--frames", text)["CLIP00.pcm"]
                 for text in ("0", "1-7", "8-58", "59", "60", "61-119", "120-129")]
        self.assertSameBytes(samples(samples_before(130), 24), b"".join(parts))

    def test_a_key_picture_without_parameter_sets(self):
        # The key picture stored tenth loses them, as in streams that have them only once.
        picture = access_unit(10)
        starts = [at for at in range(len(picture)) if picture.startswith(b"\0\0\0\1", at)] + [len(picture)]
        bare = b"".join(picture[a:b] for a, b in zip(starts, starts[1:]) if picture[a + 4] & 31 not in (7, 8))
        self.assertLess(len(bare), len(picture))
        file = self.wrap("--video", self.file("in.264", long_gop(0, 10) + bare + long_gop(11, 24)))
        back = self.unwrap(file, "--frames", "12-13", says="CLIP.mxf: frame 12 cannot be decoded by itself: its key "
                                                           "picture, frame 10, has no parameter sets")
        self.assertSameBytes(long_gop(12, 14), back["CLIP.h264"])

    def test_frames_that_are_not_there(self):
        file = self.wrap_op1b(61)
        for text in ("0-61", "61", "100-200"):
            self.refused(INPUT, "CLIP.mxf: has 61 frames; frame [0-9]+ is not among them", "unwrap", file, "-o",
                         self.folder / "out", "--frames", text)
        self.assertEqual([], files_in(self.folder / "out"))


class CutOff(Op1bCase):
    def test_whole_groups_are_given_back(self):
        content = self.wrap_op1b(130, 2, "--xml", ESSENCE / "clip.xml").read_bytes()
        second = group_starts(content)[1]
        file = self.file("CUT.mxf", content[:second + 500000])
        says = "CUT.mxf: cut off at frame 60; what is there is given back"
        back = self.unwrap(file, status=FINDINGS, says=says)
        self.assertSameBytes(long_gop(0, GROUP), back["CUT.h264"])
        self.assertSameBytes(essence("clip.xml"), back["CUT.xml"])
        for channel in range(2):
            self.assertEqual((48000, 16, 1, samples(samples_before(130), 16, 1 + channel)[:2 * samples_before(GROUP)]),
                             read_wav(back[f"CUT{channel:02}.wav"], self.folder))
        self.assertSameBytes(long_gop(48, 50), self.unwrap(file, "--frames", "48-49", status=FINDINGS,
                                                           says=says)["CUT.h264"])
        result = self.run_kmxf("unwrap", file, "-o", self.folder / "out", "--frames", "60")
        self.assertEqual((INPUT, True), (result.returncode, "has 60 frames; frame 60" in result.stderr))

    def test_no_group_is_whole(self):
        content = self.wrap_op1b(70, 1).read_bytes()
        back = self.unwrap(self.file("CUT.mxf", content[:300000]), status=FINDINGS,
                           says="CUT.mxf: cut off at frame 0; what is there is given back")
        self.assertEqual((0, 0), (len(back["CUT.h264"]), len(read_wav(back["CUT00.wav"], self.folder)[3])))


class Broken(Op1bCase):
    def test_sound_of_no_bits_is_not_given_back(self):
        content = self.wrap_op1b(70, 1).read_bytes()
        bad = content.replace(bytes.fromhex("3D01000400000010"), bytes.fromhex("3D01000400000000"))
        self.assertNotEqual(content, bad)
        for raw in ([], ["--raw"]):
            self.kmxf("unwrap", *raw, self.file("BAD.mxf", bad), "-o", self.folder / f"out{len(raw)}", status=FINDINGS,
                      says="what is there is given back")

    def test_an_element_that_is_not_where_it_should_be(self):
        content = bytearray(self.wrap_op1b(70, 1).read_bytes())
        pictures = [each.offset for each in walk(bytes(content)) if each.key == PICTURE]
        sound = [each.offset for each in walk(bytes(content)) if each.key == SOUND]
        for element, at, byte in [(pictures[30], 0, 0xFF), (pictures[30], 17, 0x7F), (sound[1], 0, 0),
                                  (sound[0], 20, 0xFF)]:
            bad = bytearray(content)
            bad[element + at] = byte
            self.refused(INPUT, rf"BAD.mxf: has no essence where it should be \(offset {element}\)", "unwrap",
                         self.file("BAD.mxf", bytes(bad)), "-o", self.folder / "out")
        self.assertEqual([], files_in(self.folder / "out"))


if __name__ == "__main__":
    unittest.main()
