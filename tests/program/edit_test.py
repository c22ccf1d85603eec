"""kmxf edit: a clip's headers changed in place, all or none, and put back."""

import json
import os
import struct
import unittest
import zlib

from kmxf_case import ESSENCE, INPUT, OUTPUT, USAGE, KmxfCase, files_in, samples

UMID = "060A2B340101010501010F2013000000" + "00112233445566778899AABBCCDDEEFF"
OTHER = "060A2B340101010501010F2013000000" + "F0E0D0C0B0A090807060504030201000"
FILL = bytes.fromhex("060E2B34010101020301021001000000")
XML_FRAMEWORK = bytes.fromhex("060E2B34010101090E0E010111010100")


def bmp(width=80, height=45, seed=1):
    pixels = b"".join(struct.pack("<I", zlib.crc32(bytes([seed, at & 0xFF, at >> 8])))[:3] for at in range(width * height))
    return (b"BM" + struct.pack("<IHHI", 54 + len(pixels), 0, 0, 54) +
            struct.pack("<IiiHHIIiiII", 40, width, height, 1, 24, 0, len(pixels), 0, 0, 0, 0) + pixels)


def with_changes(content, changes, key="new"):
    content = bytearray(content)
    for change in changes:
        value = bytes.fromhex(change[key])
        assert len(value) == change["size"]
        content[change["offset"]:change["offset"] + change["size"]] = value
    return bytes(content)


class EditCase(KmxfCase):
    def op_atom(self, folder="clip"):
        wav = self.wav("in.wav", [samples(3204), samples(3204, seed=2)])
        return self.wrap("--video", ESSENCE / "dv25-5994i.dif", "--audio", wav, folder=self.folder / folder)

    def op_1b(self, *options, **how):
        return self.wrap("--pattern", "op-1b", "--video", ESSENCE / "longg25-1080-5994i.264", *options, **how)

    def contents(self, folder):
        return {path.name: path.read_bytes() for path in folder.iterdir()}

    def edit(self, *arguments, **how):
        """What edit tells: path -> changes."""
        return {entry["path"]: entry["changes"] for entry in self.json("edit", *arguments, **how)["edits"]}

    def edit_refused(self, status, says, path, *arguments, **how):
        """Nothing is written either."""
        folder = path if path.is_dir() else path.parent
        before = self.contents(folder)
        self.refused(status, says, "edit", path, *arguments, **how)
        self.assertEqual(before, self.contents(folder))

    def write_zeros(self, path, offset, size):
        content = path.read_bytes()
        path.write_bytes(content[:offset] + bytes(size) + content[offset + size:])

    def write_changes(self, path, changes, key="new"):
        path.write_bytes(with_changes(path.read_bytes(), changes, key))


class ShotUmid(EditCase):
    def test_all_files_of_a_clip_get_it_and_nothing_else_changes(self):
        video = self.op_atom()
        before = self.contents(video.parent)
        edits = self.edit(video.parent / "CLIP01.mxf", "--shot-umid", UMID)
        self.assertEqual(["CLIP.mxf", "CLIP00.mxf", "CLIP01.mxf"], sorted(map(os.path.basename, edits)))
        for path, changes in edits.items():
            content = before[os.path.basename(path)]
            with open(path, "rb") as file:
                self.assertSameBytes(with_changes(content, changes), file.read(), path)
            self.assertSameBytes(content, with_changes(with_changes(content, changes), changes, "old"), path)
            (change,) = changes
            self.assertTrue(UMID.endswith(change["new"]))
        document = self.info(video)
        self.assertEqual((UMID, "closed", 3), (document["clip"]["material_umid"], document["clip"]["verdict"],
                                               len(document["files"])))

    def test_an_op1b_clip(self):
        file = self.op_1b()
        before = file.read_bytes()
        ((path, changes),) = self.edit(file, "--shot-umid", UMID).items()
        self.assertSameBytes(with_changes(before, changes), file.read_bytes())
        self.assertEqual(UMID, self.file_info(file)["material_umid"])

    def test_only_the_file_named(self):
        video = self.op_atom()
        before = self.contents(video.parent)
        self.edit("--only", video, "--shot-umid", UMID)
        after = self.contents(video.parent)
        self.assertEqual(["CLIP.mxf", "CLIP.mxf.undo"], [name for name in sorted(after) if after[name] != before.get(name)])

    def test_success_prints_nothing(self):
        self.assertEqual(b"", self.kmxf("edit", self.op_atom(), "--shot-umid", UMID))

    def test_what_is_there_already_is_not_written(self):
        video = self.op_atom()
        umid = self.info(video)["clip"]["material_umid"]
        self.assertEqual([[], [], []], list(self.edit(video, "--shot-umid", umid).values()))
        self.assertEqual(["CLIP.mxf", "CLIP00.mxf", "CLIP01.mxf"], files_in(video.parent))

    def test_values_that_are_no_umid(self):
        video = self.op_atom()
        for value, says in [("12", "--shot-umid: is no UMID; 64 hexadecimal"), ("Z" * 64, "--shot-umid: is no UMID"),
                            ("0" * 64, "--shot-umid: is all zero")]:
            self.edit_refused(USAGE, says, video, "--shot-umid", value)


class DryRun(EditCase):
    def test_it_lists_what_the_edit_does_and_writes_nothing(self):
        video = self.op_atom()
        before = self.contents(video.parent)
        document = self.json("edit", video, "--shot-umid", UMID, "--dry-run")
        self.assertTrue(document["dry_run"])
        self.assertEqual(before, self.contents(video.parent))
        done = self.json("edit", video, "--shot-umid", UMID)
        self.assertFalse(done["dry_run"])
        self.assertEqual(document["edits"], done["edits"])

    def test_text(self):
        file = self.op_1b("--shot-umid", OTHER)
        text = self.kmxf("edit", file, "--shot-umid", UMID, "--dry-run").decode()
        self.assertRegex(text, r"\A.*/CLIP.mxf: offset \d+, 16 bytes: F0E0D0C0B0A090807060504030201000 -> "
                               r"00112233445566778899AABBCCDDEEFF\n\Z")
        xml = self.file("long.xml", b"<" * 100)
        text = self.kmxf("edit", file, "--xml", xml, "--dry-run").decode()
        self.assertRegex(text, r"\A.*/CLIP.mxf: offset \d+, \d+ bytes: [0-9A-F]{64}\.\.\. -> [0-9A-F]{64}\.\.\.\n\Z")


class SideData(EditCase):
    def test_xml_longer_shorter_and_as_long_as_can_be(self):
        file = self.op_1b("--xml", ESSENCE / "clip.xml")
        for size in (5000, 1, 65535):
            before = file.read_bytes()
            xml = bytes(ord("a") + at % 26 for at in range(size))
            ((_, changes),) = self.edit(file, "--xml", self.file("new.xml", xml)).items()
            after = file.read_bytes()
            self.assertSameBytes(with_changes(before, changes), after)
            for change in changes:
                self.assertTrue(0x8000 <= change["offset"] < change["offset"] + change["size"] <= 0x1C000)
            self.assertEqual((size, "closed"), tuple(self.file_info(file)[key] for key in ("xml_size", "verdict")))
            start = after.index(XML_FRAMEWORK)
            self.assertIn(xml + FILL, after[start:0x1C000])

    def test_a_thumbnail_and_its_frame(self):
        file = self.op_1b()
        for seed, position, expected in ((1, ["--thumbnail-position", 3], 3), (2, [], 3),
                                         (2, ["--thumbnail-position", 0], 0)):
            before = file.read_bytes()
            picture = bmp(seed=seed)
            ((_, changes),) = self.edit(file, "--thumbnail", self.file("new.bmp", picture), *position).items()
            after = file.read_bytes()
            self.assertSameBytes(with_changes(before, changes), after)
            self.assertIn(picture, after[0x1C000:0x20000])
            self.assertEqual(before[:0x1C000] + before[0x20000:], after[:0x1C000] + after[0x20000:])
            # EventStartPosition in the first segment of the thumbnail's group
            self.assertEqual(bytes.fromhex("06010008") + expected.to_bytes(8, "big"),
                             after[after.index(bytes.fromhex("06010008"), 0x1C000):][:12])
            self.assertEqual("closed", self.file_info(file)["verdict"])

    def test_all_at_once_in_both_layouts(self):
        for layout in ("players", "strict"):
            file = self.op_1b("--layout", layout, "--force")
            before = file.read_bytes()
            self.edit(file, "--shot-umid", UMID, "--xml", ESSENCE / "clip.xml", "--thumbnail",
                      self.file("new.bmp", bmp()), "--no-undo")
            self.assertEqual(["CLIP.mxf"], files_in(file.parent))
            info = self.file_info(file)
            self.assertEqual((UMID, 811, "closed"), (info["material_umid"], info["xml_size"], info["verdict"]))
            self.assertSameBytes(before[0x20000:], file.read_bytes()[0x20000:])

    def test_essence_plays_the_same(self):
        file = self.op_1b("--audio", ESSENCE / "tone-24bit-stereo.wav")
        before = self.unwrap(file)
        self.assertEqual(["CLIP.h264", "CLIP00.wav", "CLIP01.wav"], sorted(before))
        self.edit(file, "--shot-umid", UMID, "--xml", ESSENCE / "clip.xml", "--thumbnail",
                  self.file("new.bmp", bmp()))
        after = self.unwrap(file)
        self.assertEqual((bmp(), (ESSENCE / "clip.xml").read_bytes()), (after["CLIP.bmp"], after["CLIP.xml"]))
        for name, content in before.items():
            self.assertSameBytes(content, after[name], name)

    def test_what_does_not_fit(self):
        file = self.op_1b()
        long = self.file("long.xml", b"x" * 65536)
        self.edit_refused(USAGE, "--xml: .*long.xml is too long; up to 65535 bytes fit", file, "--xml", long)
        self.edit_refused(INPUT, "empty.xml: is empty", file, "--xml", self.file("empty.xml", b""))
        self.edit_refused(INPUT, "no.xml: cannot be read", file, "--xml", self.folder / "no.xml")
        self.edit_refused(INPUT, "no.bmp: is no BMP", file, "--thumbnail", self.file("no.bmp", b"x" * 10854))
        self.edit_refused(INPUT, "CLIP.mxf: has a thumbnail of 80 x 45 pixels; the new one has 160 x 90", file,
                          "--thumbnail", self.file("large.bmp", bmp(160, 90)))
        self.edit_refused(USAGE, "--thumbnail: has 10855 bytes; a bitmap of 80 x 45 pixels of 24 bits, which has 10854",
                          file, "--thumbnail", self.file("longer.bmp", bmp() + b"x"))
        frames = self.file_info(file)["duration"]
        self.edit_refused(USAGE, f"--thumbnail-position: the clip has {frames} frames", file, "--thumbnail",
                          self.file("new.bmp", bmp()), "--thumbnail-position", frames)

    def test_sets_of_other_writers_stay(self):
        file = self.op_1b()
        content = file.read_bytes()
        fill = content.index(FILL, content.index(XML_FRAMEWORK))
        dark = bytes.fromhex("060E2B34025301010E0E0E0E0E0E0E0E")
        file.write_bytes(content[:fill] + dark + content[fill + 16:])
        self.edit_refused(INPUT, "CLIP.mxf: has no room for 811 bytes of XML", file, "--xml", ESSENCE / "clip.xml",
                          "--shot-umid", UMID)

    def test_items_of_other_writers_stay(self):
        file = self.op_1b()
        content = file.read_bytes()
        for tag, option, new, where in (("A001", "--xml", ESSENCE / "clip.xml", "XMLFramework"),
                                        ("A011", "--thumbnail", self.file("new.bmp", bmp()), "ThumbnailFramework")):
            at = content.index(bytes.fromhex(tag + "0001"), 0x8000)
            file.write_bytes(content[:at] + bytes.fromhex("9999") + content[at + 2:])
            self.edit_refused(INPUT, f"CLIP.mxf: has an item 9999 in its {where} that is not known here and would be "
                                     rf"lost \(offset {at}\)$", file, option, new)

    def test_op_atom_files_have_no_room_for_them(self):
        video = self.op_atom()
        self.edit_refused(INPUT, "CLIP.mxf: has no room for XML", video, "--xml", ESSENCE / "clip.xml")
        self.edit_refused(INPUT, "CLIP.mxf: has no room for a thumbnail", video, "--shot-umid", UMID, "--thumbnail",
                          self.file("new.bmp", bmp()))


class Refusals(EditCase):
    def test_nothing_to_change(self):
        video = self.op_atom()
        self.edit_refused(USAGE, "nothing to change: give --shot-umid, --xml or --thumbnail, or --undo", video)
        self.edit_refused(USAGE, "excludes", video, "--undo", "--shot-umid", UMID)
        self.edit_refused(USAGE, "requires", video, "--thumbnail-position", 1)

    def test_files_that_are_not_closed(self):
        for file in (self.op_atom(), self.op_1b("--force")):
            content = file.read_bytes()
            file.write_bytes(content[:len(content) - 250000])
            self.edit_refused(INPUT, "CLIP.mxf: is cut off at frame \\d+; only closed files are edited", file,
                              "--shot-umid", UMID)

    def test_one_cut_off_sound_keeps_the_whole_clip_from_being_edited(self):
        video = self.op_atom()
        sound = video.parent / "CLIP01.mxf"
        sound.write_bytes(sound.read_bytes()[:-1000])
        self.edit_refused(INPUT, "CLIP01.mxf: is cut off at frame", video, "--shot-umid", UMID)

    def test_a_damaged_header_in_the_folder_keeps_all_of_its_files_from_being_edited(self):
        video = self.op_atom()
        self.write_zeros(video, 0, 4096)
        before = self.contents(video.parent)
        result = self.run_kmxf("edit", video.parent, "--shot-umid", UMID)
        self.assertEqual((INPUT, b""), (result.returncode, result.stdout))
        said = result.stderr.splitlines()
        self.assertEqual(2, len(said), said)
        self.assertRegex(said[0], f"^kmxf: {video}: is not an MXF file")
        self.assertRegex(said[1], f"^kmxf: {video.parent}: .*--only")
        self.assertEqual(before, self.contents(video.parent))
        self.edit("--only", video.parent / "CLIP00.mxf", "--shot-umid", UMID)
        after = self.contents(video.parent)
        self.assertEqual(["CLIP00.mxf", "CLIP00.mxf.undo"],
                         [name for name in sorted(after) if after[name] != before.get(name)])

    def test_damaged_files(self):
        video = self.op_atom()
        content = bytearray(video.read_bytes())
        content[124] ^= 0xFF  # the key of the primer pack
        video.write_bytes(content)
        self.edit_refused(INPUT, "CLIP.mxf: is damaged at offset \\d+; only closed", video, "--only", "--shot-umid", UMID)

    def test_a_folder_of_several_clips(self):
        folder = self.op_atom().parent
        self.wrap("--video", ESSENCE / "dv25-5994i.dif", name="B")
        self.edit_refused(USAGE, "holds several clips; name a file of the one to edit", folder, "--shot-umid", UMID)
        self.edit(folder / "B.mxf", "--shot-umid", UMID)
        self.edit(folder / "CLIP.mxf", "--shot-umid", OTHER)
        self.edit_refused(USAGE, "holds several edited clips; name a file of the one to put back", folder, "--undo")

    def test_what_is_no_mxf(self):
        self.refused(INPUT, "nothing.mxf: cannot be opened", "edit", self.folder / "nothing.mxf", "--shot-umid", UMID)
        self.refused(INPUT, "is not an MXF file", "edit", self.file("x.mxf", b"x" * 100), "--shot-umid", UMID)


class Undo(EditCase):
    def test_it_puts_a_clip_back_from_any_of_its_files(self):
        for name in ("CLIP.mxf", "CLIP01.mxf", ""):
            video = self.op_atom(f"clip{name}")
            before = self.contents(video.parent)
            self.edit(video, "--shot-umid", UMID)
            self.assertEqual({f"{each}.undo" for each in before} | set(before), set(files_in(video.parent)))
            self.assertTrue(all(self.edit(video.parent / name, "--undo", "--dry-run").values()))
            self.assertEqual(b"", self.kmxf("edit", video.parent / name, "--undo"))
            self.assertEqual(before, self.contents(video.parent))

    def test_after_several_edits_it_goes_back_before_the_first(self):
        file = self.op_1b()
        before = self.contents(file.parent)
        for arguments in (["--shot-umid", UMID], ["--xml", ESSENCE / "clip.xml"], ["--shot-umid", OTHER],
                          ["--xml", self.file("x.xml", b"x")]):
            self.edit(file, *arguments)
        self.edit(file, "--undo")
        self.assertEqual(before, self.contents(file.parent))

    def test_there_is_none(self):
        video = self.op_atom()
        self.edit_refused(INPUT, "CLIP.mxf: has no undo file", video, "--undo")
        self.edit_refused(INPUT, "clip: has no undo file", video.parent, "--undo")
        self.edit(video, "--shot-umid", UMID, "--no-undo")
        self.edit_refused(INPUT, "CLIP.mxf: has no undo file", video, "--undo")

    def test_a_clip_of_which_one_undo_file_is_gone_is_only_put_back_file_by_file(self):
        video = self.op_atom()
        before = self.contents(video.parent)
        self.edit(video, "--shot-umid", UMID)
        (video.parent / "CLIP00.mxf.undo").unlink()
        edited = self.contents(video.parent)
        for path in (video.parent, video, video.parent / "CLIP01.mxf"):
            self.edit_refused(INPUT, "CLIP00.mxf.*--only", path, "--undo")
        self.edit(video, "--undo", "--only")
        edited.pop("CLIP.mxf.undo")
        self.assertEqual({**edited, "CLIP.mxf": before["CLIP.mxf"]}, self.contents(video.parent))

    def test_an_edit_without_undo_does_not_break_an_earlier_one(self):
        video = self.op_atom()
        self.edit(video, "--shot-umid", UMID)
        self.edit_refused(INPUT, "CLIP.mxf.undo: leads back before an earlier edit", video, "--shot-umid", OTHER,
                          "--no-undo")

    def test_an_edit_that_was_broken_off_anywhere_is_put_back(self):
        video = self.op_atom()
        folder = video.parent
        before = self.contents(folder)
        edits = self.edit(video, "--shot-umid", UMID)
        after = self.contents(folder)
        paths = sorted(edits)
        for done in range(len(paths) + 1):
            for part in (0, 7):  # bytes of the next change
                for name, content in after.items():
                    (folder / name).write_bytes(content)
                for at, path in enumerate(paths):
                    (change,) = edits[path]
                    keep = change["size"] if at < done else part if at == done else 0
                    content = bytearray(before[os.path.basename(path)])
                    content[change["offset"]:change["offset"] + keep] = bytes.fromhex(change["new"])[:keep]
                    (folder / os.path.basename(path)).write_bytes(content)
                if done < len(paths):
                    self.edit_refused(INPUT, "was not edited to the end, or was changed since; --undo puts it back",
                                      folder / "CLIP01.mxf", "--shot-umid", OTHER)
                for start in ("CLIP.mxf", "CLIP01.mxf"):
                    with self.subTest(done=done, part=part, start=start):
                        for name, content in after.items():
                            if name.endswith(".undo"):
                                (folder / name).write_bytes(content)
                        self.kmxf("edit", folder / start, "--undo")
                        self.assertEqual(before, self.contents(folder))

    def test_an_undo_that_was_broken_off_is_finished(self):
        video = self.op_atom()
        before = self.contents(video.parent)
        self.edit(video, "--shot-umid", UMID)
        video.write_bytes(before["CLIP.mxf"])
        self.kmxf("edit", video.parent / "CLIP00.mxf", "--undo")
        self.assertEqual(before, self.contents(video.parent))

    def test_a_header_that_cannot_be_read_any_more_is_put_back(self):
        file = self.op_1b()
        before = self.contents(file.parent)
        ((_, changes),) = self.edit(file, "--xml", ESSENCE / "clip.xml").items()
        content = bytearray(file.read_bytes())
        for change in changes:
            content[change["offset"]:change["offset"] + change["size"]] = b"\xFF" * change["size"]
        file.write_bytes(content)
        self.kmxf("edit", file, "--undo")
        self.assertEqual(before, self.contents(file.parent))

    def test_files_that_were_changed_by_others_stay(self):
        video = self.op_atom()
        self.edit(video, "--shot-umid", UMID)
        sound = video.parent / "CLIP01.mxf"
        content = sound.read_bytes()
        for other in (content + b"x", content[:100] + b"x" + content[101:]):
            sound.write_bytes(other)
            self.edit_refused(INPUT, "CLIP01.mxf: was changed by others since, or its undo file is damaged", video, "--undo")
        sound.unlink()
        self.edit_refused(INPUT, "CLIP01.mxf: cannot be opened", video, "--undo")

    def test_undo_files_that_are_none(self):
        video = self.op_atom()
        self.edit("--only", video, "--shot-umid", UMID)
        undo = video.parent / "CLIP.mxf.undo"
        content = undo.read_text()
        document = json.loads(content)
        says = "CLIP.mxf.undo: is not the undo file of an edit, or is damaged"
        for broken in ("", "precious", "[]", "{}", content[:-3], content.replace("kmxf/1", "kmxf/9"),
                       json.dumps({**document, "clip": ["../CLIP.mxf"]}), json.dumps({**document, "file_size": "x"}),
                       json.dumps({**document, "file_size": 1e300}), json.dumps({**document, "file_size": -1}),
                       json.dumps({**document, "changes": [{"offset": 0, "old": "XY"}]}),
                       json.dumps({**document, "changes": [{"offset": -1.5}]})):
            undo.write_text(broken)
            self.edit_refused(INPUT, says, video, "--undo")
            self.edit_refused(INPUT, says, video, "--shot-umid", OTHER)
        for damaged in ({**document, "changes": [{"offset": 2 ** 63, "old": "00"}]}, {**document, "changes": []},
                        {**document, "changes": [{"offset": 2 ** 17 - 1, "old": "0000"}]},
                        {**document, "before": "0" * 16}, {**document, "file_size": 5}):
            undo.write_text(json.dumps(damaged))
            self.edit_refused(INPUT, "its undo file is damaged", video, "--undo")

    def test_a_link_of_that_name_is_not_followed(self):
        video = self.op_atom()
        os.symlink("/nowhere", str(video) + ".undo")
        self.refused(INPUT, "CLIP.mxf.undo: cannot be opened", "edit", video, "--shot-umid", UMID)


class Failures(EditCase):
    def test_without_room_for_an_undo_file_nothing_is_edited(self):
        video = self.op_atom()
        long = video.rename(video.parent / ("n" * 250 + ".mxf"))
        self.edit_refused(OUTPUT, "n.mxf.undo: cannot be created: File name too long", long, "--shot-umid", UMID)
        (video.parent / "CLIP01.mxf.undo").mkdir()
        self.refused(INPUT, "CLIP01.mxf.undo: is not a file", "edit", long, "--shot-umid", UMID)
        self.assertEqual({}, {name: 1 for name in files_in(video.parent) if name.endswith(".undo") and name[0] == "n"})


if __name__ == "__main__":
    unittest.main()
