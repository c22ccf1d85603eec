"""kmxf frames on OP-1b clips: where everything of a frame lies, and what its index says."""

import unittest

from kmxf_case import FINDINGS, INPUT, samples
from op1b_case import ACCESS_UNITS, Op1bCase, access_unit, long_gop, partitions, samples_before
from op1b_file import ANC, walk


class Frames(Op1bCase):
    def frames(self, *arguments, status=0):
        return self.json("frames", *arguments, status=status)["frames"]

    def test_of_the_bundled_essence(self):
        found = self.frames(self.wrap_op1b(24, 1))
        self.assertEqual([{key: unit[name] for key, name in
                           [("frame", "index"), ("timecode", "timecode"), ("temporal_offset", "temporal_offset"),
                            ("key_frame_offset", "key_frame_offset"), ("flags", "flags_with_sequence_bit")]}
                          for unit in ACCESS_UNITS],
                         [{key: value for key, value in each.items() if key not in ("offset", "size", "audio", "anc")}
                          for each in found])

    def test_places_hold_what_went_in(self):
        for channels, bits, layout in [(3, 16, "players"), (2, 24, "strict")]:
            file = self.wrap_op1b(130, channels, "--layout", layout, "--force", bits=bits)
            content, found = file.read_bytes(), self.frames(file)
            anc = [(each.value_offset, len(each.value)) for each in walk(content) if each.key == ANC]
            self.assertEqual(list(range(130)), [each["frame"] for each in found])
            at = lambda place: content[place["offset"]:place["offset"] + place["size"]]
            for number, each in enumerate(found):
                picture = access_unit(number)
                self.assertEqual(picture + bytes(-len(picture) % 4), at(each), number)
                self.assertEqual(anc[number], (each["anc"]["offset"], each["anc"]["size"]))
                self.assertEqual(channels, len(each["audio"]))
                width = bits // 8
                for channel, place in enumerate(each["audio"]):
                    sound = samples(samples_before(130), bits, 1 + channel)
                    self.assertEqual(sound[width * samples_before(number):width * samples_before(number + 1)], at(place),
                                     f"frame {number}, channel {channel}")

    def test_display_order(self):
        found = self.frames(self.wrap_op1b(24))
        shown = [found[k + each["temporal_offset"]]["timecode"] for k, each in enumerate(found)]
        self.assertEqual(sorted(shown), shown)
        self.assertEqual(24, len(set(shown)))

    def test_text(self):
        file = self.wrap_op1b(2, 2)
        found = self.frames(file)
        lines = self.kmxf("frames", file).decode().splitlines()
        place = lambda each: f"{each['offset']}+{each['size']}"
        self.assertEqual(
            [["0", str(found[0]["offset"]), "22484", "03:04:59;25", "--------", "0", "0", "C0", "anc",
              place(found[0]["anc"]), "audio", place(found[0]["audio"][0]), "audio", place(found[0]["audio"][1])],
             ["1", str(found[1]["offset"]), "16560", "03:04:59;28", "--------", "0", "-1", "22", "anc",
              place(found[1]["anc"]), "audio", place(found[1]["audio"][0]), "audio", place(found[1]["audio"][1])]],
            [line.split() for line in lines])
        self.assertEqual(("3200", "2"), (lines[0].split("+")[2].split()[0], lines[0].split("+")[1].split()[0]))

    def test_ranges_say_the_same(self):
        file = self.wrap_op1b(130, 1)
        whole = self.frames(file)
        for options, wanted in [(["--from", "1", "--count", "1"], slice(1, 2)), (["--from", "59", "--count", "3"],
                                                                                 slice(59, 62)),
                                (["--from", "119"], slice(119, 130)), (["--from", "130"], slice(0, 0)),
                                (["--from", "65", "--count", "2"], slice(65, 67))]:
            self.assertEqual(whole[wanted], self.frames(file, *options), options)
        self.refused(INPUT, "has 130 frames; frame 131 is not among them", "frames", file, "--from", "131")

    def test_without_sound(self):
        for each in self.frames(self.wrap_op1b(3)):
            self.assertNotIn("audio", each)
            self.assertEqual(2, each["anc"]["size"])

    def test_frames_in_front_of_the_clip(self):
        found = self.frames(self.wrap("--video", self.file("in.264", long_gop(10, 24))))
        self.assertEqual([0xC0, 0x3B, 0x3B, 0x22], [each["flags"] for each in found[:4]])

    def test_whole_groups_of_a_recording_that_was_cut_off(self):
        file = self.wrap_op1b(130, 1)
        whole = self.frames(file)
        second = [at for at, sid in partitions(file.read_bytes()) if sid == 1][1]
        cut = self.file("CUT.mxf", file.read_bytes()[:second + 100000])
        self.assertEqual(whole[:60], self.frames(cut, status=FINDINGS))

    def test_an_index_that_lies(self):
        content = self.wrap_op1b(130).read_bytes()
        index = [at for at, sid in partitions(content)][2]
        entries = content.index(bytes.fromhex("3F0A"), index) + 12
        for at, value in [(entries + 11 + 3, b"\xFF" * 8), (entries - 8, bytes(4)), (entries + 3, b"\0\0\0\1"),
                          (index + 140, b"\0")]:
            bad = bytearray(content)
            bad[at:at + len(value)] = value
            file = self.file("BAD.mxf", bytes(bad))
            self.refused(INPUT, rf"BAD.mxf: the index of its frames from 0 on is damaged \(offset {index}\)", "frames",
                         file)
            self.assertEqual(10, len(self.frames(file, "--from", "72", "--count", "10")))  # from a key picture on

    def test_reads_a_little_of_each_frame(self):
        file = self.wrap_op1b(120, 4)
        result = self.run_kmxf("frames", file, "--from", "60", "--count", "10", "--stats")
        reads = int(result.stderr.split(" bytes in ")[1].split(" reads")[0].replace(" ", ""))
        self.assertLessEqual(reads, 7 + 10 + 3 + 4)


if __name__ == "__main__":
    unittest.main()
