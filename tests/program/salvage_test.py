"""kmxf salvage: recordings that were cut off, and whose writer was killed."""

import json
import os
import random
import signal
import stat
import subprocess
import time
import unittest
from pathlib import Path

from kmxf_case import DONE, FINDINGS, INPUT, INTERRUPTED, OUTPUT, PROGRAM, USAGE, essence, samples
from op1b_case import GROUP, HEADER, Op1bCase, aligned, access_unit, group_starts, long_gop, partitions, samples_before

ATOM_HEADER = 32768
DV25 = 120000


def repeated(name, size, count):
    """Frames of bundled essence, again and again."""
    stream = essence(name)
    all_frames = [stream[at:at + size] for at in range(0, len(stream), size)]
    return [all_frames[number % len(all_frames)] for number in range(count)]


def cut(path, size, footer_gone=True):
    """Ends a file here. A recording that goes on does not name its footer yet."""
    with open(path, "r+b") as file:
        file.truncate(size)
        if footer_gone and size >= 52:
            file.seek(44)
            file.write(bytes(8))
    return path


def zeros(path, offset, size):
    """Writes over what is there."""
    with open(path, "r+b") as file:
        file.seek(offset)
        file.write(bytes(size))
    return path


class SalvageCase(Op1bCase):
    def salvage(self, *arguments, status=FINDINGS, says=None):
        return self.json("salvage", *arguments, status=status, says=says)["salvage"]

    def assertBalanced(self, clip):
        """Every byte of a file is in one of the three sums."""
        for file in clip["files"]:
            self.assertEqual(file["file_size"], file["kept_size"] + file["lost_size"] + file["rebuilt_size"], file)
            self.assertEqual(file["lost_size"], sum(loss["size"] for loss in file["losses"]), file)
        self.assertEqual([], clip["findings"])

    def assertProven(self, path):
        """It is closed, and what reads any MXF file reads this one."""
        self.assertEqual("closed", self.file_info(path)["verdict"])
        probed = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_type", "-of", "csv=p=0",
                                 str(path)], capture_output=True, timeout=60)
        self.assertEqual(0, probed.returncode, probed.stderr)
        self.assertTrue(probed.stdout)

    def dv_clip(self, *options, frames=6, channels=2, **how):
        self.pictures = repeated("dv25-5994i.dif", DV25, frames)
        video = self.file("in.dv", b"".join(self.pictures))
        self.sound = [samples(samples_before(frames), seed=seed) for seed in range(1, channels + 1)]
        if channels:
            options = ("--audio", self.wav("in.wav", self.sound), *options)
        return self.wrap("--video", video, *options, **how)


class CutFilesTest(SalvageCase):
    def test_a_cut_clip_comes_out_whole_in_a_new_folder(self):
        video = self.dv_clip(frames=6)
        before = {path.name: path.read_bytes() for path in video.parent.iterdir()}
        umid = self.file_info(video)["material_umid"]
        cut(video, ATOM_HEADER + 3 * DV25 + 777)
        cut(video.parent / "CLIP00.mxf", ATOM_HEADER + 2 * samples_before(5))
        cut(video.parent / "CLIP01.mxf", ATOM_HEADER + 2 * samples_before(2) + 1)
        inputs = {path.name: path.read_bytes() for path in video.parent.iterdir()}

        clip = self.salvage(video)
        self.assertBalanced(clip)
        self.assertEqual(3, clip["duration"])
        self.assertEqual(umid, clip["material_umid"])
        self.assertEqual([("salvaged", 3, 777, 0), ("salvaged", 3, 2 * (samples_before(5) - samples_before(3)), 0),
                          ("salvaged", 2, 1, 2 * (samples_before(3) - samples_before(2)))],
                         [(each["outcome"], each["frames_kept"], each["lost_size"], each["silence_size"])
                          for each in clip["files"]])
        self.assertEqual(inputs, {path.name: path.read_bytes() for path in video.parent.glob("*.mxf")}, "only read")

        folder = video.parent / "CLIP.salvaged"
        self.assertEqual(["CLIP.mxf", "CLIP00.mxf", "CLIP01.mxf"], sorted(path.name for path in folder.iterdir()))
        for path in folder.iterdir():
            self.assertProven(path)
            self.assertEqual(umid, self.file_info(path)["material_umid"])
        self.assertSameBytes(b"".join(self.pictures[:3]), (folder / "CLIP.mxf").read_bytes()[ATOM_HEADER:][:3 * DV25])
        want = 2 * samples_before(3)
        self.assertSameBytes(self.sound[0][:want], (folder / "CLIP00.mxf").read_bytes()[ATOM_HEADER:][:want])
        self.assertSameBytes(self.sound[1][:2 * samples_before(2)] + bytes(want - 2 * samples_before(2)),
                             (folder / "CLIP01.mxf").read_bytes()[ATOM_HEADER:][:want])
        self.assertEqual(len(before), 3)

        after = {path.name: path.read_bytes() for path in folder.iterdir()}
        again = self.salvage(folder / "CLIP.mxf", status=DONE)
        self.assertEqual("complete", again["outcome"])
        self.assertEqual(after, {path.name: path.read_bytes() for path in folder.iterdir()})
        self.assertFalse((folder / "CLIP.salvaged").exists())

    def test_in_place_mends_the_files_themselves(self):
        video = self.dv_clip(frames=4, channels=1)
        cut(video, ATOM_HEADER + 2 * DV25)
        cut(video.parent / "CLIP00.mxf", ATOM_HEADER + 2 * samples_before(2))
        clip = self.salvage(video, "--in-place", status=DONE)
        self.assertBalanced(clip)
        self.assertEqual(["CLIP.mxf", "CLIP00.mxf"], sorted(path.name for path in video.parent.iterdir()))
        self.assertProven(video)
        self.assertEqual(2, self.file_info(video)["duration"])

    def test_a_complete_clip_is_left_alone(self):
        video = self.dv_clip(frames=2, channels=1)
        before = {path.name: (path.read_bytes(), path.stat().st_mtime_ns) for path in video.parent.iterdir()}
        for options in ([], ["--in-place"], ["--dry-run"]):
            clip = self.salvage(video, *options, status=DONE)
            self.assertEqual("complete", clip["outcome"])
            self.assertEqual({"complete"}, {each["outcome"] for each in clip["files"]})
        self.assertEqual(before, {path.name: (path.read_bytes(), path.stat().st_mtime_ns)
                                  for path in video.parent.iterdir()})

    def test_a_footer_that_is_named_but_not_there_does_not_make_a_clip_complete(self):
        video = self.dv_clip(frames=3, channels=0)
        cut(video, ATOM_HEADER + 2 * DV25, footer_gone=False)
        clip = self.salvage(video, "--in-place", status=DONE)
        self.assertEqual(("salvaged", 2), (clip["outcome"], clip["duration"]))
        self.assertProven(video)

    def test_a_dry_run_writes_nothing(self):
        video = self.dv_clip(frames=3, channels=0)
        cut(video, ATOM_HEADER + 2 * DV25 + 5)
        before = video.read_bytes()
        self.assertEqual("planned", self.salvage(video, "--dry-run")["outcome"])
        self.assertEqual("planned", self.salvage(video, "--dry-run", "--in-place")["outcome"])
        self.assertEqual(before, video.read_bytes())
        self.assertEqual([video], list(video.parent.iterdir()))

    def test_a_header_that_is_gone_is_made_from_the_essence(self):
        for name, size, codec in (("dv25-5994i.dif", DV25, "dv25"), ("dv50-50i.dif", 288000, "dv50"),
                                  ("avci100-1080-5994i.raw", 472064, "avci100")):
            with self.subTest(name):
                pictures = repeated(name, size, 3)
                video = self.wrap("--video", self.file(f"{codec}.raw", b"".join(pictures)), "--standard",
                                  "50i" if "50i" in name else "59.94i", name=codec, folder=self.folder / codec)
                content = video.read_bytes()
                lead = 512 if codec.startswith("avci") else 0
                video.write_bytes(bytes(ATOM_HEADER) + content[ATOM_HEADER:ATOM_HEADER + lead + 2 * size + 9])
                clip = self.salvage(video, "--in-place")
                self.assertBalanced(clip)
                self.assertEqual("essence", clip["files"][0]["format_from"])
                self.assertTrue(clip["new_material_umid"])
                self.assertProven(video)
                self.assertEqual(codec, self.file_info(video)["codec"])
                self.assertSameBytes(b"".join(pictures[:2]), video.read_bytes()[ATOM_HEADER + lead:][:2 * size])

    def test_sound_without_a_header_is_known_by_its_siblings(self):
        video = self.dv_clip(frames=4, channels=2)
        second = video.parent / "CLIP01.mxf"
        second.write_bytes(bytes(ATOM_HEADER) + second.read_bytes()[ATOM_HEADER:ATOM_HEADER + 2 * samples_before(3)])
        cut(video, ATOM_HEADER + 3 * DV25)
        cut(video.parent / "CLIP00.mxf", ATOM_HEADER + 2 * samples_before(4))
        clip = self.salvage(video, "--in-place")
        self.assertBalanced(clip)
        self.assertEqual("siblings", clip["files"][2]["format_from"])
        self.assertEqual(3, self.file_info(second)["duration"])

    def test_parameter_sets_that_are_gone_are_rebuilt_and_not_kept(self):
        content = essence("avci100-1080-5994i.raw")[:472064] * 2
        video = self.wrap("--video", self.file("in.raw", content), "--standard", "59.94i")
        whole = cut(video, ATOM_HEADER + 512 + 2 * 472064).read_bytes()
        video.write_bytes(whole[:ATOM_HEADER] + bytes(512) + whole[ATOM_HEADER + 512:])
        clip = self.salvage(video, "--in-place", status=DONE)
        self.assertBalanced(clip)
        (file,) = clip["files"]
        self.assertEqual((2 * 472064, ["the header area", "the footer", "the parameter sets"]),
                         (file["kept_size"], file["rebuilt"]))
        self.assertSameBytes(whole[ATOM_HEADER:], video.read_bytes()[ATOM_HEADER:][:512 + 2 * 472064])
        self.assertProven(video)

    def test_zeros_at_the_end_are_no_frames_unless_they_are_trusted(self):
        video = self.dv_clip(frames=3, channels=0)
        content = bytearray(cut(video, ATOM_HEADER + 3 * DV25).read_bytes())
        content[ATOM_HEADER + 2 * DV25 + 8000:] = bytes(DV25 - 8000)
        video.write_bytes(content)
        clip = self.salvage(video, "--dry-run")
        self.assertEqual((2, DV25), (clip["duration"], clip["files"][0]["lost_size"]))
        clip = self.salvage(video, "--dry-run", "--trust-tail", status=DONE)
        self.assertEqual(3, clip["duration"])

    def test_a_bad_frame_in_the_middle_costs_none_behind_it(self):
        video = self.dv_clip(frames=4, channels=0)
        content = bytearray(cut(video, ATOM_HEADER + 4 * DV25).read_bytes())
        content[ATOM_HEADER + DV25 + 5000:][:4096] = bytes(4096)
        content[ATOM_HEADER + DV25 + 5000:ATOM_HEADER + DV25 + 9096] = bytes(4096)
        video.write_bytes(content)
        clip = self.salvage(video, "--in-place")
        self.assertBalanced(clip)
        self.assertEqual((4, 1), (clip["duration"], clip["files"][0]["frames_damaged"]))
        self.assertSameBytes(bytes(content[ATOM_HEADER:]), video.read_bytes()[ATOM_HEADER:][:4 * DV25])

    def test_nothing_to_keep_is_said(self):
        video = self.dv_clip(frames=2, channels=0)
        for size in (ATOM_HEADER + DV25 - 1, ATOM_HEADER, 30000, 600, 5, 0):
            cut(video, size)
            strange = f"^kmxf: {video}: neither its header nor its essence tells what it is .offset 0.$"
            clip = self.salvage(video, **({"status": INPUT, "says": strange} if size <= 600 else {}))
            self.assertEqual("given up", clip["outcome"], size)
            (file,) = clip["files"]
            self.assertEqual(size, file["kept_size"] + file["lost_size"] + file["rebuilt_size"])
            self.assertEqual(size, video.stat().st_size)

    def test_wrong_usage(self):
        video = self.dv_clip(frames=1, channels=0)
        self.refused(USAGE, "in-place", "salvage", video, "--in-place", "-o", self.folder / "out")
        self.refused(INPUT, "no such file", "salvage", self.folder / "none.mxf")
        self.refused(USAGE, "codec", "salvage", video, "--codec", "vhs")
        self.refused(USAGE, "^kmxf: --raster goes with --codec", "salvage", video, "--raster", "525")

    def test_an_input_is_no_place_for_its_copy(self):
        video = cut(self.dv_clip(frames=2, channels=0), ATOM_HEADER + DV25 + 5)
        before = video.read_bytes()
        self.refused(USAGE, f"^kmxf: {video}: is an input, which is only read without --in-place$",
                     "salvage", video, "-o", video.parent, "--force")
        self.assertEqual(before, video.read_bytes())

    def test_a_complete_file_is_left_alone_when_the_others_are_shorter(self):
        video = cut(self.dv_clip(frames=4, channels=1), ATOM_HEADER + 2 * DV25)
        sound = video.parent / "CLIP00.mxf"
        before = sound.read_bytes()
        clip = self.salvage(video, "--in-place")
        self.assertEqual([("salvaged", 2), ("complete", 4)],
                         [(each["outcome"], each["frames_kept"]) for each in clip["files"]])
        self.assertEqual(before, sound.read_bytes())

    def test_sound_is_known_by_the_options(self):
        video = self.dv_clip(frames=4, channels=1)
        (file,) = self.salvage(self.file("S00.mxf", bytes(ATOM_HEADER + 16000)), "--dry-run")["files"]
        self.assertEqual(("given up", file["file_size"]), (file["outcome"], file["lost_size"]), "its samples are not known")
        sound = self.file("Z.mxf", bytes(ATOM_HEADER) + (video.parent / "CLIP00.mxf").read_bytes()[ATOM_HEADER:])
        (file,) = self.salvage(sound, "--codec", "pcm16", "--standard", "59.94i", "--dry-run", status=DONE)["files"]
        self.assertEqual(("audio", "options", 4), (file["kind"], file["format_from"], file["frames_kept"]))

    def test_the_balance_sheet_in_words(self):
        video = self.dv_clip(frames=3, channels=0)
        cut(video, ATOM_HEADER + 2 * DV25 + 10)
        self.assertEqual(f"""clip of 1 file: can be salvaged, 2 frames
{video}: can be salvaged
  format   dv25 525 59.94i, from the header
  kept     2 of 3 frames, 0.07 s, 240 000 bytes
  lost     1 frame, 0.03 s, 10 bytes
  lost     10 bytes at offset 272768: a frame that was being written
  rebuilt  the header area, the footer
""", self.kmxf("salvage", video, "--dry-run", status=FINDINGS).decode())


class DamagedHeaderTest(SalvageCase):
    """OP-Atom: the picture and its sound belong together also when one header does not tell any more."""

    def clips(self, folder):
        """What came of the folder: the clips, and where they were put."""
        out = self.folder / "out"
        result = self.run_kmxf("salvage", folder, "-o", out, "--json")
        document = json.loads(result.stdout)
        self.assertDescribed(document)
        return document.get("salvages") or [document["salvage"]], out

    def names(self, clip):
        return [Path(file["path"]).name for file in clip["files"]]

    def test_zeros_in_the_header_of_the_picture_leave_one_clip(self):
        video = self.dv_clip(name="A")
        zeros(video, 4096, 4096)
        ((clip,), out) = self.clips(video.parent)
        self.assertEqual(["A.mxf", "A00.mxf", "A01.mxf"], sorted(path.name for path in out.iterdir()))
        self.assertEqual(["A.mxf", "A00.mxf", "A01.mxf"], self.names(clip))
        self.assertBalanced(clip)
        self.assertEqual(b"", self.kmxf("check", out))
        values = self.info(out)["clip"]
        self.assertEqual((2, 6, "closed"), (values["channels"], values["duration"], values["verdict"]))
        self.assertSameBytes(b"".join(self.pictures), (out / "A.mxf").read_bytes()[ATOM_HEADER:][:6 * DV25])

    def test_sound_stays_one_clip_when_nothing_is_left_of_the_picture(self):
        video = cut(self.dv_clip(name="A"), 5000, footer_gone=False)
        clips, _ = self.clips(video.parent)
        (sound,) = [self.names(clip) for clip in clips if "A00.mxf" in self.names(clip)]
        self.assertIn("A01.mxf", sound)

    def test_the_start_timecode_is_that_of_the_sound(self):
        video = self.dv_clip("--start-timecode", "01:02:03;04", name="A")
        zeros(video, 3072, 4096)
        _, out = self.clips(video.parent)
        for name in ("A.mxf", "A00.mxf"):
            file = self.file_info(out / name)
            self.assertEqual(("01:02:03;04", True), (file["start_timecode"], file["drop_frame"]), name)

    def test_a_damaged_head_of_the_essence_is_mended(self):
        # The head has 24 bytes; 30 hit the first frame as well.
        for size in (24, 30):
            with self.subTest(size):
                video = self.dv_clip(channels=0, folder=self.folder / f"clip{size}")
                zeros(video, ATOM_HEADER - 24, size)
                hit = size - 24
                ((clip,), out) = self.clips(video)
                self.assertEqual(("salvaged", 6), (clip["outcome"], clip["duration"]))
                self.assertBalanced(clip)
                self.assertEqual(b"", self.kmxf("check", out))
                (raw,) = self.unwrap(out / "CLIP.mxf", "--raw").values()
                self.assertSameBytes(bytes(hit) + b"".join(self.pictures)[hit:], raw)
                (out / "CLIP.mxf").unlink()


class SeveralInputsTest(SalvageCase):
    def test_a_name_that_is_taken_costs_no_other_clip(self):
        videos = []
        for name in "pqr":
            video = self.dv_clip(frames=2, channels=0, name="A", folder=self.folder / name)
            videos.append(cut(video, ATOM_HEADER + DV25 + 5))
        taken = self.file("q/A.salvaged/A.mxf", b"precious")
        document = self.json("salvage", *videos, status=OUTPUT, says=f"^kmxf: {taken}: exists")
        self.assertEqual([(str(videos[0]), "salvaged"), (str(videos[2]), "salvaged")],
                         [(clip["files"][0]["path"], clip["outcome"]) for clip in document["salvages"]])
        self.assertProven(self.folder / "p" / "A.salvaged" / "A.mxf")
        self.assertProven(self.folder / "r" / "A.salvaged" / "A.mxf")
        self.assertEqual([(taken, b"precious")], [(path, path.read_bytes()) for path in taken.parent.iterdir()])

    def test_a_pipe_is_no_file(self):
        pipe = self.folder / "p.mxf"
        os.mkfifo(pipe)
        self.refused(INPUT, f"^kmxf: {pipe}: is not a file", "salvage", pipe, timeout=10)

    def test_a_pipe_in_the_folder_is_not_touched(self):
        video = cut(self.dv_clip(frames=2, channels=0), ATOM_HEADER + DV25 + 5)
        pipe = video.parent / "x.mxf"
        os.mkfifo(pipe)
        end = os.open(pipe, os.O_RDWR | os.O_NONBLOCK)
        self.addCleanup(os.close, end)
        os.write(end, b"precious")
        self.run_kmxf("salvage", video.parent, timeout=10)
        self.assertProven(video.parent / "CLIP.salvaged" / "CLIP.mxf")
        self.assertEqual((True, b"precious"), (stat.S_ISFIFO(pipe.lstat().st_mode), os.read(end, 100)))


class CutClipTest(SalvageCase):
    """OP-1b"""

    def test_whole_frames_of_an_unfinished_group_without_sound_are_kept(self):
        video = self.wrap_op1b(GROUP + 9)
        whole = video.read_bytes()
        start = group_starts(whole)[1]
        place = whole.index(access_unit(GROUP + 5)[:64], start) + 40
        cut(video, place)
        clip = self.salvage(video, "--in-place")
        self.assertBalanced(clip)
        self.assertEqual(GROUP + 5, clip["files"][0]["frames_kept"])
        self.assertProven(video)
        (raw,) = self.unwrap(video, "--raw").values()
        kept = b"".join(aligned(access_unit(number)) for number in range(GROUP + 5))
        self.assertSameBytes(kept, raw[:len(kept)])
        self.assertLess(len(raw), len(kept) + 1000, "nothing but what is kept")
        again = video.read_bytes()
        self.assertEqual("complete", self.salvage(video, "--in-place", status=DONE)["outcome"])
        self.assertEqual(again, video.read_bytes())

    def test_a_group_without_its_sound_is_lost_and_one_with_a_part_of_it_is_kept_so_far(self):
        video = self.wrap_op1b(GROUP + 9, 2)
        whole = video.read_bytes()
        places = partitions(whole)
        second = group_starts(whole)[1]
        last_sound = [offset for offset, sid in places if sid == 4 and offset > second][0]
        first_sound = [offset for offset, sid in places if sid == 3 and offset > second][0]
        for size, kept in ((first_sound + 600, GROUP), (last_sound + self.sound_head(whole, last_sound) + 2 * 8008 + 10, GROUP + 5)):
            with self.subTest(size):
                video.write_bytes(whole)
                cut(video, size)
                clip = self.salvage(video, "--in-place")
                self.assertBalanced(clip)
                self.assertEqual(kept, clip["files"][0]["frames_kept"])
                self.assertProven(video)

    def sound_head(self, content, pack):
        """From the pack of a partition of sound to its samples: the pack has a length of 4 bytes, the element of 9."""
        return 20 + int.from_bytes(content[pack + 17:pack + 20], "big") + 16 + 8

    def test_a_clip_cut_behind_its_footer_pack_is_not_complete(self):
        video = self.wrap_op1b(GROUP + 9)
        whole = video.read_bytes()
        (file,) = self.salvage(video, "--dry-run", status=DONE)["files"]
        self.assertEqual(("complete", GROUP + 9), (file["outcome"], file["frames_kept"]))
        for size in (20, 300):
            video.write_bytes(whole[:-size])
            clip = self.salvage(video, "--in-place", status=DONE)
            self.assertEqual(("salvaged", GROUP + 9), (clip["outcome"], clip["duration"]))
            self.assertProven(video)

    def test_a_cut_anywhere_gives_a_clip_or_says_why_not(self):
        video = self.wrap_op1b(6)
        whole = video.read_bytes()
        seeded = random.Random(7)
        for size in [seeded.randrange(len(whole)) for _ in range(8)]:
            with self.subTest(size):
                video.write_bytes(whole)
                cut(video, size)
                clip = json.loads(self.run_kmxf("salvage", video, "--in-place", "--json").stdout)["salvage"]
                if clip["outcome"] == "salvaged":
                    self.assertBalanced(clip)
                    self.assertProven(video)


class DamagedClipTest(SalvageCase):
    """OP-1b: damage in the middle, and headers that are gone"""

    FRAMES = 2 * GROUP + 9

    def damaged_clip(self, place, size=4096, channels=2):
        """A clip whose footer nobody names, with zeros at a place."""
        video = self.wrap_op1b(self.FRAMES, channels)
        whole = video.read_bytes()
        cut(video, len(whole))
        with open(video, "r+b") as file:
            file.seek(place(whole))
            file.write(bytes(size))
        return video, whole

    def assertKept(self, video, whole, hit):
        """All frames in front of and behind those that were hit are as they were."""
        self.assertProven(video)
        (raw,) = [each for name, each in self.unwrap(video, "--raw").items() if Path(name).stem == "CLIP"]
        size = 0
        for number in range(self.FRAMES):
            unit = aligned(access_unit(number))
            if number not in hit:
                self.assertSameBytes(unit, raw[size:size + len(unit)], number)
            size += len(unit)

    def test_a_damaged_head_costs_no_frame_behind_it(self):
        video, whole = self.damaged_clip(lambda content: group_starts(content)[1] - 50, 300)
        clip = self.salvage(video, "--in-place")
        self.assertBalanced(clip)
        self.assertEqual((self.FRAMES, 0), (clip["files"][0]["frames_kept"], clip["files"][0]["lost_size"]))
        self.assertIn("damaged parts of 2 groups of frames", clip["files"][0]["rebuilt"])
        self.assertKept(video, whole, {GROUP})
        self.assertEqual("complete", self.salvage(video, "--in-place", status=DONE)["outcome"])

    def test_a_header_that_is_gone_is_made_of_what_the_pictures_tell(self):
        video, whole = self.damaged_clip(lambda content: 0, HEADER)
        clip = self.salvage(video, status=DONE)
        self.assertBalanced(clip)
        file = clip["files"][0]
        self.assertEqual(("essence", self.FRAMES, 0), (file["format_from"], file["frames_kept"], file["lost_size"]))
        self.assertTrue(clip["new_material_umid"])
        salvaged = video.parent / "CLIP.salvaged" / "CLIP.mxf"
        self.assertKept(salvaged, whole, set())
        self.assertSameBytes(whole[HEADER:group_starts(whole)[-1]], salvaged.read_bytes()[HEADER:group_starts(whole)[-1]])

    def test_a_group_that_is_gone_is_lost_alone_and_cannot_be_taken_out_in_place(self):
        video, whole = self.damaged_clip(lambda content: 0, 0)
        starts = group_starts(whole)
        with open(video, "r+b") as file:
            file.seek(starts[0])
            file.write(bytes(starts[1] - starts[0]))
        before = video.read_bytes()
        self.refused(USAGE, "without --in-place", "salvage", video, "--in-place")
        self.assertEqual(before, video.read_bytes())
        clip = self.salvage(video)
        self.assertBalanced(clip)
        self.assertEqual((self.FRAMES - GROUP, starts[1] - starts[0]),
                         (clip["files"][0]["frames_kept"], clip["files"][0]["lost_size"]))
        self.assertProven(video.parent / "CLIP.salvaged" / "CLIP.mxf")


class CostTest(SalvageCase):
    def test_what_the_library_reads_and_writes_is_counted(self):
        video = self.dv_clip(frames=60, channels=0)
        cut(video, ATOM_HEADER + 59 * DV25 + 5)
        line = self.run_kmxf("salvage", video, "--in-place", "--stats").stderr
        read, wrote = (int(line.split(word)[1].split(" bytes")[0].replace(" ", "")) for word in ("read ", "wrote "))
        self.assertGreater(read, 4 << 20, "the tail is looked at")
        self.assertLess(read, 3 * (4 << 20))
        self.assertGreaterEqual(wrote, ATOM_HEADER)
        self.assertLess(wrote, 2 * ATOM_HEADER)

    def test_several_files_that_are_cut_off_are_watched_together(self):
        video = self.dv_clip(frames=2, channels=8)
        for file in video.parent.glob("*.mxf"):
            cut(file, file.stat().st_size - 300)
        start = time.monotonic()
        self.run_kmxf("info", video)
        self.assertLess(time.monotonic() - start, 2.5, "not 0.4 s for each of 9")


class KilledWriterTest(SalvageCase):
    def kill_wrap(self, folder, feed, moment, *options):
        writer = subprocess.Popen([PROGRAM, "wrap", "--video", "-", *map(str, options), "-o", str(folder), "--name",
                                   "CLIP"], stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        end = None
        try:
            for piece in feed:
                if end is None and folder.exists() and any(folder.iterdir()):
                    end = time.monotonic() + moment
                writer.stdin.write(piece)
                writer.stdin.flush()
                if end is not None and time.monotonic() > end:
                    break
                time.sleep(0.01)
        except BrokenPipeError:
            pass
        writer.send_signal(signal.SIGKILL)
        writer.wait()
        writer.stdin.close()
        # They are still under the names that they have until they are complete.
        return sorted(folder.iterdir()) if folder.exists() else []

    def test_every_frame_that_was_written_comes_back(self):
        for number, moment in enumerate((0.05, 0.2, 0.45)):
            with self.subTest(moment):
                folder = self.folder / f"killed{number}"
                frames = repeated("dv25-5994i.dif", DV25, 400)
                sound = self.wav("in.wav", [samples(samples_before(400), seed=3)])
                files = self.kill_wrap(folder, frames, moment, "--audio", sound)
                video = next((path for path in files if path.name.startswith(".CLIP.mxf")), None)
                if video is None or video.stat().st_size < ATOM_HEADER + DV25:
                    continue
                listed = json.loads(self.run_kmxf("info", folder, "--json").stdout)
                self.assertIn(str(video), json.dumps(listed), "it is found under its working name")
                there = (video.stat().st_size - ATOM_HEADER) // DV25
                document = json.loads(self.run_kmxf("salvage", folder, "--json").stdout)["salvage"]
                self.assertBalanced(document)
                self.assertEqual(there, document["duration"])
                salvaged = folder / "CLIP.salvaged" / "CLIP.mxf"
                self.assertProven(salvaged)
                self.assertSameBytes(b"".join(frames[:there]), salvaged.read_bytes()[ATOM_HEADER:][:there * DV25])

    def test_a_killed_op_1b_clip_comes_back_up_to_its_last_whole_frame(self):
        folder = self.folder / "killed"
        files = self.kill_wrap(folder, (access_unit(i) for i in range(3000)), 0.5)
        if not files or files[0].stat().st_size <= HEADER:
            self.skipTest("nothing was written yet")
        document = json.loads(self.run_kmxf("salvage", files[0], "--in-place", "--json").stdout)["salvage"]
        if document["outcome"] == "salvaged":
            self.assertBalanced(document)
            self.assertProven(folder / "CLIP.mxf")
            self.assertFalse(files[0].exists(), "it has its final name")

    def test_what_was_killed_beside_a_complete_clip_is_a_clip_of_its_own(self):
        video = self.dv_clip(frames=4, channels=1)
        folder = video.parent
        whole = {path.name: path.read_bytes() for path in folder.iterdir()}
        for number, frames in ((11, 2), (12, 3)):
            for name, content in whole.items():
                (folder / f".{name}.part{number}").write_bytes(content)
            cut(folder / f".CLIP.mxf.part{number}", ATOM_HEADER + frames * DV25)
            cut(folder / f".CLIP00.mxf.part{number}", ATOM_HEADER + 2 * samples_before(frames))
        clips = self.json("salvage", folder, "--in-place", status=DONE)["salvages"]
        self.assertEqual([("salvaged", 2), ("salvaged", 3), ("complete", 4)],
                         sorted(((each["outcome"], each["duration"]) for each in clips), key=lambda each: each[1]))
        self.assertEqual(whole, {name: (folder / name).read_bytes() for name in whole})
        self.assertEqual(["CLIP-2.mxf", "CLIP-200.mxf", "CLIP-3.mxf", "CLIP-300.mxf", "CLIP.mxf", "CLIP00.mxf"],
                         sorted(path.name for path in folder.iterdir()))
        self.assertProven(folder / "CLIP-2.mxf")

    def test_an_interrupted_copy_leaves_nothing(self):
        video = self.dv_clip(frames=2, channels=0)
        cut(video, ATOM_HEADER + 2 * DV25)
        with open(video, "r+b") as file:
            file.truncate(ATOM_HEADER + 25000 * DV25)
        run = subprocess.Popen([PROGRAM, "salvage", str(video), "--trust-tail"], stderr=subprocess.PIPE,
                               stdout=subprocess.DEVNULL)
        folder = video.parent / "CLIP.salvaged"
        while run.poll() is None and not (folder.exists() and any(folder.iterdir())):
            time.sleep(0.01)
        run.send_signal(signal.SIGINT)
        self.assertEqual((b"kmxf: interrupted\n", INTERRUPTED), (run.communicate(timeout=60)[1], run.returncode))
        self.assertFalse(folder.exists(), "nor the folder")


if __name__ == "__main__":
    unittest.main()
