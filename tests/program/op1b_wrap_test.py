"""Long-GOP streams go into OP-1b clips: every picture, its place in the order, and the sound beside it."""

import json
import time
import unittest

from interrupt_test import Recording
from kmxf_case import (ESSENCE, FINDINGS, INPUT, INTERRUPTED, USAGE, KmxfCase, essence, files_in, read_wav, samples)
from longgop import annex_b, encode, ffmpeg, heard, order, pictures
from op1b_file import (FILE_PACKAGE, MATERIAL_PACKAGE, MULTIPLE_DESCRIPTOR, PICTURE_DESCRIPTOR, SOUND_DESCRIPTOR,
                       SUB_DESCRIPTOR, TIMECODE, Op1bFile)

LONG_GOP = ESSENCE / "longg25-1080-5994i.264"
UNITS = json.loads((ESSENCE / "longg25-1080-5994i.au.json").read_text())["access_units"]
UMID = "060A2B340101010501010D4313000000" + "00112233445566778899AABBCCDDEEFF"
KEY_FRAME, WITH_PARAMETER_SETS, P, B, CUT_OFF = 0x80, 0xC0, 0x22, 0x33, 0x3B
# Frames of a group, and samples of these and of some more frames (SMPTE ST 382 cadences).
GROUPS = {"23.98p": (48, 96096), "29.97p": (60, 96096), "59.94i": (60, 96096), "25p": (50, 96000), "50i": (50, 96000),
          "50p": (100, 96000), "59.94p": (120, 96096)}
SAMPLES_OF_3 = {"23.98p": 6008, "29.97p": 4804, "59.94i": 4804, "25p": 5760, "50i": 5760, "50p": 2880, "59.94p": 2404}


def bmp(width, height, size=None):
    head = bytearray(54)
    head[:2] = b"BM"
    head[18:26] = width.to_bytes(4, "little", signed=True) + height.to_bytes(4, "little", signed=True)
    body = 3 * width * abs(height) if size is None else size - 54
    return bytes(head) + bytes(body)


class WrapCase(KmxfCase):
    def wrapped(self, *arguments, **how):
        return Op1bFile(self.wrap(*arguments, **how).read_bytes())

    def assertPictures(self, stream, clip):
        """The clip has all bytes of the stream, each picture with up to 3 zeros behind it."""
        at = 0
        for picture, following in zip(clip.pictures, [*clip.pictures[1:], None]):
            end = len(stream) if following is None else next(
                end for end in range(at + len(picture) - 3, at + len(picture) + 1)
                if stream.startswith(following[:-3], end))
            self.assertSameBytes(stream[at:end] + bytes((at - end) % 4), picture)
            at = end


class BundledStream(WrapCase):
    def test_every_picture_and_its_index_entry(self):
        clip = self.wrapped("--video", LONG_GOP)
        stream = essence(LONG_GOP.name)
        self.assertEqual(24, len(clip.pictures))
        offset = 0
        for unit, picture, entry in zip(UNITS, clip.pictures, clip.entries):
            self.assertSameBytes(stream[unit["offset"]:unit["offset"] + unit["size"]] + bytes(-unit["size"] % 4), picture)
            self.assertEqual((unit["temporal_offset"], unit["key_frame_offset"], unit["flags_with_sequence_bit"], offset),
                             entry)
            offset += 20 + len(picture)
        self.assertEqual([24], [group.anc for group in clip.groups])

    def test_the_pattern_may_be_said(self):
        self.assertEqual(24, len(self.wrapped("--video", LONG_GOP, "--pattern", "op-1b").pictures))

    def test_start_timecode_is_that_of_the_picture_shown_first(self):
        (timecode, _) = self.wrapped("--video", LONG_GOP).sets(TIMECODE)
        # 03:04:59;25: 184 minutes with two frames left out in each but every tenth.
        self.assertEqual((3 * 3600 + 4 * 60 + 59) * 30 + 25 - 2 * (184 - 18), int.from_bytes(timecode[0x1501], "big"))
        self.assertEqual(b"\1", timecode[0x1503])
        (timecode, _) = self.wrapped("--video", LONG_GOP, "--start-timecode", "00:00:01:02", "--force").sets(TIMECODE)
        self.assertEqual((32, b"\0"), (int.from_bytes(timecode[0x1501], "big"), timecode[0x1503]))

    def test_sound_of_several_files(self):
        clip = self.wrapped("--video", LONG_GOP, "--audio", ESSENCE / "tone-24bit-stereo.wav", "--audio",
                            self.wav("in.wav", [samples(38440, 24)], 24))
        _, _, _, stereo = read_wav(essence("tone-24bit-stereo.wav"), self.folder)
        for channel in range(2):
            self.assertSameBytes(b"".join(stereo[at:at + 3] for at in range(3 * channel, len(stereo), 6)),
                                 clip.sound(channel))
        self.assertSameBytes(samples(38440, 24), clip.sound(2))
        self.assertEqual(3, len(clip.sets(SOUND_DESCRIPTOR)))

    def test_other_programs_see_and_hear_it(self):
        file = self.wrap("--video", LONG_GOP, "--audio", ESSENCE / "tone-16bit-mono.wav", "--audio",
                         self.wav("in.wav", [samples(38440)]))
        self.assertEqual(pictures(LONG_GOP), pictures(file))
        self.assertSameBytes(read_wav(essence("tone-16bit-mono.wav"), self.folder)[3], heard(file, 0, 16))
        self.assertSameBytes(samples(38440), heard(file, 1, 16))

    def test_layouts(self):
        wav = self.wav("in.wav", [samples(38440), samples(38440)])
        players = self.wrapped("--video", LONG_GOP, "--audio", wav)
        self.assertEqual((1, 3), (len(players.sets(MULTIPLE_DESCRIPTOR)), len(players.sets(FILE_PACKAGE))))
        said = self.wrapped("--video", LONG_GOP, "--audio", wav, "--layout", "players", "--force")
        self.assertEqual((1, 3), (len(said.sets(MULTIPLE_DESCRIPTOR)), len(said.sets(FILE_PACKAGE))))
        strict = self.wrapped("--video", LONG_GOP, "--audio", wav, "--layout", "strict", "--force")
        self.assertEqual((0, 1), (len(strict.sets(MULTIPLE_DESCRIPTOR)), len(strict.sets(FILE_PACKAGE))))
        self.assertEqual(players.pictures, strict.pictures)

    def test_xml_and_thumbnail(self):
        file = self.wrap("--video", LONG_GOP, "--xml", ESSENCE / "clip.xml", "--thumbnail", ESSENCE / "thumbnail.bmp",
                         "--thumbnail-position", "23").read_bytes()
        self.assertIn(essence("clip.xml"), file[32768:32768 + 81920])
        self.assertIn(essence("thumbnail.bmp"), file[32768 + 81920:131072])
        self.assertIn(bytes.fromhex("0000000000000017"), file[114688:131072], "the position")
        plain = self.wrap("--video", LONG_GOP, "--force").read_bytes()
        self.assertIn(b"Dummy\0", plain[32768:32768 + 81920])
        self.assertIn(bytes(10854), plain[32768 + 81920:131072])

    def test_values_of_the_clip(self):
        clip = self.wrapped("--video", LONG_GOP, "--title", "Tïtle", "--shot-umid", UMID, "--creation-date",
                            "2024-02-03T04:05:06", "--company", "Own", "--take", "7")
        (material,) = clip.sets(MATERIAL_PACKAGE)
        (package,) = clip.sets(FILE_PACKAGE)
        self.assertEqual((bytes.fromhex(UMID), "Tïtle", bytes.fromhex("07E8020304050600")),
                         (material[0x4401], material[0x4402].decode("utf-16-be").rstrip("\0"), material[0x4405]))
        self.assertEqual(bytes.fromhex(UMID[:30] + "01" + UMID[32:]), package[0x4401])
        self.assertIn("Own".encode("utf-16-be"), clip.data[:32768])

    def test_umid_is_that_of_the_file(self):
        (package,) = self.wrapped("--video", LONG_GOP, "--umid", UMID).sets(FILE_PACKAGE)
        self.assertEqual(bytes.fromhex(UMID), package[0x4401])
        self.wrap("--video", LONG_GOP, "--umid", UMID, "--shot-umid", UMID[:30] + "FF" + UMID[32:], "--force")
        self.wrap_refused(USAGE, "--umid: the UMID of an op-1b file is that of --shot-umid with one more", "--video", LONG_GOP, "--umid", UMID,
                          "--shot-umid", UMID)

    def test_from_a_pipe_it_is_the_same(self):
        stream = essence(LONG_GOP.name)
        wav = self.wav("in.wav", [samples(38440)])
        file = self.wrapped("--video", LONG_GOP, "--audio", wav)
        pipe = self.wrapped("--video", "-", "--audio", wav, "--force", input=stream)
        self.assertEqual((file.pictures, file.entries, file.sound(0)), (pipe.pictures, pipe.entries, pipe.sound(0)))

    def test_progress_tells_bytes_and_frames(self):
        result = self.run_kmxf("wrap", "--video", LONG_GOP, "-o", self.folder / "clip", "--name", "CLIP", "--progress")
        self.assertRegex(result.stderr, r"\r[^\r\n]*CLIP.mxf: 0.3 MB, 24 frames, [0-9.]+ MB/s, 100 %, 0 s left \n\Z")


class Order(WrapCase):
    """Against the times that a container gives the same pictures."""

    SHAPES = {
        "closed, two B": ("bframes=2:b-adapt=0:b-pyramid=none:keyint=12:scenecut=0", {}),
        "closed, three B": ("bframes=3:b-adapt=0:b-pyramid=none:keyint=15:scenecut=0", {}),
        "open, one B": ("bframes=1:b-adapt=0:open-gop=1:keyint=10:scenecut=0", {}),
        "open, three B": ("bframes=3:b-adapt=0:b-pyramid=none:open-gop=1:keyint=12:scenecut=0", {}),
        "pyramid": ("bframes=7:b-adapt=0:b-pyramid=normal:keyint=40:scenecut=0:ref=4", {}),
        "strict pyramid, open": ("bframes=3:b-adapt=0:b-pyramid=strict:open-gop=1:keyint=16:scenecut=0", {}),
        "no B": ("bframes=0:keyint=12", {}),
        "no B, order type 2": ("bframes=0:keyint=12:ref=1:sliced-threads=0", {}),
        "IDR only": ("keyint=1", {}),
        "slices": ("bframes=2:b-adapt=0:slices=4:keyint=12", {}),
        "delimiters": ("bframes=2:b-adapt=0:aud=1:keyint=12", {}),
        "weights": ("bframes=3:b-adapt=0:weightp=2:weightb=1:ref=5:keyint=30", {"options": ("-vf", "fade=in:0:20")}),
        "fields in frames": ("bframes=2:b-adapt=0:keyint=12", {"raster": "1080", "standard": "59.94i"}),
        "intra refresh": ("bframes=0:intra-refresh=1:keyint=20", {}),
        "long": ("bframes=3:keyint=100:scenecut=0", {"frames": 130}),
    }

    def test_every_shape(self):
        for name, (x264, how) in self.SHAPES.items():
            with self.subTest(name):
                film = encode(self.folder / "in.mp4", x264=x264, **{"frames": 50, **how})
                stream = annex_b(film)
                clip = self.wrapped("--video", stream, "--force")
                self.assertPictures(stream.read_bytes(), clip)
                expected = order(film)
                places = [place for place, _ in expected]
                self.assertEqual([places.index(k) - k for k in range(len(places))],
                                 [temporal for temporal, *_ in clip.entries])
                key = 0
                for k, ((_, kind), (_, key_frame, flags, _)) in enumerate(zip(expected, clip.entries)):
                    key = k if kind == "I" else key
                    self.assertEqual(key - k, key_frame, k)
                    self.assertIn(flags, {"I": (KEY_FRAME, WITH_PARAMETER_SETS), "P": (P,), "B": (B,)}[kind], k)
                    sets = any(nal[0] & 31 == 7 for nal in clip.pictures[k].split(b"\0\0\1")[1:])
                    self.assertEqual(sets, flags == WITH_PARAMETER_SETS)
                self.assertEqual(pictures(stream), pictures(self.folder / "clip" / "CLIP.mxf"))

    def test_an_open_group_at_the_start_lacks_a_reference(self):
        stream = annex_b(encode(self.folder / "in.mp4", 40, x264="bframes=2:b-adapt=0:b-pyramid=none:open-gop=1:keyint=12"),
                         filters="h264_mp4toannexb,dump_extra=freq=k")
        whole = self.wrapped("--video", stream)
        second = [k for k, entry in enumerate(whole.entries) if entry[2] & KEY_FRAME][1]
        at = stream.read_bytes().index(whole.pictures[second][:200])
        cut = self.wrapped("--video", self.file("cut.h264", stream.read_bytes()[at:]), "--force")
        self.assertEqual(WITH_PARAMETER_SETS, cut.entries[0][2])
        self.assertEqual([CUT_OFF, CUT_OFF, P], [flags for _, _, flags, _ in cut.entries[1:4]])
        self.assertEqual([1, 1, -2], [temporal for temporal, *_ in cut.entries[:3]])
        self.assertNotIn(CUT_OFF, [flags for _, _, flags, _ in cut.entries[3:]])
        # What cannot be shown is in front of the clip.
        (descriptor,) = cut.sets(PICTURE_DESCRIPTOR)
        self.assertEqual(len(cut.pictures), int.from_bytes(descriptor[0x3002], "big"))

    def test_start_codes_and_zeros_of_all_kinds(self):
        stream = annex_b(encode(self.folder / "in.mp4", x264="bframes=2:b-adapt=0:slices=3:aud=1")).read_bytes()
        short = stream.replace(b"\0\0\0\1", b"\0\0\1")
        zeros = stream.replace(b"\0\0\0\1", b"\0\0\0\0\0\0\1") + bytes(5)
        whole = self.wrapped("--video", self.file("in.h264", stream), "--force")
        for content in (short, zeros):
            clip = self.wrapped("--video", self.file("in.h264", content), "--force")
            self.assertEqual([entry[:3] for entry in whole.entries], [entry[:3] for entry in clip.entries])
            # Zeros in front of the first start code and behind the last picture are nobody's.
            kept = content[content.index(b"\0\0\1") - (content[2] == 0):].rstrip(b"\0")
            self.assertPictures(kept, clip)
            self.run_kmxf("unwrap", self.folder / "clip", "-o", self.folder / "out", "--force")
            self.assertEqual(kept, (self.folder / "out" / "CLIP.h264").read_bytes())

    def test_what_cannot_be_decoded_is_left_out_and_told(self):
        stream = annex_b(encode(self.folder / "in.mp4", x264="bframes=2:b-adapt=0:aud=1:keyint=12:open-gop=0"))
        content = stream.read_bytes()
        whole = self.wrapped("--video", stream, "--force")
        entries = [entry[:3] for entry in whole.entries]
        for name, front, end in [("garbage", b"what is this" * 100, b""), ("delimiter", b"", b"\0\0\0\1\x09\x10"),
                                 ("both", b"\1", b"\0\0\0\1\x09\x10\0\0\0\1\x06\x05")]:
            with self.subTest(name):
                result = self.run_kmxf("wrap", "--video", self.file("in.h264", front + content + end), "-o",
                                       self.folder / "clip", "--name", "CLIP", "--force")
                self.assertEqual(FINDINGS, result.returncode, result.stderr)
                lines = [f"kmxf: {self.folder}/in.h264: the {where} {len(part)} bytes hold no picture that can be decoded; "
                         "they are left out\n" for where, part in (("first", front), ("last", end)) if part]
                self.assertEqual("".join(lines), result.stderr)
                clip = Op1bFile((self.folder / "clip" / "CLIP.mxf").read_bytes())
                self.assertEqual((entries, whole.pictures), ([entry[:3] for entry in clip.entries], clip.pictures))
        # Pictures in front of the first I picture go too; the last picture may be cut anywhere in its slices.
        p = content.index(b"\0\0\0\1\x09", 5)
        clip = self.wrapped("--video", self.file("in.h264", content[p:-7]), status=FINDINGS, says="first [0-9]+ bytes hold no",
                            folder=self.folder / "late")
        self.assertEqual(WITH_PARAMETER_SETS, clip.entries[0][2])
        self.assertEqual(12, len(clip.pictures))
        self.assertEqual(24 * [True], [k < 12 or whole.pictures[k][:50] == clip.pictures[k - 12][:50] for k in range(24)])

    def test_distances_that_an_index_cannot_hold(self):
        stream = annex_b(encode(self.folder / "in.mp4", 140, x264="bframes=0:keyint=infinite:scenecut=0"))
        self.wrap_refused(INPUT, r"picture 129 is 129 behind the last I picture, .*\(offset [0-9]+\)", "--video", stream)


class Cadence(WrapCase):
    def test_groups_of_every_standard(self):
        for standard, (frames, in_group) in GROUPS.items():
            with self.subTest(standard):
                raster = "1080" if standard.endswith("i") else "720"
                film = encode(self.folder / "in.mp4", 2 * frames + 3, raster, standard, quality=51)
                total = 2 * in_group + SAMPLES_OF_3[standard]
                channels = [samples(total, 24, seed) for seed in range(2)]
                clip = self.wrapped("--video", annex_b(film), "--audio", self.wav("in.wav", channels, 24), "--force")
                self.assertEqual([frames, frames, 3], [len(group.pictures) for group in clip.groups])
                self.assertEqual([frames, frames, 3], [group.anc for group in clip.groups])
                self.assertEqual([frames, frames, 3], [len(group.entries) for group in clip.groups])
                for channel in range(2):
                    self.assertEqual([3 * in_group, 3 * in_group, 3 * SAMPLES_OF_3[standard]],
                                     [len(group.sound[3 + channel]) for group in clip.groups])
                    self.assertSameBytes(channels[channel], clip.sound(channel))

    def test_a_single_group_and_one_frame_more_or_less(self):
        film = encode(self.folder / "in.mp4", 49, standard="23.98p")
        for frames, in_groups, sizes in [(1, [1], [2004]), (47, [47], [94096]), (48, [48], [96096]),
                                         (49, [48, 1], [96096, 2004])]:
            cut = self.folder / "cut.mp4"
            ffmpeg("-i", film, "-frames:v", frames, "-c:v", "libx264", "-preset", "ultrafast", "-bf", 2, "-qp", 51, cut)
            stream = annex_b(cut)
            total = sum(sizes)
            clip = self.wrapped("--video", stream, "--audio", self.wav("in.wav", [samples(total)]), "--force")
            self.assertEqual(in_groups, [len(group.pictures) for group in clip.groups])
            self.assertEqual([2 * size for size in sizes], [len(group.sound[3]) for group in clip.groups])
            self.assertSameBytes(samples(total), clip.sound(0))

    def test_shorter_sound_is_filled_at_the_end_and_longer_sound_cut(self):
        short = self.wav("short.wav", [samples(30000)])
        clip = self.wrapped("--video", LONG_GOP, "--audio", short,
                            says="short.wav: 8440 samples shorter than the picture; they are filled with silence")
        self.assertSameBytes(samples(30000) + bytes(2 * 8440), clip.sound(0))
        long = self.wav("long.wav", [samples(40000)])
        clip = self.wrapped("--video", LONG_GOP, "--audio", long, "--force",
                            says="long.wav: 1560 samples longer than the picture; they are cut")
        self.assertSameBytes(samples(40000)[:2 * 38440], clip.sound(0))

    def test_as_many_channels_as_the_header_holds(self):
        for options, most in [([], 24), (["--take", "1", "--scene", "1"], 22), (["--layout", "strict"], 27),
                              (["--layout", "strict", "--take", "1", "--scene", "1"], 25)]:
            with self.subTest(options):
                fits = self.wav("fits.wav", [samples(38440, seed=seed) for seed in range(most)])
                clip = self.wrapped("--video", LONG_GOP, "--audio", fits, *options, "--force")
                self.assertSameBytes(samples(38440, seed=most - 1), clip.sound(most - 1))
                many = self.wav("many.wav", [samples(100) for _ in range(most + 1)])
                self.wrap_refused(USAGE, f"{most + 1} sound channels do not fit the header of an op-1b clip; up to {most} do",
                                  "--video", LONG_GOP, "--audio", many, *options)
        many = [option for _ in range(3) for option in ("--audio", self.wav("100.wav", [samples(10)] * 100))]
        self.wrap_refused(USAGE, "300 sound channels do not fit", "--video", LONG_GOP, *many)

    def test_kinds_of_sound_that_do_not_go_together(self):
        low, high = self.wav("16.wav", [samples(38440)]), self.wav("24.wav", [samples(38440, 24)], 24)
        self.wrap_refused(USAGE, "sound of 16 and of 24 bits.*--bits", "--video", LONG_GOP, "--audio", low, "--audio", high)
        clip = self.wrapped("--video", LONG_GOP, "--audio", low, "--audio", high, "--bits", "24")
        self.assertSameBytes(samples(38440, 24), clip.sound(1))
        self.wrap_refused(INPUT, "96.wav: has a sampling rate of 96000 Hz; op-1b is for 48000", "--video", LONG_GOP, "--audio",
                          self.wav("96.wav", [samples(1000)], 16, 96000))


class Format(WrapCase):
    def bit_rate(self, clip):
        (sub,) = clip.sets(SUB_DESCRIPTOR)
        return int.from_bytes(sub[0x9014], "big")

    def test_is_found(self):
        high = {"pixels": "yuv422p10le"}
        for how, rate, size in [
                ({}, 6000000, (1280, 720)), (high, 25000000, (1280, 720)),
                ({"raster": "1080", "standard": "29.97p"}, 6000000, (1920, 1080)),
                ({"raster": "1080", "standard": "50i", **high}, 25000000, (1920, 540)),
                ({"raster": "1080", "standard": "59.94p"}, 12000000, (1920, 1080)),
                ({"x264": "nal-hrd=vbr:vbv-maxrate=12000:vbv-bufsize=12000", "options": ("-b:v", "9M")}, 12000000, (1280, 720)),
                ({"x264": "nal-hrd=vbr:vbv-maxrate=50000:vbv-bufsize=9000", "options": ("-b:v", "9M"), **high}, 50000000,
                 (1280, 720)),
                ({"quality": 0, **high}, 50000000, (1280, 720))]:
            with self.subTest(how):
                if "options" in how:
                    how = {"quality": -1, **how}
                clip = self.wrapped("--video", annex_b(encode(self.folder / "in.mp4", 6, **how)), "--force")
                self.assertEqual(rate, self.bit_rate(clip))
                (picture,) = clip.sets(PICTURE_DESCRIPTOR)
                self.assertEqual(size, tuple(int.from_bytes(picture[tag], "big") for tag in (0x3203, 0x3202)))

    def test_is_said(self):
        stream = annex_b(encode(self.folder / "in.mp4", 4))
        for codec, rate in [("avclg6", 6), ("avclg12", 12), ("avclg25", 25), ("avclg50", 50)]:
            clip = self.wrapped("--video", stream, "--codec", codec, "--raster", "720", "--standard", "59.94p", "--force")
            self.assertEqual(rate * 1000000, self.bit_rate(clip))
        film = encode(self.folder / "in.mp4", 4, "1080", "29.97p")
        (picture,) = self.wrapped("--video", annex_b(film), "--standard", "59.94i", "--force").sets(PICTURE_DESCRIPTOR)
        self.assertEqual(b"\1", picture[0x320C], "fields")

    def test_must_be_said_where_the_stream_does_not_tell(self):
        stream = annex_b(encode(self.folder / "in.mp4", 4), filters="h264_mp4toannexb")
        bare = self.folder / "bare.h264"
        ffmpeg("-f", "lavfi", "-i", "color=size=1280x720:rate=25", "-frames:v", 3, "-c:v", "libx264", "-pix_fmt", "yuv422p",
               bare)
        self.wrap_refused(INPUT, "can be avclg6 720 25p, avclg12 720 25p, avclg25 720 25p or avclg50 720 25p: say which with "
                                 "--standard, --raster or --codec", "--video", bare)
        self.assertEqual(12000000, self.bit_rate(self.wrapped("--video", bare, "--codec", "avclg12")))
        for options, says in [(["--standard", "50p"], "is avclg6 720 59.94p, not 50p"),
                              (["--raster", "1080"], "is avclg6 720 59.94p, not 1080"),
                              (["--codec", "dv100"], "is avclg6 720 59.94p, not dv100"),
                              (["--pattern", "op-atom"], "is avclg6 720 59.94p; Long-GOP pictures go with op-1b")]:
            self.wrap_refused(USAGE if "--pattern" in options else INPUT, says, "--video", stream, *options)

    def test_other_h264_is_refused(self):
        for size, pixels, says in [("640x360", "yuv420p", "profile [0-9]+, 640 x 360, 8 bit 4:2:0, and neither"),
                                   ("1280x720", "yuv420p", r"profile [0-9]+, 1280 x 720, 8 bit 4:2:0, and neither")]:
            rate = 25 if size == "640x360" else 24
            bare = self.folder / "bare.h264"
            ffmpeg("-f", "lavfi", "-i", f"color=size={size}:rate={rate}", "-frames:v", 3, "-c:v", "libx264", "-pix_fmt",
                   pixels, bare)
            self.wrap_refused(INPUT, f"is H.264, {says}", "--video", bare)

    def test_containers_are_refused_and_it_is_said_what_to_do(self):
        film = encode(self.folder / "in.mp4", 6)
        kinds = {"mp4": "an MP4 or QuickTime", "mov": "an MP4 or QuickTime", "mkv": "a Matroska or WebM",
                 "ts": "an MPEG transport stream", "m2ts": "an MPEG transport stream", "avi": "an AVI",
                 "flv": "a Flash video", "mpg": "an MPEG program stream", "mxf": "an MXF"}
        for ending, name in kinds.items():
            with self.subTest(ending):
                target = self.folder / f"out.{ending}"
                how = ["-c:v", "mpeg2video"] if ending in ("mpg", "mxf") else ["-c", "copy"]
                ffmpeg("-i", film, "-r", "60000/1001", *how, *(["-f", "vob"] if ending == "mpg" else []), target)
                remedy = "unwrap it first" if ending == "mxf" else 'take the picture out first, as "ffmpeg -i FILE'
                self.wrap_refused(INPUT, f"out.{ending}: is {name} file; bare essence is needed: {remedy}.*offset [0-9]+",
                                  "--video", target)
        # What the message says works.
        ffmpeg("-i", film, "-c:v", "copy", self.folder / "out.h264")
        self.assertEqual(6, len(self.wrapped("--video", self.folder / "out.h264").pictures))


class Live(WrapCase):
    """A stream from a pipe, ended by Ctrl-C."""

    def check(self, copies, *options, says=r"\A\Z"):
        recording = Recording(self, *options)
        stream = essence(LONG_GOP.name) * copies
        recording.feed(stream[:-1000])  # within the last picture
        status, out, error = recording.interrupt()
        self.assertEqual((INTERRUPTED, b""), (status, out), error)
        self.assertRegex(error, says)
        clip = Op1bFile((recording.folder / "LIVE.mxf").read_bytes())
        self.assertEqual(["LIVE.mxf"], files_in(recording.folder))
        self.assertEqual(24 * copies - 1, len(clip.pictures))
        self.assertPictures(stream[:-UNITS[23]["size"]], clip)
        return clip

    def test_what_is_shorter_than_what_is_looked_at_first(self):
        self.check(1)

    def test_whole_pictures_are_kept_and_sound_is_cut_to_match(self):
        # 239 frames: 47 times 8008 samples, and 6408.
        wav = self.wav("in.wav", [samples(400000)])
        clip = self.check(10, "--audio", wav, says=r"\Akmxf: .*17216 samples longer than the picture; they are cut\n\Z")
        self.assertSameBytes(samples(400000)[:2 * (47 * 8008 + 6408)], clip.sound(0))

    def test_before_the_first_picture(self):
        for fed in (b"", essence(LONG_GOP.name)[:20000]):
            recording = Recording(self)
            recording.feed(fed)
            if not fed:
                time.sleep(0.5)  # nothing tells that the program is waiting
            self.assertEqual((INTERRUPTED, b"", "kmxf: interrupted\n"), recording.interrupt())
            self.assertEqual([], files_in(recording.folder))

    def test_sound_that_cannot_be_read_does_not_cost_the_picture(self):
        sound = samples(1000000)
        wav = self.wav("in.wav", [sound])
        recording = Recording(self, "--audio", wav)
        stream = essence(LONG_GOP.name)
        recording.feed(stream * 10)
        with open(wav, "r+b") as file:
            file.truncate(44 + 2 * 500000)
        _, error = recording.process.communicate(stream * 10)
        self.assertEqual(FINDINGS, recording.process.returncode)
        self.assertRegex(error.decode(), r"\Akmxf: [^\n]*in.wav: ends before its 1000000 samples; the picture is kept, with "
                                         r"silence from here on\nkmxf: [^\n]*samples longer than the picture; they are cut\n\Z")
        clip = Op1bFile((recording.folder / "LIVE.mxf").read_bytes())
        self.assertEqual(480, len(clip.pictures))
        # Groups of 60 frames, 96096 samples each: the sixth is not whole.
        self.assertSameBytes(sound[:5 * 2 * 96096] + bytes(3 * 2 * 96096), clip.sound(0))

    def test_sound_shorter_than_its_header_says(self):
        wav = self.wav("in.wav", [samples(38440)])
        wav.write_bytes(wav.read_bytes()[:44] + samples(38440)[:40000])
        content = wav.read_bytes()
        result = self.run_kmxf("wrap", "--video", "-", "--audio", wav, "-o", self.folder / "clip", "--name", "CLIP",
                               input=essence(LONG_GOP.name))
        clip = Op1bFile((self.folder / "clip" / "CLIP.mxf").read_bytes())
        self.assertEqual(24, len(clip.pictures))
        self.assertSameBytes(content[44:] + bytes(2 * 38440 - 40000), clip.sound(0))
        self.assertIn("filled with silence", result.stderr)


class Refused(WrapCase):
    def test_what_does_not_fit(self):
        self.wrap_refused(USAGE, "--no-header-rewrite: the sizes of Long-GOP pictures are not known", "--video", LONG_GOP,
                          "--no-header-rewrite")
        self.wrap_refused(USAGE, "--xml: .*x.xml is too long; up to 65535 bytes fit", "--video", LONG_GOP, "--xml",
                          self.file("x.xml", bytes(65536)))
        self.wrap_refused(INPUT, "x.xml: is empty", "--video", LONG_GOP, "--xml", self.file("x.xml", b""))
        self.wrap_refused(INPUT, "nowhere: cannot be read: No such file", "--video", LONG_GOP, "--xml", self.folder / "nowhere")
        self.wrap_refused(INPUT, "cannot be read: Is a directory", "--video", LONG_GOP, "--thumbnail", self.folder)
        for name, content, says in [("a.png", b"\x89PNG" + bytes(100), "a.png: is no BMP"), ("b", b"BM", "is no BMP"),
                                    ("c", bmp(0, 45), "is a BMP of 0 x 45 pixels"),
                                    ("d", bmp(80, 70000, 1000), "is a BMP of 80 x 70000 pixels")]:
            self.wrap_refused(INPUT, says, "--video", LONG_GOP, "--thumbnail", self.file(name, content))
        self.wrap_refused(USAGE, "--thumbnail: .* has 16384 bytes, which do not fit", "--video", LONG_GOP, "--thumbnail",
                          self.file("large", bmp(1, 1, 16384)))
        self.wrap_refused(USAGE, "--thumbnail-position: the clip has 24 frames", "--video", LONG_GOP, "--thumbnail",
                          ESSENCE / "thumbnail.bmp", "--thumbnail-position", "24")
        self.wrap_refused(USAGE, "requires --thumbnail", "--video", LONG_GOP, "--thumbnail-position", "1")
        self.wrap_refused(USAGE, "sound without a picture; op-1b is for Long-GOP", "--audio", ESSENCE / "tone-16bit-mono.wav",
                          "--standard", "59.94i", "--pattern", "op-1b")
        self.wrap_refused(USAGE, "--xml: .* op-atom has no place for it", "--video", ESSENCE / "dv25-5994i.dif", "--xml",
                          ESSENCE / "clip.xml")

    def test_the_largest_xml_and_other_sizes_of_thumbnails(self):
        xml = bytes(range(1, 256)) * 257
        file = self.wrap("--video", LONG_GOP, "--xml", self.file("x.xml", xml), "--thumbnail", self.file("t", bmp(64, -64)))
        data = file.read_bytes()
        self.assertIn(xml, data[32768:114688])
        self.assertIn(bmp(64, -64), data[114688:131072])

    def test_nothing_is_left_of_a_stream_that_fails_halfway(self):
        stream = essence(LONG_GOP.name)
        bad = self.file("bad.h264", stream[:UNITS[20]["offset"]] + b"\0\0\0\1\x41\0\0\x80\x55" + stream[UNITS[21]["offset"]:])
        self.wrap_refused(INPUT, rf"a slice is malformed, .*\(offset {UNITS[20]['offset']}\)", "--video", bad)

    def test_an_existing_file_stays(self):
        file = self.wrap("--video", LONG_GOP)
        before = file.read_bytes()
        self.wrap("--video", LONG_GOP, status=4, says="CLIP.mxf: .*--force")
        self.assertSameBytes(before, file.read_bytes())


if __name__ == "__main__":
    unittest.main()
