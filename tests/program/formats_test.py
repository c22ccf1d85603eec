"""Every picture format goes in and comes out again, bit for bit."""

import hashlib
import unittest

from kmxf_case import (AVC_INTRA_FORMATS, DV_FORMATS, EXPECTED, PARAMETER_SETS, RATES, KmxfCase, essence, frames)

# File, what must be said of it, and what info then says.
BUNDLED = [
    ("dv25-5994i.dif", [], "dv25", "525", "59.94i"),
    ("dv25-50i-iec.dif", [], "dv25-iec", "625", "50i"),
    ("dv50-50i.dif", [], "dv50", "625", "50i"),
    ("dv100-720-5994p.dif", [], "dv100", "720", "59.94p"),
    ("avci50-720-5994p-header.raw", [], "avci50", "720", "59.94p"),
    ("avci50-720-5994p.raw", ["--standard", "59.94p"], "avci50", "720", "59.94p"),
    ("avci100-1080-5994i.raw", ["--standard", "59.94i"], "avci100", "1080", "59.94i"),
]


def md5(data):
    return hashlib.md5(data).hexdigest()


class BundledEssence(KmxfCase):
    def check(self, name, options, codec, raster, standard):
        known, bare = EXPECTED[name], essence(name)[EXPECTED[name].get("header_bytes", 0):]
        file = self.wrap("--video", self.file("essence", essence(name)), *options)
        info = self.file_info(file)
        self.assertEqual(("closed", "video", "OP-Atom", codec, raster, standard),
                         tuple(info[key] for key in ("verdict", "kind", "pattern", "codec", "raster", "standard")))
        self.assertEqual((known["video_standard"], known["compression_type"].rjust(10).replace("0x", "0000").strip(),
                          known["frame_size"], known["frames"]),
                         (info["video_standard_code"], info["compression_code"][2:], info["frame_size"],
                          info["duration"]))
        self.assertEqual("{}/{}".format(*known["edit_rate"]), info["frame_rate"])
        self.assertEqual(32768, info["data_offset"])
        self.assertEqual(file.stat().st_size, info["file_size"])
        self.assertEqual(known.get("iec", False), info["consumer_dv"])

        (raw,) = self.unwrap("--raw", file).values()
        (playable,) = self.unwrap(file).values()
        self.assertSameBytes(raw, playable, name)
        if "header_md5" in known:  # the element begins with the parameter sets of the format
            self.assertEqual(known["header_md5"], md5(raw[:PARAMETER_SETS]))
            raw = raw[PARAMETER_SETS:]
        self.assertSameBytes(bare, raw, name)
        self.assertSameBytes(bare, *self.unwrap("--raw", "--frames", f"0-{known['frames'] - 1}", file).values())
        size = known["frame_size"]
        self.assertEqual(known["frame_md5"], [md5(raw[at:at + size]) for at in range(0, len(raw), size)])

    def test_comes_back(self):
        for name, *rest in BUNDLED:
            with self.subTest(name):
                self.setUp()
                self.check(name, *rest)

    def test_essence_with_its_parameter_sets_comes_back_whole(self):
        file = self.wrap("--video", self.file("essence", essence("avci50-720-5994p-header.raw")))
        self.assertSameBytes(essence("avci50-720-5994p-header.raw"), self.unwrap(file, "--raw")["CLIP.raw"])

    def test_parameter_sets_in_front_of_every_frame_are_kept_once(self):
        whole = essence("avci50-720-5994p-header.raw")
        block, pictures, size = whole[:PARAMETER_SETS], whole[PARAMETER_SETS:], 116224
        every = b"".join(block + pictures[at:at + size] for at in range(0, len(pictures), size))
        file = self.wrap("--video", self.file("essence", every))
        self.assertEqual(3, self.file_info(file)["duration"])
        self.assertSameBytes(whole, self.unwrap(file)["CLIP.h264"])


class EveryFormat(KmxfCase):
    def check(self, codec, raster, standard, size):
        content = frames(codec, raster, standard, size)
        file = self.wrap("--video", self.file("essence", content), "--codec", codec, "--raster", raster,
                         "--standard", standard, "--force")
        info = self.file_info(file)
        self.assertEqual((codec, raster, standard, size, RATES[standard], 2, codec == "dv25-iec"),
                         tuple(info[key] for key in ("codec", "raster", "standard", "frame_size", "frame_rate",
                                                     "duration", "consumer_dv")))
        (raw,) = self.unwrap("--raw", file).values()
        if codec.startswith("avci"):
            self.assertEqual(b"\0\0\0\1\x09", raw[:5], "parameter sets begin with an access unit delimiter")
            raw = raw[PARAMETER_SETS:]
        self.assertSameBytes(content, raw, info)

    def test_dv(self):
        self.assertEqual(13, len(DV_FORMATS))
        for each in DV_FORMATS:
            with self.subTest(" ".join(each[:3])):
                self.check(*each)

    def test_avc_intra(self):
        self.assertEqual(36, len(AVC_INTRA_FORMATS))
        for each in AVC_INTRA_FORMATS:
            with self.subTest(" ".join(each[:3])):
                self.check(*each)


class OddCounts(KmxfCase):
    def test_single_and_odd_frames(self):
        for name, options, count in [("dv25-5994i.dif", [], 1), ("avci100-1080-5994i.raw", ["--standard", "59.94i"], 1),
                                     ("avci50-720-5994p.raw", ["--standard", "59.94p"], 3)]:
            with self.subTest(name):
                size = EXPECTED[name]["frame_size"]
                content = essence(name)[:count * size]
                file = self.wrap("--video", self.file("essence", content), *options, "--force")
                self.assertEqual(count, self.file_info(file)["duration"])
                self.assertSameBytes(content, self.unwrap(file, "--raw")["CLIP.raw"][-count * size:])

    def test_more_than_a_buffer(self):
        content = b"".join(frames("dv25", "525", "59.94i", 120000, 3) + essence("dv25-5994i.dif") for _ in range(12))
        file = self.wrap("--video", self.file("essence", content))
        self.assertSameBytes(content, self.unwrap(file)["CLIP.dv"])


if __name__ == "__main__":
    unittest.main()
