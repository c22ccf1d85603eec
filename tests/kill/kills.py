"""kills.py [--kills N] [--seed S] [--jobs J] [--folder DIR]: kills recordings and counts what comes back.

Each kill starts a recording on the file system of DIR, ends it with SIGKILL at a random moment, salvages what is there
with `kmxf salvage`, proves it with `kmxf check` and compares what `kmxf unwrap` gives, bit by bit, with what was recorded.
"""

import argparse
import concurrent.futures
import dataclasses
import fcntl
import json
import mmap
import os
import random
import shutil
import signal
import struct
import subprocess
import sys
import termios
import threading
import time
import wave
from pathlib import Path

ESSENCE = Path(__file__).resolve().parent.parent / "data" / "essence"
CAMERA = 30000 / 1001
GROUP = 60                # frames of an OP-1b group at 59.94i
QUEUE = 4 << 20           # bytes that may wait in a stream, and
PIECE_OVERHEAD = 256      # what each piece counts beside its own
WRAP_HEAD = 2 * 1144320 + 16  # bytes of a pipe that `kmxf wrap` looks at before it makes a file
WRAP_PIECES = 4           # pieces of two DV25 frames on their way in `kmxf wrap`
WRAP_WAITING = 17         # Long-GOP pictures that wait until their order is known
RECORDING, CLOSING, CLOSED = range(3)
PATIENCE = 60             # seconds


def samples_before(frame):
    """Samples of a channel before this frame, at 59.94i and 48 kHz."""
    return frame // 5 * 8008 + (0, 1600, 3204, 4804, 6408)[frame % 5]


class Feed:
    """What is recorded: a few frames again and again, each with its number stamped in, and sound that is never silent."""

    def __init__(self, codec, frames, lead=0):
        """`codec` is video standard and compression type; a frame is its bytes, the place of its stamp, and the
        temporal offset, key-frame offset and flags of its index entry. `lead`: bytes that stand in front of the first
        frame when the essence is read back."""
        self.codec, self.frames, self.lead = codec, frames, lead
        self.pcm = random.Random(2).randbytes(1000003).replace(b"\0", b"\1")

    def save(self, path):
        """For the recorder."""
        lines, at = ["{} {}".format(*self.codec)], 0
        with open(f"{path}.bin", "wb") as file:
            for picture, *values in self.frames:
                lines.append(" ".join(map(str, (at, len(picture), *values))))
                at += file.write(picture)
        Path(f"{path}.txt").write_text("\n".join(lines) + "\n")
        Path(f"{path}.pcm").write_bytes(self.pcm)
        return path

    def size(self, number):
        return len(self.frames[number % len(self.frames)][0])

    def picture(self, number):
        picture, stamp, *_ = self.frames[number % len(self.frames)]
        return picture[:stamp] + b"%08d" % number + picture[stamp + 8:]

    def sound(self, channel, frames):
        size, start = 2 * samples_before(frames), 1001 * (channel + 1)
        return (self.pcm * ((start + size) // len(self.pcm) + 1))[start:start + size]


def dv25():
    size, content = 120000, (ESSENCE / "dv25-5994i.dif").read_bytes()
    return Feed((0x0100007C, 0x0400), [(content[at:at + size], size - 20, 0, 0, 0) for at in range(0, len(content), size)])


def avc_intra():
    """The stamp stands in the zeros behind the last slice."""
    size, content = 472064, (ESSENCE / "avci100-1080-5994i.raw").read_bytes()
    frames = [(content[at:at + size], size - 20, 0, 0, 0) for at in range(0, len(content), size)]
    return Feed((0x0100007C, 0xCD00), frames, lead=512)


def long_gop():
    """Each picture is brought to the size that it has at 25 Mb/s by a filler NAL unit, which holds the stamp; the sizes
    leave all remainders modulo 4."""
    stream = (ESSENCE / "longg25-1080-5994i.264").read_bytes()
    units = json.loads((ESSENCE / "longg25-1080-5994i.au.json").read_text())["access_units"]
    frames = []
    for number, unit in enumerate(units):
        picture = stream[unit["offset"]:unit["offset"] + unit["size"]] + b"\0\0\0\1\x0c"
        stamp, size = len(picture), 104000 + number % 7
        picture = picture.ljust(size - 1, b"\xff") + b"\x80"
        frames.append((picture, stamp, unit["temporal_offset"], unit["key_frame_offset"], unit["flags_with_sequence_bit"]))
    return Feed((0x0100007C, 0x1000C100), frames)


@dataclasses.dataclass
class Scenario:
    name: str
    weight: int
    layout: str
    feed: Feed
    channels: int = 0
    rate: float = 0          # frames a second; 0: as fast as it goes
    stream: str = "async"
    seconds: float = 0       # killed within so many of the first frame
    frames: int = 0          # or when so many at most are handed over
    close: bool = False      # or while it closes, after so many
    wrap: bool = False       # records with `kmxf wrap`, from a pipe


def scenarios():
    dv, intra, gop = dv25(), avc_intra(), long_gop()
    atom, clip = "op-atom", "op-1b"
    return [
        Scenario("OP-Atom DV25 + 2 sound, camera pace", 40, atom, dv, 2, CAMERA, seconds=2.5),
        Scenario("OP-Atom AVC-Intra 100 + 4 sound, 59.94 frames/s", 25, atom, intra, 4, 2 * CAMERA, seconds=2.5),
        Scenario("OP-Atom DV25 + 2 sound, full speed", 45, atom, dv, 2, frames=300),
        Scenario("OP-Atom DV25 + 2 sound, full speed, sync stream", 30, atom, dv, 2, stream="sync", frames=300),
        Scenario("OP-Atom DV25 + 4 sound, while it closes", 30, atom, dv, 4, frames=60, close=True),
        Scenario("OP-1b Long-GOP, no sound, camera pace", 20, clip, gop, 0, CAMERA, seconds=3),
        Scenario("OP-1b Long-GOP, no sound, full speed", 15, clip, gop, 0, frames=300),
        Scenario("OP-1b Long-GOP + 2 sound, camera pace", 25, clip, gop, 2, CAMERA, seconds=5),
        Scenario("OP-1b Long-GOP + 4 sound, full speed", 25, clip, gop, 4, frames=300),
        Scenario("OP-1b Long-GOP + 2 sound, full speed, sync stream", 10, clip, gop, 2, stream="sync", frames=300),
        Scenario("OP-1b Long-GOP + 2 sound, while it closes", 15, clip, gop, 2, frames=150, close=True),
        Scenario("kmxf wrap OP-Atom DV25 from a pipe, camera pace", 10, atom, dv, 0, CAMERA, seconds=3, wrap=True),
        Scenario("kmxf wrap OP-1b + 2 sound from a pipe, camera pace", 10, clip, gop, 2, CAMERA, seconds=5, wrap=True),
    ]


class Broken(Exception):
    """A promise that was not kept."""


def require(holds, text):
    if not holds:
        raise Broken(text)


def wait_for(condition, process, pause=0.0005):
    end = time.monotonic() + PATIENCE
    while not condition() and process.poll() is None:
        require(time.monotonic() < end, "the recording does not get on")
        time.sleep(pause)


class Recorder:
    """The camera of recorder.cpp."""

    def __init__(self, scenario, folder, options):
        self.scenario = scenario
        tally = folder / "tally"
        tally.write_bytes(bytes(mmap.PAGESIZE))
        with open(tally, "r+b") as file:
            self.tally = mmap.mmap(file.fileno(), mmap.PAGESIZE)
        clip = folder / "clip"
        clip.mkdir()
        frames = scenario.frames if scenario.close else 1 << 30
        self.process = subprocess.Popen(
            [options.recorder, scenario.layout, scenario.stream, str(scenario.channels), str(scenario.rate), str(frames),
             options.feeds[id(scenario.feed)], clip, tally], stderr=subprocess.PIPE)

    def state(self):
        return struct.unpack_from("=Q", self.tally)[0]

    def given(self, track=0):
        return struct.unpack_from("=Q", self.tally, 8 + 16 * track)[0]

    def completed(self, track=0):
        return struct.unpack_from("=Q", self.tally, 16 + 16 * track)[0]

    def ended(self):
        error = self.process.stderr.read().decode()
        self.process.stderr.close()
        require(self.process.returncode in (0, -signal.SIGKILL) and not error, f"the recorder failed: {error}")

    def promised(self):
        """Frames that must come back. Of a clip with sound, those of the groups whose sound is complete; without, all
        whose completions came, save for a last one whose padding is still to be written."""
        feed, completed = self.scenario.feed, self.completed()
        if self.scenario.layout == "op-atom":
            return completed
        if self.scenario.channels:
            return min(GROUP * min(map(self.completed, range(1, self.scenario.channels + 1))), completed)
        return completed - (1 if completed and feed.size(completed - 1) % 4 else 0)

    def check_queue(self):
        """Only so much is between Write and completion."""
        feed = self.scenario.feed
        for track in range(self.scenario.channels + 1):
            given, completed = self.given(track), self.completed(track)
            sizes = [feed.size(number) if track == 0 else 3200 for number in range(completed, given)]
            waiting = sum(sizes[:-1]) + PIECE_OVERHEAD * len(sizes[:-1])  # the last one may still be in Write
            most = QUEUE if self.scenario.stream == "async" else 0
            require(given >= completed and waiting <= most, f"track {track}: {completed} complete of {given}")

    def check_lost(self, lost):
        pass  # all is said by what is promised


class Wrap:
    """`kmxf wrap` with a pipe for a camera. It tells nobody about completions: what it took from the pipe counts."""

    def __init__(self, scenario, folder, options):
        self.scenario, self.fed, self.unread, self.lock = scenario, 0, 0, threading.Lock()
        command = [options.program, "wrap", "--video", "-", "-o", folder / "clip", "--name", "CLIP"]
        if scenario.channels:
            command += ["--audio", self.wav(folder / "in.wav")]
        if scenario.layout == "op-1b":
            command += ["--codec", "avclg25"]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.feeder = threading.Thread(target=self.feed)
        self.feeder.start()

    def wav(self, path):
        with wave.open(str(path), "wb") as file:
            file.setnchannels(self.scenario.channels)
            file.setsampwidth(2)
            file.setframerate(48000)
            sound = [self.scenario.feed.sound(channel, 1200) for channel in range(self.scenario.channels)]
            mixed = bytearray(len(sound[0]) * len(sound))
            for channel, samples in enumerate(sound):
                for byte in range(2):
                    mixed[2 * channel + byte::2 * len(sound)] = samples[byte::2]
            file.writeframes(bytes(mixed))
        return path

    def feed(self):
        start, number = time.monotonic(), 0
        try:
            while True:
                time.sleep(max(0, start + number / self.scenario.rate - time.monotonic()))
                picture = memoryview(self.scenario.feed.picture(number))
                while picture:
                    count = os.write(self.process.stdin.fileno(), picture)
                    picture = picture[count:]
                    with self.lock:
                        self.fed += count
                number += 1
        except BrokenPipeError:
            pass

    def state(self):
        return RECORDING

    def given(self):
        with self.lock:
            fed = self.fed
        taken, number = fed - self.unread, 0
        while taken >= self.scenario.feed.size(number):
            taken -= self.scenario.feed.size(number)
            number += 1
        return number

    def ended(self):
        self.feeder.join()
        pipe = self.process.stdin.fileno()
        self.unread = struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)))[0]
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        require(self.process.returncode == -signal.SIGKILL, f"wrap ended with {self.process.returncode}")

    def promised(self):
        return None

    def check_queue(self):
        pass

    def check_lost(self, lost):
        size = self.scenario.feed.size(0)
        if self.scenario.layout == "op-atom":
            most = max(WRAP_HEAD // size + 1, 2 * WRAP_PIECES + 1)
        else:
            most = max(WRAP_HEAD, QUEUE) // size + 1 + WRAP_WAITING + GROUP
        require(lost <= most, f"{lost} frames lost; {most} can be under way")


class Kill:
    """One recording that is killed, and what becomes of it."""

    def __init__(self, scenario, number, options):
        self.scenario, self.options = scenario, options
        self.random = random.Random(f"{options.seed} {number}")
        self.folder = options.folder / f"kill-{os.getpid()}-{number}"
        self.given = self.promised = self.kept = self.sound_given = self.sound_kept = 0
        self.state, self.fault, self.salvage_killed = RECORDING, None, False

    def run(self):
        self.folder.mkdir(parents=True)
        try:
            self.record()
            self.bring_back()
        except (Broken, subprocess.TimeoutExpired, ValueError, KeyError, OSError) as fault:
            self.fault = f"{self.scenario.name}: {type(fault).__name__}: {fault}; see {self.folder}"
            return self
        shutil.rmtree(self.folder)
        return self

    def record(self):
        scenario = self.scenario
        recording = (Wrap if scenario.wrap else Recorder)(scenario, self.folder, self.options)
        try:
            self.wait(recording)
        finally:
            recording.process.kill()  # SIGKILL
            recording.process.wait()
        recording.ended()
        recording.check_queue()
        self.recording, self.state = recording, recording.state()
        self.given, self.promised = recording.given(), recording.promised()
        if not scenario.wrap:
            self.sound_given = sum(recording.given(track) for track in range(1, scenario.channels + 1))

    def wait(self, recording):
        scenario, chance = self.scenario, self.random
        if scenario.close:
            wait_for(lambda: recording.state() != RECORDING, recording.process, pause=0)
            time.sleep(0.002 * chance.random() ** 2)
        elif scenario.seconds:
            if chance.random() < 0.1:
                time.sleep(chance.uniform(0, 0.05))  # while it starts
                return
            wait_for(recording.given, recording.process)
            soon = self.options.quick and not scenario.wrap  # which begins with a second of looking
            time.sleep(chance.uniform(0, min(scenario.seconds, 0.8) if soon else scenario.seconds))
        else:
            frames = chance.randint(1, scenario.frames)
            wait_for(lambda: recording.given() >= frames, recording.process)
            time.sleep(chance.uniform(0, 0.003))

    def kmxf(self, *arguments):
        result = subprocess.run([self.options.program, *map(str, arguments)], stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=PATIENCE)
        result.stderr = result.stderr.decode()
        return result

    def kill_salvage(self, clip, where):
        """Salvage can be killed as well, and begun anew."""
        process = subprocess.Popen([self.options.program, "salvage", clip, *where], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(0.06 * self.random.random())
        process.kill()
        self.salvage_killed = process.wait() == -signal.SIGKILL

    def bring_back(self):
        clip = self.folder / "clip"
        if not clip.exists() or not any(path.stat().st_size for path in clip.iterdir()):
            return self.account({})
        in_place = self.random.random() < 0.5
        where = ["--in-place"] if in_place else ["-o", self.folder / "mended"]
        if self.random.random() < 0.3:
            self.kill_salvage(clip, where if in_place else ["-o", self.folder / "given-up"])
        result = self.kmxf("salvage", clip, "--json", *where)
        require(result.returncode in (0, 1) and not result.stderr, f"salvage: {result.returncode} {result.stderr}")
        salvaged = json.loads(result.stdout)["salvage"]
        require(isinstance(salvaged, dict), "salvage finds more than one clip")
        if salvaged["outcome"] == "given up":
            return self.account({})
        require(salvaged["outcome"] == ("complete" if self.state == CLOSED else salvaged["outcome"]),
                "a closed clip is not complete")
        require(salvaged["outcome"] in ("complete", "salvaged") and not salvaged["findings"], f"salvage: {salvaged}")
        mended = clip if in_place or salvaged["outcome"] == "complete" else self.folder / "mended"
        for file in salvaged["files"]:
            if file["outcome"] == "given up":
                Path(file["path"]).unlink(missing_ok=True)  # in place it lies beside the others
        for path in clip.iterdir():
            if path.name.startswith("."):  # mended in place, it keeps the name that a killed writer leaves
                path.rename(clip / path.name[1:path.name.index(".part")])
        result = self.kmxf("check", mended)
        require(result.returncode == 0 and not result.stdout and not result.stderr, f"check: {result}")
        result = self.kmxf("unwrap", mended, "--raw", "-o", self.folder / "back")
        require(result.returncode == 0 and not result.stderr, f"unwrap: {result}")
        return self.account({path.name: path.read_bytes() for path in (self.folder / "back").iterdir()})

    def account(self, back):
        """Compares what came back with what was recorded."""
        feed, aligned = self.scenario.feed, self.scenario.layout == "op-1b"
        sound = {int(Path(name).stem[4:]): back.pop(name) for name in sorted(back) if name.endswith(".pcm")}
        require(len(back) <= 1, f"what came back: {sorted(back)}")
        content = memoryview(next(iter(back.values()), b""))
        if content:
            content = content[feed.lead:]
        while content:
            picture = feed.picture(self.kept)
            if aligned:
                picture += bytes(-len(picture) % 4)
            require(content[:len(picture)] == picture, f"frame {self.kept} is another")
            content = content[len(picture):]
            self.kept += 1
        for channel, samples in sound.items():
            expected, size = feed.sound(channel, self.kept), 2 * samples_before(self.kept)
            require(len(samples) == size, f"channel {channel}: {len(samples)} bytes of sound for {size}")
            blocks = self.kept
            if samples != expected:
                same = next(i for i in range(size) if samples[i] != expected[i])
                require(not any(samples[same:]), f"channel {channel}: other sound")
                blocks = next(n for n in range(self.kept, -1, -1) if 2 * samples_before(n) <= same)
            self.sound_kept += blocks
            if not self.scenario.wrap:
                completed = self.recording.completed(channel + 1) * (GROUP if aligned else 1)
                require(blocks >= min(completed, self.kept), f"channel {channel}: {blocks} of {completed} blocks of sound")
        require(self.kept <= self.given, f"{self.kept} frames kept of {self.given}")
        require(self.promised is None or self.kept >= self.promised, f"{self.kept} frames kept, {self.promised} promised")
        self.recording.check_lost(self.given - self.kept)


def shares(total, weights):
    """How often each, at least once."""
    counts = [max(1, total * weight // sum(weights)) for weight in weights]
    while sum(counts) < total:
        short = max(range(len(weights)), key=lambda i: total * weights[i] / sum(weights) - counts[i])
        counts[short] += 1
    return counts


LEGEND = """
given      frames for which Write was called (kmxf wrap: that it took from the pipe)
confirmed  of these, what must come back: OP-Atom, frames whose completion came; OP-1b with sound, those of the groups of
           60 whose sound is complete as well; without, all completed but one whose padding to 4 bytes is still to come
kept       frames in the salvaged and checked clip; all are bit for bit what was recorded
lost       given and not kept, and the most of one kill
in Close   kills that hit the recording while it closed (and, in brackets, that came too late)

Between Write and completion are at most the 4 MiB that wait in a stream of the library, and the frame that is being
handed over; in a stream that writes at once, that frame. kmxf wrap looks at the first 2.3 MB of a pipe before it makes a
file: until then there is nothing to come back.

What a killed process has written stays with the system, so nothing confirmed is lost. A power cut also takes what is not
yet on the medium: what is safe from it is what was written before the last DataSync. A writer syncs when its client calls
DataSync, and at no other time; kmxf wrap brings a clip to the medium before it gives it its name."""


def table(all_scenarios, kills):
    rows = [("scenario", "kills", "given", "confirmed", "kept", "lost", "most lost", "in Close")]
    for scenario in all_scenarios:
        own = [kill for kill in kills if kill.scenario is scenario and kill.fault is None]
        given, kept = sum(kill.given for kill in own), sum(kill.kept for kill in own)
        closing = sum(kill.state == CLOSING for kill in own)
        late = sum(kill.state == CLOSED for kill in own)
        rows.append((scenario.name, len(own), given, "-" if scenario.wrap else sum(kill.promised for kill in own), kept,
                     given - kept, max((kill.given - kill.kept for kill in own), default=0),
                     f"{closing} ({late})" if closing or late else "0"))
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(str(cell).ljust(width) if i == 0 else str(cell).rjust(width)
                        for i, (cell, width) in enumerate(zip(row, widths))))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kills", type=int, default=300)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=3, help="recordings at a time")
    parser.add_argument("--quick", action="store_true", help="kill soon")
    parser.add_argument("--folder", type=Path, required=True, help="where to record")
    parser.add_argument("--program", required=True, help="kmxf")
    parser.add_argument("--recorder", required=True, help="kmxf_recorder")
    options = parser.parse_args()

    all_scenarios = scenarios()
    feeds = options.folder / f"feeds-{os.getpid()}"
    feeds.mkdir(parents=True)
    options.feeds = {}
    for scenario in all_scenarios:
        if id(scenario.feed) not in options.feeds:
            options.feeds[id(scenario.feed)] = scenario.feed.save(feeds / str(len(options.feeds)))
    system = subprocess.run(["df", "--output=fstype", options.folder], capture_output=True, text=True, check=True).stdout
    order = [scenario for scenario, count in zip(all_scenarios, shares(options.kills, [s.weight for s in all_scenarios]))
             for _ in range(count)]
    random.Random(options.seed).shuffle(order)
    start = time.monotonic()
    try:
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            kills = list(pool.map(lambda each: Kill(each[1], each[0], options).run(), enumerate(order)))
    finally:
        shutil.rmtree(feeds)
    table(all_scenarios, kills)
    print(LEGEND)
    faults = [kill.fault for kill in kills if kill.fault]
    print(f"\n{len(kills)} kills on {system.split()[-1]} in {time.monotonic() - start:.0f} s, seed {options.seed}; "
          f"{sum(kill.given == 0 for kill in kills)} before the first frame, {sum(kill.salvage_killed for kill in kills)} "
          f"followed by one of the first salvage; promises broken: {len(faults)}")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
