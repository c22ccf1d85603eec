"""Sound: every kind comes back sample by sample; it is fitted to the picture; a clip is one thing."""

import struct
import subprocess
import unittest

from kmxf_case import (ESSENCE, INPUT, USAGE, KmxfCase, essence, files_in, frames, read_wav, samples, write_wav)

KINDS = [(bits, rate) for bits in (16, 24) for rate in (48000, 96000)]
DV25 = ESSENCE / "dv25-5994i.dif"  # two frames: 3204 samples at 48 kHz


class SoundAlone(KmxfCase):
    def test_every_kind_comes_back(self):
        for bits, rate in KINDS:
            for count in (1, 2):
                with self.subTest(bits=bits, rate=rate, channels=count):
                    channels = [samples(4004, bits, seed) for seed in range(count)]
                    folder = self.folder / f"{bits}-{rate}-{count}"
                    self.wrap("--audio", self.wav("in.wav", channels, bits, rate), "--standard", "59.94i",
                              folder=folder)
                    self.assertEqual([f"CLIP0{c}.mxf" for c in range(count)], files_in(folder))
                    back = self.unwrap(folder)
                    raw = self.unwrap(folder, "--raw")
                    for c, channel in enumerate(channels):
                        self.assertEqual((rate, bits, 1, channel), read_wav(back[f"CLIP0{c}.wav"], self.folder))
                        self.assertSameBytes(channel, raw[f"CLIP0{c}.pcm"])
                        info = self.file_info(folder / f"CLIP0{c}.mxf")
                        self.assertEqual(("closed", "audio", f"pcm{bits}", bits, rate, 4004, len(channel)),
                                         tuple(info[key] for key in ("verdict", "kind", "codec", "bits_per_sample",
                                                                     "sampling_rate", "samples", "data_size")))

    def test_bundled_tones_come_back(self):
        for name, channels in [("tone-16bit-mono.wav", 1), ("tone-24bit-stereo.wav", 2)]:
            with self.subTest(name):
                folder = self.folder / name
                self.wrap("--audio", ESSENCE / name, "--standard", "59.94i", folder=folder)
                rate, bits, count, original = read_wav(essence(name), self.folder)
                self.assertEqual((48000, channels), (rate, count))
                width = bits // 8
                for c, back in enumerate(self.unwrap(folder).values()):
                    _, _, _, sound = read_wav(back, self.folder)
                    wanted = b"".join(original[at + c * width:at + (c + 1) * width]
                                      for at in range(0, len(original), width * count))
                    self.assertSameBytes(wanted, sound)
                self.assertEqual(24, self.info(folder)["clip"]["duration"])

    def test_bits_are_chosen(self):
        low = self.wav("16.wav", [samples(2000, 16)], 16)
        high = self.wav("24.wav", [samples(2000, 24)], 24)
        self.wrap("--audio", low, "--audio", high, "--standard", "25p", "--bits", "24", folder=self.folder / "to24")
        back = self.unwrap(self.folder / "to24", "--raw")
        self.assertSameBytes(b"".join(b"\0" + samples(2000, 16)[at:at + 2] for at in range(0, 4000, 2)),
                             back["CLIP00.pcm"])
        self.assertSameBytes(samples(2000, 24), back["CLIP01.pcm"])
        self.wrap("--audio", high, "--standard", "25p", "--bits", "16", folder=self.folder / "to16")
        self.assertSameBytes(b"".join(samples(2000, 24)[at + 1:at + 3] for at in range(0, 6000, 3)),
                             self.unwrap(self.folder / "to16", "--raw")["CLIP00.pcm"])

    def test_floating_point_needs_the_bits_to_be_said(self):
        values = struct.pack("<4f", 0.0, 0.5, -0.5, -1.0)
        wav = self.file("float.wav", b"RIFF" + struct.pack("<I", 36 + len(values)) + b"WAVEfmt " +
                        struct.pack("<IHHIIHH", 16, 3, 1, 48000, 192000, 4, 32) + b"data" +
                        struct.pack("<I", len(values)) + values)
        self.wrap_refused(INPUT, "neither 16 nor 24 bits: say which with --bits", "--audio", wav, "--standard", "25p")
        self.wrap("--audio", wav, "--standard", "25p", "--bits", "16")
        back = struct.unpack("<4h", self.unwrap(self.folder / "clip", "--raw")["CLIP00.pcm"])
        for wanted, found in zip((0, 16384, -16384, -32768), back):
            self.assertAlmostEqual(wanted, found, delta=1)

    def test_compressed_sound_has_the_length_it_tells_of(self):
        wanted = samples(4800)
        flac = self.folder / "in.flac"
        subprocess.run(["ffmpeg", "-v", "error", "-i", self.wav("in.wav", [wanted]), flac], check=True)
        self.wrap("--audio", flac, "--standard", "25p")
        self.assertEqual(wanted, self.unwrap(self.folder / "clip", "--raw")["CLIP00.pcm"])
        # The number of samples is the last 36 bits in front of the checksum in its first block.
        content = bytearray(flac.read_bytes())
        self.assertEqual(4800, int.from_bytes(content[22:26], "big"))
        for count in (4801, 1 << 31):
            content[22:26] = count.to_bytes(4, "big")
            self.wrap_refused(INPUT, f"long.flac: ends before its {count} samples", "--standard", "25p", "--audio",
                              self.wav("in.wav", [wanted]), "--audio", self.file("long.flac", bytes(content)))
        content[21] |= 0x0F
        self.wrap_refused(INPUT, r"long.flac: tells of \d+ samples|ends before its", "--standard", "25p", "--audio",
                          self.file("long.flac", bytes(content)))

    def test_standard_is_needed(self):
        self.wrap_refused(USAGE, "--standard is needed", "--audio", self.wav("in.wav", [samples(10)]))

    def test_what_is_no_sound_is_refused(self):
        for name, content, says in [("text", b"hello", "cannot be read as a sound file"),
                                    ("empty", b"", "cannot be read as a sound file")]:
            self.wrap_refused(INPUT, f"{name}: {says}", "--audio", self.file(name, content), "--standard", "25p")
        self.wrap_refused(INPUT, "nowhere.wav: ", "--audio", self.folder / "nowhere.wav", "--standard", "25p")
        self.wrap_refused(INPUT, "44100 Hz; 48000 or 96000 is needed", "--standard", "25p",
                          "--audio", self.wav("44.wav", [samples(100)], rate=44100))
        self.wrap_refused(INPUT, "holds no sound", "--audio", self.wav("none.wav", [b""]), "--standard", "25p")


class SoundWithPicture(KmxfCase):
    def test_longer_sound_is_cut_and_this_is_said(self):
        wav = self.wav("long.wav", [samples(3205)])
        self.wrap("--video", DV25, "--audio", wav, says="long.wav: 1 samples longer than the picture; they are cut")
        self.assertSameBytes(samples(3205)[:3204 * 2], self.unwrap(self.folder / "clip", "--raw")["CLIP00.pcm"])
        self.assertEqual([], self.info(self.folder / "clip")["disagreements"])

    def test_shorter_sound_is_filled_with_silence_and_this_is_said(self):
        for bits, rate, whole in [(16, 48000, 3204), (24, 96000, 6408)]:
            with self.subTest(bits=bits, rate=rate):
                folder = self.folder / f"{bits}"
                wav = self.wav("short.wav", [samples(1000, bits), samples(1000, bits, 2)], bits, rate)
                self.wrap("--video", DV25, "--audio", wav, folder=folder,
                          says=f"short.wav: {whole - 1000} samples shorter than the picture; "
                               "they are filled with silence")
                back = self.unwrap(folder, "--raw")
                for c in range(2):
                    self.assertSameBytes(samples(1000, bits, c + 1) + bytes((whole - 1000) * bits // 8),
                                         back[f"CLIP0{c}.pcm"])
                self.assertEqual([], self.info(folder)["disagreements"])

    def test_sound_of_the_same_length_is_taken_silently(self):
        self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(3204)]))

    def test_picture_and_sound_agree_on_the_duration(self):
        # Frames of the cadences up to where they repeat, and samples that end anywhere in them.
        for codec, raster, standard, size, counts in [("dv25", "525", "59.94i", 120000, (1, 2, 3, 4, 5)),
                                                      ("avci50", "720", "59.94p", 116224, (1, 2, 3, 4, 5, 7, 8, 9)),
                                                      ("avci50", "720", "23.98p", 116224, (1, 2, 3)),
                                                      ("avci50", "720", "50p", 140288, (1, 3))]:
            for count in counts:
                for rate in (48000, 96000):
                    with self.subTest(standard=standard, frames=count, rate=rate):
                        video = self.file("video", frames(codec, raster, standard, size, count))
                        wav = self.wav("in.wav", [samples(24000)], rate=rate)
                        self.wrap("--video", video, "--codec", codec, "--raster", raster, "--standard", standard, "--audio", wav,
                                  "--force", says="cut")
                        document = self.info(self.folder / "clip")
                        self.assertEqual([], document["disagreements"])
                        self.assertEqual(count, document["clip"]["duration"])

    def test_files_of_several_wavs_are_counted_up(self):
        wavs = [self.wav("a.wav", [samples(3204)]), self.wav("b.wav", [samples(3204, 24, 2), samples(3204, 24, 3)], 24),
                self.wav("c.wav", [samples(6408, 16, 4)], rate=96000)]
        options = [option for wav in wavs for option in ("--audio", wav)]
        file = self.wrap("--video", DV25, *options, name="A")
        self.assertEqual(["A.mxf", "A00.mxf", "A01.mxf", "A02.mxf", "A03.mxf"], files_in(file.parent))
        back = self.unwrap(file, "--raw")
        for name, wanted in [("A00.pcm", samples(3204)), ("A01.pcm", samples(3204, 24, 2)),
                             ("A02.pcm", samples(3204, 24, 3)), ("A03.pcm", samples(6408, 16, 4))]:
            self.assertSameBytes(wanted, back[name], name)
        self.assertSameBytes(essence("dv25-5994i.dif"), back["A.raw"])

        document = self.info(file)
        self.assertEqual((4, [], 2), (document["clip"]["channels"], document["disagreements"],
                                      document["clip"]["duration"]))
        self.assertEqual(1, len({each["material_umid"] for each in document["files"]}))
        self.assertEqual(5, len({each["file_umid"] for each in document["files"]} |
                                {document["clip"]["material_umid"]}) - 1)
        self.assertEqual({"01:02:03;04"}, {each["start_timecode"] for each in document["files"]})

    def test_tracks_that_do_not_fit_the_header_are_refused_before_anything_is_written(self):
        wav = self.wav("99.wav", [samples(2)] * 99)
        self.wrap_refused(USAGE, "99 tracks does not fit the header area|up to 99", "--audio", wav, "--standard", "25p")
        wav = write_wav(self.folder / "100.wav", [samples(2)] * 100, 16, 48000)
        self.wrap_refused(USAGE, "100 sound channels; up to 99 can be named", "--audio", wav, "--standard", "25p")


if __name__ == "__main__":
    unittest.main()
