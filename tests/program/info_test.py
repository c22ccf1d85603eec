"""kmxf info: clips, what their files agree on, and whether each is whole."""

import os
import unittest

from kmxf_case import ESSENCE, FINDINGS, INPUT, KmxfCase, files_in, growing, samples

DV25 = ESSENCE / "dv25-5994i.dif"


class ClipCase(KmxfCase):
    def make_clip(self, name="A", folder=None, **how):
        wav = self.wav("in.wav", [samples(3204), samples(3204, seed=2)])
        return self.wrap("--video", DV25, "--audio", wav, name=name, folder=folder, **how).parent

    def patch(self, path, old, new):
        content = path.read_bytes()
        self.assertIn(old, content)
        self.assertEqual(len(old), len(new))
        path.write_bytes(content.replace(old, new))


class Clips(ClipCase):
    def test_any_member_and_the_folder_name_the_clip(self):
        folder = self.make_clip()
        documents = [self.info(path) for path in (folder, *sorted(folder.iterdir()))]
        for document in documents:
            self.assertEqual(documents[0], document)
            self.assertEqual([str(folder / name) for name in ("A.mxf", "A00.mxf", "A01.mxf")],
                             [each["path"] for each in document["files"]])
            self.assertEqual(["video", "audio", "audio"], [each["kind"] for each in document["files"]])
            self.assertEqual(("closed", "dv25", "525", "59.94i", 2, 2, "01:02:03;04"),
                             tuple(document["clip"][key] for key in ("verdict", "codec", "raster", "standard",
                                                                     "channels", "duration", "start_timecode")))

    def test_only_the_file_named(self):
        folder = self.make_clip()
        for name in files_in(folder):
            self.assertEqual(1, len(self.info("--only", folder / name)["files"]))
        document = self.info("--only", folder / "A01.mxf", folder / "A.mxf")
        self.assertEqual(["A.mxf", "A01.mxf"], [os.path.basename(each["path"]) for each in document["files"]])

    def test_a_file_that_is_no_mxf_does_not_hide_the_others_of_its_folder(self):
        folder = self.make_clip()
        (folder / "broken.mxf").write_bytes(b"no MXF at all, but long enough to be looked at")
        document = self.info(folder, status=INPUT, says="broken.mxf: is not an MXF file")
        self.assertEqual(3, len(document["files"]))
        for name in ("A.mxf", "A00.mxf", "A01.mxf"):
            (folder / name).unlink()
        self.refused(INPUT, "broken.mxf: is not an MXF file", "info", folder)

    def test_a_folder_of_several_clips(self):
        for name in ("B", "A"):
            folder = self.make_clip(name)
        document = self.info(folder)
        self.assertEqual([["A.mxf", "A00.mxf", "A01.mxf"], ["B.mxf", "B00.mxf", "B01.mxf"]],
                         [[os.path.basename(each["path"]) for each in clip["files"]] for clip in document["clips"]])
        self.assertEqual(3, len(self.info(folder / "B01.mxf")["files"]), "the other clip is left out")

    def test_each_clip_comes_once(self):
        folder = self.make_clip()
        self.assertEqual(3, len(self.info(folder / "A.mxf", folder / "A00.mxf", folder)["files"]))

    def test_other_files_do_not_disturb(self):
        folder = self.make_clip()
        (folder / "notes.txt").write_text("MXF")
        (folder / "sub.mxf").mkdir()
        (folder / "A00.mxf").rename(folder / "Z.MXF")
        self.assertEqual(3, len(self.info(folder)["files"]))

    def test_members_are_found_from_within_the_folder(self):
        folder = self.make_clip()
        for path in ("A01.mxf", "."):
            out = self.run_kmxf("info", path, cwd=folder).stdout.decode()
            self.assertTrue(out.startswith("clip of 3 files\n"), out)

    def test_text(self):
        folder = self.make_clip()
        text = self.kmxf("info", folder).decode()
        self.assertEqual(["clip of 3 files"] + [f"{folder}/{name}: closed" for name in files_in(folder)],
                         [line for line in text.splitlines() if not line.startswith(" ")])
        self.assertRegex(text, r"\n  codec +dv25\n")
        self.assertNotIn("disagree", text)

    def test_what_cannot_be_named(self):
        (self.folder / "empty").mkdir()
        os.mkfifo(self.folder / "pipe")
        for name, says in [("empty", "empty: holds no MXF files"), ("nowhere", "nowhere: cannot be opened: No such"),
                           ("pipe", "pipe: is not a file")]:
            for command in (["info"], ["info", "--only"]):
                self.refused(INPUT, says, *command, self.folder / name)


class Disagreements(ClipCase):
    def test_are_shown_and_are_findings(self):
        folder = self.make_clip()
        self.patch(folder / "A00.mxf", "A".encode("utf-16-be") + bytes(20), "Q".encode("utf-16-be") + bytes(20))
        document = self.info(folder, status=FINDINGS)
        (found,) = document["disagreements"]
        self.assertEqual("package_name", found["key"])
        self.assertEqual([("A.mxf", "A"), ("A00.mxf", "Q"), ("A01.mxf", "A")],
                         [(os.path.basename(each["path"]), each["value"]) for each in found["values"]])
        self.assertNotIn("package_name", document["clip"])
        text = self.kmxf("info", folder, status=FINDINGS).decode()
        self.assertIn("  the files disagree on package_name\n", text)
        self.assertIn(f"    {folder}/A00.mxf: Q\n", text)

    def test_files_of_two_recordings_with_one_umid(self):
        umid = "060A2B340101010501010F2013000000" + "00" * 15 + "01"
        self.wrap("--video", DV25, "--shot-umid", umid, "--creation-date", "2024-01-01", name="A")
        wav = self.wav("in.wav", [samples(1920 * 5)])
        self.wrap("--audio", wav, "--standard", "25p", "--shot-umid", umid, "--creation-date", "2024-01-02",
                  "--company", "Other", name="A")
        document = self.info(self.folder / "clip", status=FINDINGS)
        self.assertEqual({"creation_date", "start_timecode", "drop_frame", "frame_rate", "duration", "company"},
                         {each["key"] for each in document["disagreements"]})

    def test_a_file_that_is_not_whole_disagrees(self):
        folder = self.make_clip()
        with open(folder / "A01.mxf", "r+b") as file:
            file.truncate(32768 + 3204)
        document = self.info(folder, status=FINDINGS)
        self.assertEqual({"duration", "verdict"}, {each["key"] for each in document["disagreements"]})
        self.assertEqual("cut off at frame 1", document["files"][2]["verdict"])


class Tracks(ClipCase):
    def test_that_no_file_holds(self):
        folder = self.make_clip()
        (folder / "A01.mxf").unlink()
        document = self.info(folder)
        self.assertEqual([4], document["missing_tracks"])
        self.assertNotIn("double_tracks", document)
        (folder / "A.mxf").unlink()
        self.assertEqual([2, 4], self.info(folder)["missing_tracks"])
        text = self.kmxf("info", folder).decode()
        self.assertIn("\n  no file holds tracks 2, 4\n", text)
        self.assertNotIn("several files hold", text)

    def test_that_several_files_hold(self):
        folder = self.make_clip()
        (folder / "B.mxf").write_bytes((folder / "A00.mxf").read_bytes())
        document = self.info(folder)
        self.assertEqual([3], document["double_tracks"])
        self.assertNotIn("missing_tracks", document)
        self.assertIn("\n  several files hold track 3\n", self.kmxf("info", folder).decode())

    def test_of_other_files_are_not_missed_when_only_one_is_asked_for(self):
        folder = self.make_clip()
        for name in ("A.mxf", "A01.mxf"):
            path = folder / name
            self.assertNotIn("missing_tracks", self.info("--only", path))
            self.assertNotIn("no file holds", self.kmxf("info", "--only", path).decode())

    def test_of_a_whole_clip_are_not_told(self):
        document = self.info(self.make_clip())
        self.assertFalse({"missing_tracks", "double_tracks"} & document.keys())


class CutOff(ClipCase):
    def test_files_without_a_umid_belong_together_by_name(self):
        folder = self.make_clip()
        umid = self.info(folder)["clip"]["material_umid"]
        for file in folder.iterdir():
            content = bytearray(file.read_bytes().replace(bytes.fromhex(umid), bytes(32)))
            content[44:52] = bytes(8)  # FooterPartition: none named
            file.write_bytes(bytes(content))
        for named in (folder, folder / "A.mxf", folder / "A01.mxf"):
            document = self.info(named, status=FINDINGS)
            self.assertEqual(["A.mxf", "A00.mxf", "A01.mxf"],
                             [os.path.basename(each["path"]) for each in document["files"]])
            self.assertIs(True, document["clip"]["together_by_name"])
        self.assertNotIn("together_by_name", self.info("--only", folder / "A.mxf", status=FINDINGS)["clip"])


class Costs(ClipCase):
    def test_three_reads_and_64_kibibytes_a_file_at_most(self):
        for video in (DV25, ESSENCE / "avci50-720-5994p-header.raw"):
            folder = self.folder / video.name
            self.wrap("--video", video, "--audio", self.wav("in.wav", [samples(24000)] * 2), folder=folder, says="cut")
            for paths, files in [([folder], 3), ([folder / "CLIP.mxf"], 3), (["--only", folder / "CLIP.mxf"], 1)]:
                result = self.run_kmxf("info", "--stats", *paths)
                self.assertRegex(result.stderr, r"\Aread [0-9 ]+ bytes in [0-9 ]+ reads, wrote 0 bytes in 0 writes, "
                                                r"[0-9.]+ s\n\Z")
                size, reads = (int(text.replace(" ", "")) for text in
                               (result.stderr.split(" bytes in ")[0][5:],
                                result.stderr.split(" bytes in ")[1].split(" reads")[0]))
                self.assertLessEqual(reads, 3 * files)
                self.assertLessEqual(size, 65536 * files)
                self.assertGreater(size, 32768 * files - 1)


class Growing(ClipCase):
    def test_a_file_whose_header_is_open_and_that_grows(self):
        folder = self.make_clip()
        content = bytearray((folder / "A.mxf").read_bytes())
        content[44:52] = bytes(8)  # FooterPartition: none named
        content[32768 - 7:32768] = bytes(7)  # length of the essence element
        file = self.file("growing.mxf", bytes(content[:32768 + 130000]))
        values = self.file_info(file, status=FINDINGS)
        self.assertEqual(("cut off at frame 1", 1, 120000), (values["verdict"], values["duration"], values["data_size"]))

        with growing(file):
            self.assertEqual("growing", self.file_info(file, status=FINDINGS)["verdict"])


if __name__ == "__main__":
    unittest.main()
