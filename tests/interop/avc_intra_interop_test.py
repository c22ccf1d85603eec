"""AVC-Intra of ffmpeg's making: others open the MXF, see the same pictures, and the frames come back."""

import unittest

from interop_case import InteropCase
from kmxf_case import PARAMETER_SETS

# Codec, raster, size, pixel format, frame size at 59.94 and its relatives, and at 50 and its.
KINDS = [
    ("avci50", "1080", "1440x1080", "yuv420p10le", 232448, 280576),
    ("avci50", "720", "960x720", "yuv420p10le", 116224, 140288),
    ("avci100", "1080", "1920x1080", "yuv422p10le", 472064, 568320),
    ("avci100", "720", "1280x720", "yuv422p10le", 236032, 284160),
    ("avci200", "1080", "1920x1080", "yuv422p10le", 952320, 1143808),
    ("avci200", "720", "1280x720", "yuv422p10le", 476160, 571904),
]
# How a standard is coded, and the others that have the same pictures.
CODED = [("59.94i", "30000/1001", []), ("50i", "25", []), ("59.94p", "60000/1001", ["23.98p", "29.97p"]),
         ("50p", "50", ["25p"])]
INTERLACED = ["-flags", "+ildct+ilme", "-x264-params", "interlaced=1:tff=1"]


class AVCIntra(InteropCase):
    def code(self, codec, size, pixel_format, standard, rate):
        return self.picture("essence.h264", size, rate, pixel_format, "-c:v", "libx264", "-avcintra-class", codec[4:],
                            *(INTERLACED if standard.endswith("i") else []), "-f", "h264")

    def check(self, kind, standard, rate, others):
        codec, raster, size, pixel_format, at_60, at_50 = kind
        frame = at_60 if standard.startswith("59") else at_50
        coded = self.code(codec, size, pixel_format, standard, rate)
        content = coded.read_bytes()
        self.assertEqual(2 * (PARAMETER_SETS + frame), len(content), "a block in front of every frame")
        frames = content[PARAMETER_SETS:PARAMETER_SETS + frame] + content[-frame:]
        bare = self.picture_md5(coded, "-f", "h264")

        # As coded, it tells all of its format; without parameter sets it has to be said.
        self.check_clip(self.wrap("--video", coded, "--force"), kind, standard, frames, bare)
        stripped = self.file("stripped.raw", frames)
        for wanted in [standard, *others]:
            file = self.wrap("--video", stripped, "--codec", codec, "--raster", raster, "--standard", wanted, "--force")
            self.check_clip(file, kind, wanted, frames, bare)

    def check_clip(self, file, kind, standard, frames, bare):
        codec, raster, size, pixel_format, *_ = kind
        values = self.file_info(file)
        self.assertEqual((codec, raster, standard, 2),
                         tuple(values[key] for key in ("codec", "raster", "standard", "duration")))
        self.assertProbed(file, "h264", size, standard, 2, pix_fmt=pixel_format)
        self.assertEqual(bare, self.picture_md5(file), f"pictures, {standard}")
        playable = self.unwrap(file)["CLIP.h264"]
        self.assertSameBytes(frames, playable[PARAMETER_SETS:])
        if playable not in self.played:
            self.assertEqual(bare, self.picture_md5(self.file("back.h264", playable)), "what comes back is playable")
            self.played.add(playable)

    def check_all(self, codec):
        self.played = set()
        for kind in (each for each in KINDS if each[0] == codec):
            for standard, rate, others in CODED:
                if kind[1] == "720" and standard.endswith("i"):
                    continue
                with self.subTest(" ".join((*kind[:2], standard))):
                    self.check(kind, standard, rate, others)

    def test_class_50(self):
        self.check_all("avci50")

    def test_class_100(self):
        self.check_all("avci100")

    def test_class_200(self):
        self.check_all("avci200")

    def test_a_part_is_playable(self):
        coded = self.code("avci50", "960x720", "yuv420p10le", "50p", "50")
        part = self.unwrap(self.wrap("--video", coded), "--frames", "1-1")["CLIP.h264"]
        self.assertEqual(self.picture_md5(coded)[1:], self.picture_md5(self.file("part.h264", part)))


if __name__ == "__main__":
    unittest.main()
