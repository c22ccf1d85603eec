"""DV and DV-based essence of ffmpeg's making: others open the MXF, see the same pictures, and it comes back."""

import unittest

from interop_case import InteropCase

# Codec as we name it, raster, standard; size, pixel format, other standards of the same frame size.
KINDS = [
    ("dv25", "525", "59.94i", "720x480", "yuv411p", []),
    ("dv25-iec", "625", "50i", "720x576", "yuv420p", []),
    ("dv25", "625", "50i", "720x576", "yuv411p", []),
    ("dv50", "525", "59.94i", "720x480", "yuv422p", []),
    ("dv50", "625", "50i", "720x576", "yuv422p", []),
    ("dv100", "1080", "59.94i", "1280x1080", "yuv422p", []),
    ("dv100", "1080", "50i", "1440x1080", "yuv422p", []),
    ("dv100", "720", "59.94p", "960x720", "yuv422p", ["23.98p", "29.97p"]),
    ("dv100", "720", "50p", "960x720", "yuv422p", ["25p"]),
]
RATE = {"59.94i": "30000/1001", "50i": "25", "59.94p": "60000/1001", "50p": "50"}


class DV(InteropCase):
    def check(self, codec, raster, standard, size, pixel_format, others):
        essence = self.picture("essence.dv", size, RATE[standard], pixel_format, "-c:v", "dvvideo", "-f", "rawvideo",
                               frames=4)
        bare = self.picture_md5(essence, "-f", "dv")
        self.assertEqual(4, len(bare))
        for said in ([], *(["--standard", other] for other in others)):
            file = self.wrap("--video", essence, *said, "--force")
            wanted = said[-1] if said else standard
            values = self.file_info(file)
            self.assertEqual((codec, raster, wanted, 4),
                             tuple(values[key] for key in ("codec", "raster", "standard", "duration")))
            self.assertProbed(file, "dvvideo", size, wanted, 4, pix_fmt=pixel_format)
            self.assertEqual(bare, self.picture_md5(file), f"pictures, {wanted}")
            (back,) = self.unwrap(file).values()
            self.assertSameBytes(essence.read_bytes(), back)

    def test_every_kind(self):
        for kind in KINDS:
            with self.subTest(" ".join(kind[:3])):
                self.check(*kind)

    def test_what_comes_back_is_playable(self):
        essence = self.picture("essence.dv", "720x576", "25", "yuv420p", "-c:v", "dvvideo", "-f", "rawvideo")
        back = self.file("back.dv", self.unwrap(self.wrap("--video", essence))["CLIP.dv"])
        self.assertEqual(self.picture_md5(essence, "-f", "dv"), self.picture_md5(back))

    def test_aspect_ratio_start_timecode_and_names_are_seen(self):
        essence = self.picture("essence.dv", "720x576", "25", "yuv422p", "-c:v", "dvvideo", "-f", "rawvideo")
        for options, ratio in ([], "4:3"), (["--wide"], "16:9"):
            file = self.wrap("--video", essence, "--start-timecode", "10:11:12:13", "--title", "Überfahrt", "--company",
                             "Example", "--creation-date", "2024-02-29T01:02:03", "--force", *options)
            tags = self.assertProbed(file, "dvvideo", "720x576", "50i", 2, display_aspect_ratio=ratio)
            self.assertEqual(("10:11:12:13", "Überfahrt", "Example", "2024-02-29T01:02:03.000000Z",
                              "0x" + self.file_info(file)["material_umid"]),
                             tuple(tags[key] for key in ("timecode", "material_package_name", "company_name",
                                                         "modification_date", "material_package_umid")))

    def test_drop_frame_timecode_is_seen(self):
        essence = self.picture("essence.dv", "720x480", "30000/1001", "yuv422p", "-c:v", "dvvideo", "-f", "rawvideo")
        file = self.wrap("--video", essence, "--start-timecode", "10:11:12;13")
        self.assertEqual("10:11:12;13", self.assertProbed(file, "dvvideo", "720x480", "59.94i", 2)["timecode"])


if __name__ == "__main__":
    unittest.main()
