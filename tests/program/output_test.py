"""Outputs: complete under their final name or not there at all."""

import os
import resource
import subprocess
import sys
import unittest

from kmxf_case import (ESSENCE, OUTPUT, PROGRAM, USAGE, KmxfCase, essence, files_in, samples,
                       sparse_essence, sparse_wav)

DV25 = ESSENCE / "dv25-5994i.dif"
WHOLE = 32768 + 240000 + 224  # header area, two frames, footer


def at_most(size):
    """The child's files cannot grow beyond this, as on a full disk."""
    return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


class ExistingFiles(KmxfCase):
    def test_wrap_overwrites_only_by_force(self):
        file = self.file("clip/CLIP.mxf", b"precious")
        self.refused(OUTPUT, "CLIP.mxf: exists; --force overwrites it", "wrap", "--video", DV25, "-o", file.parent,
                     "--name", "CLIP")
        self.assertEqual(b"precious", file.read_bytes())
        self.assertEqual(["CLIP.mxf"], files_in(file.parent))
        self.wrap("--video", DV25, "--force")
        self.assertEqual(WHOLE, file.stat().st_size)

    def test_a_clip_is_written_whole_or_not_at_all(self):
        file = self.file("clip/CLIP01.mxf", b"precious")
        wav = self.wav("in.wav", [samples(3204)] * 3)
        self.refused(OUTPUT, "CLIP01.mxf: exists", "wrap", "--video", DV25, "--audio", wav, "-o", file.parent,
                     "--name", "CLIP")
        self.assertEqual(["CLIP01.mxf"], files_in(file.parent))
        self.assertEqual(b"precious", file.read_bytes())

    def test_unwrap_overwrites_only_by_force(self):
        mxf = self.wrap("--video", DV25)
        file = self.file("out/CLIP.dv", b"precious")
        self.refused(OUTPUT, "CLIP.dv: exists; --force overwrites it", "unwrap", mxf, "-o", file.parent)
        self.assertEqual((b"precious", ["CLIP.dv"]), (file.read_bytes(), files_in(file.parent)))
        self.kmxf("unwrap", mxf, "-o", file.parent, "--force")
        self.assertSameBytes(essence(DV25.name), file.read_bytes())

    def test_two_files_do_not_become_one(self):
        for folder in ("a", "b"):
            self.wrap("--video", DV25, folder=self.folder / folder)
        self.refused(USAGE, "another file is to become CLIP.dv as well", "unwrap", self.folder / "a" / "CLIP.mxf",
                     self.folder / "b" / "CLIP.mxf", "-o", self.folder / "out")
        self.assertEqual([], files_in(self.folder / "out"))

    def test_folders_are_made(self):
        self.wrap("--video", DV25, folder=self.folder / "a" / "b" / "c")
        self.assertEqual(["CLIP.mxf"], files_in(self.folder / "a" / "b" / "c"))

    def test_what_is_no_folder(self):
        file = self.file("file", b"x")
        for folder in (file, file / "below"):
            self.refused(OUTPUT, "file.*: cannot be made a folder", "wrap", "--video", DV25, "-o", folder, "--name", "A")
        self.assertEqual(b"x", file.read_bytes())

    def test_a_name_too_long(self):
        self.refused(OUTPUT, "File name too long", "wrap", "--video", DV25, "-o", self.folder / "out", "--name",
                     "n" * 300)
        self.assertEqual([], files_in(self.folder / "out"))

    def test_a_long_path(self):
        folder = self.folder.joinpath(*["d" * 100] * 5)
        file = self.wrap("--video", DV25, folder=folder)
        self.assertSameBytes(essence(DV25.name), self.unwrap(file)["CLIP.dv"])


class FullDisk(KmxfCase):
    def check(self, size, *arguments, says="File too large"):
        folder = self.folder / f"at{size}"
        self.refused(OUTPUT, f"/CLIP[0-9]*\\.[a-z0-9]+: .*{says}", *arguments, "-o", folder, preexec_fn=at_most(size))
        self.assertEqual([], files_in(folder))

    def test_wrap_fails_at_every_stage(self):
        for stage, size in [("header", 0), ("within the header", 100), ("essence", 32768), ("within a frame", 100000),
                            ("footer", WHOLE - 224), ("end of the footer", WHOLE - 1)]:
            for options in ([], ["--no-header-rewrite"]):
                with self.subTest(stage, options=options):
                    self.check(size, "wrap", "--video", DV25, "--name", "CLIP", "--force", *options)
        self.wrap("--video", DV25, preexec_fn=at_most(WHOLE))

    def test_wrap_of_long_essence(self):
        video = self.file("long", essence(DV25.name) * 60)
        self.check(9000000, "wrap", "--video", video, "--name", "CLIP")

    def test_sound_fails_and_takes_the_picture_with_it(self):
        wav = self.wav("in.wav", [samples(48000), samples(48000)])
        video = self.file("long", essence(DV25.name))
        self.wrap("--video", video, "--audio", self.wav("fits.wav", [samples(3204)]), preexec_fn=at_most(WHOLE))
        self.check(60000, "wrap", "--audio", wav, "--standard", "50i", "--name", "CLIP")

    def test_unwrap_fails(self):
        wav = self.wav("in.wav", [samples(48000)])
        file = self.wrap("--video", DV25)
        self.check(100000, "unwrap", file)
        self.wrap("--audio", wav, "--standard", "50i", name="CLIP", folder=self.folder / "sound")
        for options in ([], ["--raw"]):
            self.check(20000, "unwrap", self.folder / "sound", *options, says="")

    def test_a_small_file_system(self):
        mount = self.folder / "small"
        mount.mkdir()
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=128k", "tmpfs", str(mount)], capture_output=True,
                          check=False).returncode != 0:
            self.skipTest("needs the right to mount")
        self.addCleanup(subprocess.run, ["umount", str(mount)], check=True)
        self.refused(OUTPUT, "CLIP.mxf: cannot be written: No space left on device", "wrap", "--video", DV25, "-o",
                     mount, "--name", "CLIP")
        self.assertEqual([], files_in(mount))
        mxf = self.wrap("--video", DV25)
        self.refused(OUTPUT, "CLIP.dv: cannot be written: No space left on device", "unwrap", mxf, "-o", mount)
        self.assertEqual([], files_in(mount))

    def test_standard_output_that_takes_nothing(self):
        mxf = self.wrap("--video", DV25)
        wav = self.wav("in.wav", [samples(2000)])
        self.wrap("--audio", wav, "--standard", "25p", folder=self.folder / "sound")
        for arguments in (["unwrap", mxf, "-o", "-"], ["unwrap", self.folder / "sound", "-o", "-"], ["info", mxf],
                          ["info", "--json", mxf], ["frames", mxf]):
            with self.subTest(arguments), open("/dev/full", "wb") as full:
                self.kmxf(*arguments, status=OUTPUT, says="standard output: cannot be written: No space", stdout=full)

    def test_standard_output_that_took_only_the_end(self):
        video = self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(3204)] * 8))
        with open("/dev/full", "wb") as full:
            self.kmxf("info", "--json", video, status=OUTPUT, says="standard output: cannot be written", stdout=full)

    def test_a_reader_that_went_away(self):
        mxf = self.wrap("--video", self.file("long", essence(DV25.name) * 4))
        read, write = os.pipe()
        os.close(read)
        with os.fdopen(write, "wb") as pipe:
            self.kmxf("unwrap", mxf, "-o", "-", status=OUTPUT, says="standard output: .*Broken pipe", stdout=pipe)


class Memory(KmxfCase):
    def peak(self, *arguments):
        """Most memory the program ever held, in KiB."""
        # From a small process: what its parent holds counts as held by a child, too.
        watch = ("import os, sys; _, status, usage = os.wait4(os.spawnv(os.P_NOWAIT, sys.argv[1], sys.argv[1:]), 0);"
                 "print(status, usage.ru_maxrss, file=sys.stderr)")
        result = subprocess.run([sys.executable, "-S", "-E", "-c", watch, PROGRAM, *map(str, arguments)],
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=True)
        status, peak = map(int, result.stderr.split())
        self.assertEqual(0, status, arguments)
        return peak

    def test_does_not_grow_with_the_essence(self):
        if self.peak("--version") > 32 << 10:
            self.skipTest("a sanitized program has memory of its own")
        video = sparse_essence(self.folder / "video", 1000)
        wav = sparse_wav(self.folder / "in.wav", b"", channels=8, samples_each=1601600)
        wrap = ["wrap", "--video", video, "--audio", wav, "-o", self.folder / "clip", "--name", "A"]
        for arguments in (wrap, ["unwrap", self.folder / "clip", "-o", self.folder / "out"],
                          ["unwrap", "--raw", self.folder / "clip" / "A.mxf", "--only", "-o", "-"],
                          ["info", self.folder / "clip"], ["frames", self.folder / "clip" / "A.mxf"]):
            self.assertLessEqual(self.peak(*arguments), 64 << 10, arguments)


class WorkFiles(KmxfCase):
    def test_none_is_left_and_none_is_taken_for_a_file_of_the_clip(self):
        file = self.wrap("--video", DV25)
        self.assertEqual(["CLIP.mxf"], files_in(file.parent))
        (file.parent / ".CLIP00.mxf.part1").write_bytes(b"rubbish")
        self.assertEqual(1, len(self.info(file.parent)["files"]))

    def test_a_file_does_not_overwrite_itself(self):
        file = self.wrap("--video", DV25)
        source = file.rename(file.with_name("CLIP.dv"))
        before = source.read_bytes()
        self.refused(USAGE, "CLIP.dv: is a file to be unwrapped itself", "unwrap", "--only", source, "-o", source.parent,
                     "--force")
        self.assertSameBytes(before, source.read_bytes())

    def test_a_folder_in_the_way(self):
        (self.folder / "clip" / "CLIP.mxf").mkdir(parents=True)
        self.refused(OUTPUT, "CLIP.mxf: is a folder", "wrap", "--force", "--video", DV25, "-o", self.folder / "clip",
                     "--name", "CLIP")

    def test_relative_names(self):
        subprocess.run([PROGRAM, "wrap", "--video", str(DV25), "-o", ".", "--name", "HERE"], cwd=self.folder, check=True)
        self.assertEqual(["HERE.mxf"], files_in(self.folder))
        self.assertIn(b"HERE.mxf: closed",
                      subprocess.run([PROGRAM, "info", "HERE.mxf"], cwd=self.folder, check=True,
                                     capture_output=True).stdout)


if __name__ == "__main__":
    unittest.main()
