"""Sound: others decode the MXF to the samples that went in; whole clips open file by file."""

import unittest

from interop_case import InteropCase, ffmpeg, probe
from kmxf_case import ESSENCE, samples


class Sound(InteropCase):
    def test_every_kind(self):
        for bits in (16, 24):
            for rate in (48000, 96000):
                with self.subTest(bits=bits, rate=rate):
                    folder = self.folder / f"{bits}-{rate}"
                    channels = [samples(rate // 5, bits, seed) for seed in range(2)]
                    self.wrap("--audio", self.wav("in.wav", channels, bits, rate), "--standard", "50i", folder=folder)
                    for c, channel in enumerate(channels):
                        file = folder / f"CLIP0{c}.mxf"
                        _, stream = probe(file, "a")
                        self.assertEqual((f"pcm_s{bits}le", str(rate), 1),
                                         (stream["codec_name"], stream["sample_rate"], stream["channels"]))
                        self.assertAlmostEqual(0.2, float(stream["duration"]), places=5)
                        self.assertSameBytes(channel, ffmpeg("-i", file, "-f", f"s{bits}le", "-c:a",
                                                             f"pcm_s{bits}le", "-"))

    def test_wavs_that_come_back_are_read(self):
        for bits, rate in [(16, 48000), (24, 96000)]:
            folder = self.folder / f"{bits}"
            channel = samples(5000, bits)
            self.wrap("--audio", self.wav("in.wav", [channel], bits, rate), "--standard", "25p", folder=folder)
            back = self.file("back.wav", self.unwrap(folder)["CLIP00.wav"])
            self.assertSameBytes(channel, ffmpeg("-i", back, "-f", f"s{bits}le", "-c:a", f"pcm_s{bits}le", "-"))

    def test_picture_and_sound_of_a_clip_are_as_long(self):
        self.wrap("--video", ESSENCE / "dv25-5994i.dif", "--audio", ESSENCE / "tone-24bit-stereo.wav", says="cut")
        durations = [float(probe(self.folder / "clip" / name, kind)[1]["duration"])
                     for name, kind in (("CLIP.mxf", "v"), ("CLIP00.mxf", "a"), ("CLIP01.mxf", "a"))]
        for duration in durations[1:]:
            self.assertAlmostEqual(durations[0], duration, delta=0.0001)


if __name__ == "__main__":
    unittest.main()
