"""What the options of wrap say is found again in the file; what does not fit a field is refused, and nothing written."""

import unittest
from datetime import datetime, timedelta

from kmxf_case import ESSENCE, USAGE, KmxfCase, files_in, samples

DV25 = ESSENCE / "dv25-5994i.dif"
DV50 = ESSENCE / "dv50-50i.dif"
AVCI = ESSENCE / "avci50-720-5994p-header.raw"
UMID = "060A2B340101010501010F2013000000" + "00112233445566778899AABBCCDDEEFF"


class Values(KmxfCase):
    def values(self, *options, video=DV25):
        return self.file_info(self.wrap("--video", video, *options, "--force"))

    def test_every_text_is_found_again(self):
        metadata = [("--job-function", "job_function", "Kamera für Österreich"),
                    ("--family-name", "family_name", "Ångström"), ("--given-name", "first_given_name", "Жанна"),
                    ("--project-number", "project_number", "P-0042"), ("--project-name", "project_name", "漢字の映画"),
                    ("--scene", "scene_number", "17b")]
        plain = [("--title", "package_name", "Überfahrt, Teil 2"), ("--company", "company", "Example Inc"),
                 ("--product", "product", "Recorder"), ("--product-version", "product_version", "3.1")]
        values = self.values("--take", "7", *(part for option, _, text in metadata + plain for part in (option, text)))
        for option, key, text in plain:
            self.assertEqual(text, values[key], option)
        found = values["descriptive_metadata"]
        for option, key, text in metadata:
            self.assertEqual(text, found[key], option)
        self.assertEqual(7, found["take_number"])

    def test_longest_texts_fit(self):
        options = [("--title", "package_name", "ü" * 200), ("--company", "company", "c" * 16),
                   ("--product", "product", "p" * 16), ("--product-version", "product_version", "1234")]
        values = self.values(*(part for option, _, text in options for part in (option, text)))
        for option, key, text in options:
            self.assertEqual(text, values[key], option)
        options = [("--job-function", "job_function", "ä" * 60), ("--family-name", "family_name", "f" * 60),
                   ("--given-name", "first_given_name", "g" * 60), ("--project-name", "project_name", "Ж" * 200),
                   ("--project-number", "project_number", "1" * 32), ("--scene", "scene_number", "s" * 32),
                   ("--take", "take_number", 65535)]
        found = self.values(*(str(part) for option, _, value in options for part in (option, value)))
        for option, key, value in options:
            self.assertEqual(value, found["descriptive_metadata"][key], option)

    def test_defaults(self):
        before = datetime.now().replace(microsecond=0)
        values = self.values()
        after = datetime.now()
        self.assertEqual("CLIP", values["package_name"])
        self.assertTrue(before <= datetime.fromisoformat(values["creation_date"]) <= after, values)
        self.assertEqual((False, True, "01:02:03;04"),
                         (values["wide"], values["drop_frame"], values["start_timecode"]))
        self.assertNotEqual(values["material_umid"], values["file_umid"])
        for key in ("material_umid", "file_umid"):
            self.assertRegex(values[key], "^060A2B340101010501010F2013000000")

    def test_all_files_of_a_clip_say_the_same(self):
        wav = self.wav("in.wav", [samples(3204), samples(3204)])
        self.wrap("--video", DV25, "--audio", wav, "--title", "T", "--creation-date", "2024-02-29T23:59:58",
                  "--job-function", "J", "--take", "3", "--company", "C", "--start-timecode", "10:00:00:00")
        document = self.info(self.folder / "clip")
        self.assertEqual([], document["disagreements"])
        clip = document["clip"]
        self.assertEqual(("T", "2024-02-29T23:59:58", "C", "10:00:00:00", False),
                         tuple(clip[key] for key in ("package_name", "creation_date", "company", "start_timecode",
                                                     "drop_frame")))
        self.assertEqual(("J", 3), (clip["descriptive_metadata"]["job_function"],
                                    clip["descriptive_metadata"]["take_number"]))

    def test_umids(self):
        wav = self.wav("in.wav", [samples(3204), samples(3204)])
        self.wrap("--video", DV25, "--audio", wav, "--umid", UMID[:-8] + "0000FFFE", "--shot-umid", UMID.lower())
        files = self.info(self.folder / "clip")["files"]
        self.assertEqual([UMID] * 3, [each["material_umid"] for each in files])
        self.assertEqual([UMID[:-8] + last for last in ("0000FFFE", "0000FFFF", "00010000")],
                         [each["file_umid"] for each in files])

    def test_new_umids_for_every_clip(self):
        umids = set()
        for _ in range(3):
            values = self.values()
            umids |= {values["material_umid"], values["file_umid"]}
        self.assertEqual(6, len(umids))

    def test_start_timecode(self):
        for video, options, wanted in [
                (DV25, [], "01:02:03;04"), (DV50, [], "12:34:56:18"), (ESSENCE / "dv25-50i-iec.dif", [], "23:59:59:20"),
                (ESSENCE / "dv100-720-5994p.dif", [], "00:08:59;27"), (AVCI, [], "00:00:00:00"),
                (ESSENCE / "avci100-1080-5994i.raw", ["--standard", "59.94i"], "02:03:59;25"),
                (DV25, ["--start-timecode", "23:59:59:29"], "23:59:59:29"),
                (DV25, ["--start-timecode", "10:01:00;02"], "10:01:00;02"),
                (DV25, ["--start-timecode", "10:00:00;00"], "10:00:00;00"),
                (DV50, ["--start-timecode", "09:08:07:24"], "09:08:07:24"),
                (AVCI, ["--start-timecode", "09:08:07;29"], "09:08:07;29")]:
            with self.subTest(f"{video.name} {options}"):
                values = self.values(*options, video=video)
                self.assertEqual((wanted, ";" in wanted), (values["start_timecode"], values["drop_frame"]))

    def test_creation_date(self):
        for text, wanted in [("2024-02-29T12:34:56", "2024-02-29T12:34:56"), ("2024-02-29", "2024-02-29T00:00:00"),
                             ("1999-12-31 23:59:59", "1999-12-31T23:59:59")]:
            self.assertEqual(wanted, self.values("--creation-date", text)["creation_date"])

    def test_wide(self):
        self.assertTrue(self.values("--wide")["wide"])
        self.assertTrue(self.values("--wide", video=DV50)["wide"])
        self.assertFalse(self.values(video=DV50)["wide"])
        self.assertTrue(self.values(video=ESSENCE / "dv100-720-5994p.dif")["wide"])
        self.assertTrue(self.values(video=AVCI)["wide"])

    def test_header_written_first_or_last_is_the_same(self):
        wav = self.wav("in.wav", [samples(48000)] * 2)
        for video, options in [(DV25, []), (AVCI, []), (ESSENCE / "dv100-720-5994p.dif", [])]:
            with self.subTest(video.name):
                options = ["--video", video, "--audio", wav, "--umid", UMID, "--shot-umid", UMID, "--creation-date",
                           "2024-01-02T03:04:05", "--title", "T", "--company", "Example", *options]
                results = []
                for extra in ([], ["--no-header-rewrite"]):
                    folder = self.folder / (video.name + str(len(extra)))
                    self.wrap(*options, *extra, folder=folder, says="cut")
                    self.assertEqual([], self.info(folder)["disagreements"])
                    files = self.info(folder)["files"]
                    for each in files:
                        each["path"] = each["path"].rsplit("/", 1)[1]
                    results.append((files, self.unwrap(folder, "--raw")))
                self.assertEqual(*(files for files, _ in results))
                self.assertTrue(results[0][1] == results[1][1], "the essence is the same")
                self.assertEqual(3, len(results[0][0]))


class Refused(KmxfCase):
    def test_what_does_not_fit(self):
        for option, value, says in [
                ("--job-function", "x" * 61, "61 characters; 0 to 60 fit"),
                ("--family-name", "ü" * 61, "61 characters; 0 to 60 fit"),
                ("--given-name", "x" * 61, "61 characters; 0 to 60 fit"),
                ("--project-name", "x" * 201, "201 characters; 0 to 200 fit"),
                ("--title", "x" * 201, "201 characters; 0 to 200 fit"),
                ("--project-number", "1" * 33, "33 bytes; up to 32 fit"),
                ("--project-number", "ü" * 17, "34 bytes; up to 32 fit"),
                ("--scene", "1" * 33, "33 bytes; up to 32 fit"),
                ("--company", "x" * 17, "17 characters; 1 to 16 fit"), ("--company", "", "0 characters; 1 to 16 fit"),
                ("--product", "x" * 17, "17 characters; 1 to 16 fit"),
                ("--product-version", "12345", "5 characters; 1 to 4 fit"),
                ("--take", "65536", "65536"), ("--take", "-1", "-1"), ("--take", "two", "two"),
                ("--title", "smile \U0001F600", "characters beyond U\\+FFFF"),
                ("--job-function", "\U0001F3A5", "characters beyond U\\+FFFF"),
                ("--family-name", b"\xC3\x28", "no UTF-8 text"), ("--title", b"\xFF", "no UTF-8 text"),
                ("--umid", UMID[:-1], "64 hexadecimal digits are needed"), ("--umid", UMID + "0", "64 hexadecimal"),
                ("--umid", "X" + UMID[1:], "64 hexadecimal digits are needed"),
                ("--shot-umid", "12", "64 hexadecimal digits are needed"),
                ("--creation-date", "2023-02-29", "no date"), ("--creation-date", "2024-13-01", "no date"),
                ("--creation-date", "2024-01-01T24:00:00", "no date"), ("--creation-date", "yesterday", "no date"),
                ("--creation-date", "2024-01-01T10:00", "no date"), ("--creation-date", "", "no date"),
                ("--start-timecode", "01:02:03:30", "no timecode of 59.94i"),
                ("--start-timecode", "24:00:00:00", "no timecode"), ("--start-timecode", "1:2:3:4", "no timecode"),
                ("--start-timecode", "01:01:00;00", "no timecode"), ("--start-timecode", "now", "no timecode"),
                ("--start-timecode", "", "no timecode"), ("--bits", "20", "20"), ("--codec", "mpeg2", "mpeg2"),
                ("--raster", "2160", "2160"), ("--standard", "60p", "60p"), ("--pattern", "op-2c", "op-2c"),
                ("--pattern", "op-1b", "is dv25 525 59.94i; op-1b is for Long-GOP pictures"),
                ("--layout", "strict", "is dv25 525 59.94i; op-atom has no place for it"), ("--layout", "loose", "loose")]:
            with self.subTest(f"{option} {value!r:.40}"):
                self.wrap_refused(USAGE, says, "--video", DV25, option, value)

    def test_drop_frame_where_there_is_none(self):
        self.wrap_refused(USAGE, "50i has no drop-frame", "--video", DV50, "--start-timecode", "01:00:00;00")
        self.wrap_refused(USAGE, "25p has no drop-frame", "--audio", self.wav("in.wav", [samples(100)]),
                          "--standard", "25p", "--start-timecode", "01:00:00;00")
        self.wrap_refused(USAGE, "23.98p has no drop-frame", "--audio", self.wav("film.wav", [samples(2004)]),
                          "--standard", "23.98p", "--start-timecode", "01:00:00;00")
        self.wrap_refused(USAGE, "no timecode of 50i", "--video", DV50, "--start-timecode", "01:00:00:25")

    def test_nothing_to_wrap(self):
        self.wrap_refused(USAGE, "nothing to wrap")

    def test_name_of_no_file(self):
        for name in ("", "a/b"):
            self.refused(USAGE, "--name", "wrap", "--video", DV25, "-o", self.folder / "refused", "--name", name)
        self.assertEqual([], files_in(self.folder / "refused"))

    def test_folder_and_name_are_needed(self):
        self.refused(USAGE, "--output", "wrap", "--video", DV25, "--name", "X")
        self.refused(USAGE, "--name", "wrap", "--video", DV25, "-o", self.folder)


if __name__ == "__main__":
    unittest.main()
