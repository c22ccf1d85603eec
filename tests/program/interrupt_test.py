"""Ctrl-C: a recording from a pipe is closed properly, anything else leaves nothing behind; a recording under way grows."""

import fcntl
import signal
import struct
import subprocess
import termios
import time
import unittest

from kmxf_case import (FINDINGS, INTERRUPTED, PROGRAM, KmxfCase, essence, files_in, frames, samples,
                       sparse_essence, sparse_wav)

FRAME = 120000
PATIENCE = 60  # seconds


def wait_for(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain")
        time.sleep(0.005)


def unread(pipe):
    return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)))[0]


class Recording:
    """A wrap from a pipe, under way."""

    def __init__(self, case, *options):
        self.folder = case.folder / "live"
        self.process = subprocess.Popen(
            [PROGRAM, "wrap", "--video", "-", "-o", str(self.folder), "--name", "LIVE", *map(str, options)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        case.addCleanup(self.kill)

    def feed(self, content):
        """Until the program has taken all of it."""
        self.process.stdin.write(content)
        self.process.stdin.flush()
        wait_for(lambda: unread(self.process.stdin) == 0)
        time.sleep(0.05)  # the program waits for more now

    def work_file(self):
        return next(self.folder.glob(".LIVE.mxf.part*"))

    def interrupt(self):
        self.process.send_signal(signal.SIGINT)
        self.process.wait(PATIENCE)
        return self.process.returncode, self.process.stdout.read(), self.process.stderr.read().decode()

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout, self.process.stderr):
            try:
                pipe.close()
            except BrokenPipeError:
                pass


class FromAPipe(KmxfCase):
    def check(self, fed, whole, *options, says=r"\A\Z"):
        recording = Recording(self, *options)
        recording.feed(fed)
        status, out, error = recording.interrupt()
        self.assertEqual((INTERRUPTED, b""), (status, out), error)
        self.assertRegex(error, says)
        document = self.info(recording.folder)
        self.assertEqual([], document["disagreements"])
        self.assertEqual(("closed", len(whole) // FRAME),
                         (document["clip"]["verdict"], document["clip"]["duration"]))
        self.assertSameBytes(whole, self.unwrap(recording.folder)["LIVE.dv"])
        return recording.folder

    def test_whole_frames_are_kept(self):
        content = frames("dv25", "525", "59.94i", FRAME, 31)
        self.check(content[:-FRAME // 2], content[:-FRAME])

    def test_a_recording_shorter_than_what_is_looked_at_first(self):
        content = frames("dv25", "525", "59.94i", FRAME, 4)
        self.check(content[:-1], content[:-FRAME])

    def test_its_sound_is_written_and_cut_to_match(self):
        content = frames("dv25", "525", "59.94i", FRAME, 5)
        wav = self.wav("in.wav", [samples(10000), samples(10000, seed=2)])
        folder = self.check(content, content, "--audio", wav, says=r"\Akmxf: .*1992 samples longer[^\n]*\n\Z")
        self.assertEqual(["LIVE.mxf", "LIVE00.mxf", "LIVE01.mxf"], files_in(folder))
        back = self.unwrap(folder, "--raw")
        self.assertSameBytes(samples(10000)[:16016], back["LIVE00.pcm"])

    def test_before_the_first_frame(self):
        for fed in (b"", frames("dv25", "525", "59.94i", FRAME, 1)[:5000],
                    frames("dv25", "525", "59.94i", FRAME, 1)[:50000]):
            recording = Recording(self)
            recording.feed(fed)
            if not fed:
                time.sleep(0.5)  # nothing tells that the program is waiting
            self.assertEqual((INTERRUPTED, b"", "kmxf: interrupted\n"), recording.interrupt())
            self.assertEqual([], files_in(recording.folder))

    def test_termination_is_the_same(self):
        recording = Recording(self)
        content = frames("dv25", "525", "59.94i", FRAME, 3)
        recording.feed(content)
        recording.process.send_signal(signal.SIGTERM)
        self.assertEqual(INTERRUPTED, recording.process.wait(PATIENCE))
        self.assertSameBytes(content, self.unwrap(recording.folder)["LIVE.dv"])


class UnderWay(KmxfCase):
    def test_one_creation_date_for_all_files(self):
        wav = self.wav("in.wav", [samples(96000)])
        recording = Recording(self, "--audio", wav)
        recording.feed(frames("dv25", "525", "59.94i", FRAME, 25))
        time.sleep(1.1)
        recording.process.stdin.close()
        self.assertEqual(0, recording.process.wait(PATIENCE))
        self.assertEqual([], self.info(recording.folder)["disagreements"])

    def test_a_recording_that_was_killed_is_cut_off(self):
        content = frames("dv25", "525", "59.94i", FRAME, 40)
        recording = Recording(self)
        recording.feed(content)
        wait_for(lambda: any(recording.folder.glob(".LIVE*")) and recording.work_file().stat().st_size > 32768)
        recording.kill()
        self.assertEqual([recording.work_file().name], files_in(recording.folder))
        file = recording.work_file().rename(recording.folder / "LEFT.mxf")
        there = (file.stat().st_size - 32768) // FRAME
        self.assertGreater(there, 0)
        values = self.file_info(file, status=FINDINGS)
        self.assertEqual((f"cut off at frame {there}", "video", "dv25", there),
                         (values["verdict"], values["kind"], values["codec"], values["duration"]))
        back = self.unwrap(file, status=FINDINGS, says=f"LEFT.mxf: cut off at frame {there}; what is there is given")
        self.assertSameBytes(content[:there * FRAME], back["LEFT.dv"][:there * FRAME])

    def test_sound_that_was_killed_is_still_sound(self):
        start = samples(100000)
        folder = self.folder / "out"
        process = subprocess.Popen([PROGRAM, "wrap", "--audio", sparse_wav(self.folder / "in.wav", start), "--standard",
                                    "50i", "-o", str(folder), "--name", "LONG"])
        wait_for(lambda: any(path.stat().st_size > 400000 for path in folder.glob(".LONG00*")))
        process.kill()
        process.wait()
        file = next(folder.glob(".LONG00*")).rename(folder / "LEFT.mxf")
        values = self.file_info(file, status=FINDINGS)
        there = file.stat().st_size - 32768
        self.assertEqual((f"cut off at frame {(there // 2 + 4) // 1920}", "audio", "pcm16", 48000, there // 2),
                         tuple(values[key] for key in ("verdict", "kind", "codec", "sampling_rate", "samples")))
        back = self.unwrap(file, "--raw", status=FINDINGS, says="cut off at frame")["LEFT.pcm"]
        self.assertSameBytes(start, back[:len(start)])
        self.assertEqual(there, len(back))

    def test_a_file_under_way_grows(self):
        recording = Recording(self)
        feeder = frames("dv25", "525", "59.94i", FRAME, 40)
        recording.feed(feeder)
        wait_for(lambda: any(recording.folder.glob(".LIVE*")))
        file = recording.work_file()
        info = subprocess.Popen([PROGRAM, "info", "--only", str(file)], stdout=subprocess.PIPE)
        while info.poll() is None:
            recording.feed(feeder)
        self.assertEqual(FINDINGS, info.returncode)
        self.assertIn(f"{file}: growing\n", info.communicate()[0].decode())


class FromAFile(KmxfCase):
    def check(self, process, folder, pattern):
        self.addCleanup(process.stderr.close)
        wait_for(lambda: any(path.stat().st_size > 32768 for path in folder.glob(pattern)))
        process.send_signal(signal.SIGINT)
        self.assertEqual(INTERRUPTED, process.wait(PATIENCE))
        self.assertEqual("kmxf: interrupted\n", process.stderr.read().decode())
        self.assertEqual([], files_in(folder))

    def start(self, folder, *arguments):
        return subprocess.Popen([PROGRAM, *map(str, arguments), "-o", str(folder)], stderr=subprocess.PIPE)

    def test_wrap_leaves_nothing(self):
        folder = self.folder / "out"
        essence_file = sparse_essence(self.folder / "long", 50000)
        self.check(self.start(folder, "wrap", "--video", essence_file, "--name", "LONG"), folder, ".LONG.mxf.part*")

    def test_a_clip_of_sound_leaves_nothing(self):
        folder = self.folder / "out"
        wav = sparse_wav(self.folder / "in.wav", b"")
        self.check(self.start(folder, "wrap", "--audio", wav, "--standard", "50i", "--name", "LONG"), folder,
                   ".LONG0*.mxf.part*")

    def test_unwrap_leaves_nothing(self):
        wav = sparse_wav(self.folder / "in.wav", b"", channels=1, samples_each=60000000)
        self.wrap("--audio", wav, "--standard", "50i")
        folder = self.folder / "out"
        self.check(self.start(folder, "unwrap", self.folder / "clip"), folder, ".CLIP00.wav.part*")


if __name__ == "__main__":
    unittest.main()
