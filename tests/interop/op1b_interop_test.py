"""Long-GOP of ffmpeg's making in OP-1b clips: others open the MXF, see the same pictures and hear every channel, and
what comes back plays."""

import unittest

from interop_case import RATES, InteropCase, ffmpeg, probe
from kmxf_case import read_wav, samples

# Raster, size, standard, codec, pixel format, and how the pictures refer to each other.
STREAMS = [
    ("1080", "1920x1080", "59.94i", "avclg25", "yuv422p10le", "interlaced=1:tff=1:keyint=15:bframes=2:open-gop=1"),
    ("1080", "1920x1080", "25p", "avclg50", "yuv422p10le", "keyint=12:bframes=2:open-gop=0:b-adapt=0"),
    ("1080", "1920x1080", "23.98p", "avclg12", "yuv420p", "keyint=24:bframes=3:b-pyramid=normal:open-gop=0"),
    ("720", "1280x720", "59.94p", "avclg6", "yuv420p", "keyint=30:bframes=0"),
    ("720", "1280x720", "50p", "avclg12", "yuv420p", "keyint=1:slices=4"),
]
# Frames, and the samples that they last.
CADENCES = {"59.94i": (10, 16016), "25p": (10, 19200), "23.98p": (8, 16016), "59.94p": (10, 8008), "50p": (10, 9600)}


class Op1b(InteropCase):
    def code(self, stream, frames):
        _, size, standard, _, pixel_format, coding = stream
        return self.picture("essence.h264", size, RATES[standard], pixel_format, "-c:v", "libx264", "-preset",
                            "ultrafast", "-qp", "40", *(["-flags", "+ildct+ilme"] if standard.endswith("i") else []),
                            "-x264-params", f"{coding}:scenecut=0:aud=1", "-f", "h264", frames=frames)

    def clip(self, stream, coded, *options):
        raster, _, standard, codec, *_ = stream
        return self.wrap("--video", coded, "--codec", codec, "--raster", raster, "--standard", standard, "--force",
                         *options)

    def test_others_see_and_hear_it_and_all_comes_back(self):
        for stream in STREAMS:
            with self.subTest(" ".join(stream[:4])):
                frames, count = CADENCES[stream[2]]
                coded = self.code(stream, frames)
                sound = [samples(count, 16, 1 + channel) for channel in range(3)]
                wav = self.wav("in.wav", sound)
                file = self.clip(stream, coded, "--audio", wav)
                self.assertEqual("mxf", probe(file, "v")[0]["format_name"])
                self.assertEqual(self.picture_md5(coded, "-f", "h264"), self.picture_md5(file))
                for channel, expected in enumerate(sound):
                    heard = ffmpeg("-i", file, "-map", f"0:a:{channel}", "-f", "s16le", "-c:a", "pcm_s16le", "-")
                    self.assertSameBytes(expected, heard, f"channel {channel}")
                for layout in ("players", "strict"):
                    back = self.unwrap(self.clip(stream, coded, "--audio", wav, "--layout", layout))
                    self.assertSameBytes(coded.read_bytes(), back["CLIP.h264"])
                    for channel, expected in enumerate(sound):
                        self.assertEqual((48000, 16, 1, expected), read_wav(back[f"CLIP{channel:02}.wav"], self.folder))

    def test_a_part_of_closed_groups_plays(self):
        coded = self.code(STREAMS[1], 30)
        file = self.clip(STREAMS[1], coded)
        whole = self.picture_md5(coded, "-f", "h264")
        for text, first, last in [("12-23", 12, 23), ("0-11", 0, 11), ("24-29", 24, 29)]:
            part = self.unwrap(file, "--frames", text)["CLIP.h264"]
            self.assertEqual(whole[first:last + 1], self.picture_md5(self.file("part.h264", part), "-f", "h264"), text)
        part = self.unwrap(file, "--frames", "17-23", says="frame 17 is decoded from frame 12 on")["CLIP.h264"]
        self.assertEqual(whole[12:24], self.picture_md5(self.file("part.h264", part), "-f", "h264"))

    def test_a_recording_that_was_cut_off_plays_as_far_as_it_goes(self):
        coded = self.code(STREAMS[4], 130)
        file = self.clip(STREAMS[4], coded)
        whole = self.picture_md5(coded, "-f", "h264")
        file.write_bytes(file.read_bytes()[:-30000])
        part = self.unwrap(file, status=1, says="cut off at frame 100; what is there is given back")["CLIP.h264"]
        self.assertEqual(whole[:100], self.picture_md5(self.file("part.h264", part), "-f", "h264"))


if __name__ == "__main__":
    unittest.main()
