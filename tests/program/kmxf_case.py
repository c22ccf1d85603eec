"""What the tests of the program share: running it, reading what it says, making essence for it."""

import contextlib
import json
import os
import random
import shutil
import struct
import subprocess
import tempfile
import threading
import unittest
import wave
from pathlib import Path

import jsonschema

PROGRAM = os.environ["KMXF_PROGRAM"]
SOURCE = Path(os.environ["KMXF_SOURCE"])
ESSENCE = SOURCE / "tests" / "data" / "essence"
EXPECTED = {entry["file"]: entry for entry in json.loads((ESSENCE / "expected.json").read_text())["files"]}
SCHEMA = json.loads((SOURCE / "docs" / "kmxf-1.schema.json").read_text())

DONE, FINDINGS, USAGE, INPUT, OUTPUT, INTERRUPTED = 0, 1, 2, 3, 4, 130

# Codec, raster, standard and frame size of every picture format.
DV_FORMATS = [
    ("dv25", "525", "59.94i", 120000), ("dv25", "625", "50i", 144000),
    ("dv25-iec", "525", "59.94i", 120000), ("dv25-iec", "625", "50i", 144000),
    ("dv50", "525", "59.94i", 240000), ("dv50", "625", "50i", 288000),
    ("dv100", "1080", "59.94i", 480000), ("dv100", "1080", "50i", 576000),
    ("dv100", "720", "23.98p", 240000), ("dv100", "720", "29.97p", 240000), ("dv100", "720", "59.94p", 240000),
    ("dv100", "720", "25p", 288000), ("dv100", "720", "50p", 288000),
]
AVC_INTRA_FORMATS = [
    (codec, raster, standard, at_60 if standard in ("59.94i", "23.98p", "29.97p", "59.94p") else at_50)
    for codec, raster, at_60, at_50 in [
        ("avci50", "1080", 232448, 280576), ("avci50", "720", 116224, 140288),
        ("avci100", "1080", 472064, 568320), ("avci100", "720", 236032, 284160),
        ("avci200", "1080", 952320, 1143808), ("avci200", "720", 476160, 571904),
    ]
    for standard in ("59.94i", "50i", "23.98p", "29.97p", "59.94p", "25p", "50p")
    if raster == "1080" or standard[-1] == "p"
]
RATES = {"59.94i": "30000/1001", "50i": "25/1", "23.98p": "24000/1001", "29.97p": "30000/1001",
         "59.94p": "60000/1001", "25p": "25/1", "50p": "50/1"}
PARAMETER_SETS = 512  # the block in front of AVC-Intra frames


def closed(schema):
    """The schema without room for keys it does not name: outputs of this version hold no others."""
    if isinstance(schema, list):
        return [closed(each) for each in schema]
    if not isinstance(schema, dict):
        return schema
    result = {key: closed(value) for key, value in schema.items()}
    if "properties" in result and result.get("type") == "object":
        result["additionalProperties"] = False
    return result


@contextlib.contextmanager
def growing(file):
    """Meanwhile another thread appends to the file."""
    stop = threading.Event()

    def grow():
        with open(file, "ab", buffering=0) as end:
            while not stop.wait(0.01):
                end.write(b"more")
    thread = threading.Thread(target=grow)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()


VALIDATOR = jsonschema.Draft202012Validator(closed(SCHEMA))


class KmxfCase(unittest.TestCase):
    """A test with a folder of its own."""

    longMessage = True
    maxDiff = None

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="kmxf-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def run_kmxf(self, *arguments, **how):
        how = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "timeout": 100,
               **how}
        if "input" in how:
            how.pop("stdin")
        command = [PROGRAM, *(each if isinstance(each, bytes) else str(each) for each in arguments)]
        result = subprocess.run(command, **how)
        result.stderr = (result.stderr or b"").decode()
        self.assertNotIn("Sanitizer", result.stderr)
        self.assertNotIn("runtime error", result.stderr)
        return result

    def kmxf(self, *arguments, status=DONE, says=None, **how):
        """Runs the program, which must end with this status; gives its standard output. Standard error must hold
        nothing, or one line that matches `says`."""
        result = self.run_kmxf(*arguments, **how)
        self.assertEqual(status, result.returncode, f"{arguments}: {result.stderr}")
        if says is None:
            self.assertEqual("", result.stderr, arguments)
        else:
            self.assertRegex(result.stderr, r"\Akmxf: [^\n]+\n\Z", arguments)
            self.assertRegex(result.stderr, says, arguments)
        return result.stdout

    def refused(self, status, says, *arguments, **how):
        """The program fails with one line, and nothing on standard output."""
        self.assertFalse(self.kmxf(*arguments, status=status, says=says, **how), arguments)

    def wrap(self, *arguments, status=DONE, says=None, name="CLIP", folder=None, **how):
        folder = folder or self.folder / "clip"
        output = self.kmxf("wrap", *arguments, "-o", folder, "--name", name, status=status, says=says, **how)
        self.assertFalse(output, "wrap says nothing on standard output")
        return folder / f"{name}.mxf"

    def wrap_refused(self, status, says, *arguments, **how):
        """Nothing is written either."""
        folder = self.folder / "refused"
        self.refused(status, says, "wrap", *arguments, "-o", folder, "--name", "CLIP", **how)
        self.assertEqual([], files_in(folder))

    def json(self, *arguments, status=DONE, says=None):
        document = json.loads(self.kmxf(*arguments, "--json", status=status, says=says))
        self.assertDescribed(document)
        return document

    def info(self, *arguments, status=DONE, says=None):
        return self.json("info", *arguments, status=status, says=says)

    def file_info(self, path, status=DONE):
        (file,) = self.info("--only", path, status=status)["files"]
        return file

    def unwrap(self, *arguments, status=DONE, says=None):
        """Gives what unwrap wrote: name -> bytes."""
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        self.assertFalse(self.kmxf("unwrap", *arguments, "-o", folder, status=status, says=says))
        return {path.name: path.read_bytes() for path in folder.iterdir()}

    def file(self, name, content):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return path

    def wav(self, name, channels, bits=16, rate=48000):
        """A WAV of these channels, each the bytes of its samples."""
        return write_wav(self.folder / name, channels, bits, rate)

    def assertDescribed(self, document):
        """The schema describes this JSON, and every key in it."""
        self.assertEqual([], [error.message for error in VALIDATOR.iter_errors(document)])

    def assertSameBytes(self, expected, actual, message=""):
        """As assertEqual, without printing megabytes."""
        if expected != actual:
            at = next((i for i, (a, b) in enumerate(zip(expected, actual)) if a != b), min(len(expected), len(actual)))
            self.fail(f"{message}: {len(expected)} bytes expected, {len(actual)} found, different from {at} on")


def files_in(folder):
    """Names in the folder, hidden ones too."""
    return sorted(path.name for path in Path(folder).iterdir()) if Path(folder).exists() else []


def essence(name):
    return (ESSENCE / name).read_bytes()


def samples(count, bits=16, seed=1):
    return random.Random(seed).randbytes(count * bits // 8)


def write_wav(path, channels, bits, rate):
    width = bits // 8
    interleaved = bytearray(sum(map(len, channels)))
    for number, channel in enumerate(channels):
        for byte in range(width):
            interleaved[number * width + byte::width * len(channels)] = channel[byte::width]
    with wave.open(str(path), "wb") as file:
        file.setnchannels(len(channels))
        file.setsampwidth(width)
        file.setframerate(rate)
        file.writeframes(bytes(interleaved))
    return path


def read_wav(data, folder):
    """Sampling rate, bits, channels and sample bytes."""
    path = Path(folder) / "read.wav"
    path.write_bytes(data)
    with wave.open(str(path), "rb") as file:
        return file.getframerate(), file.getsampwidth() * 8, file.getnchannels(), file.readframes(file.getnframes())


# Field frequency bit and signal type of the VAUX source pack (SMPTE ST 314, ST 370).
_DV_SIGNALS = {("dv25", "525"): 0x00, ("dv25", "625"): 0x20, ("dv25-iec", "525"): 0x00, ("dv25-iec", "625"): 0x20,
               ("dv50", "525"): 0x04, ("dv50", "625"): 0x24}


def dv_signal(codec, raster, standard):
    if codec != "dv100":
        return _DV_SIGNALS[codec, raster]
    fifty = standard in ("50i", "25p", "50p")
    return (0x20 if fifty else 0) | (0x18 if raster == "720" else 0x15 if fifty else 0x14)


def dv_frame(codec, raster, standard, size, seed):
    """A DIF frame of random pictures: header, and VAUX source pack in its first sequence."""
    frame = bytearray(random.Random(seed).randbytes(size))
    signal = dv_signal(codec, raster, standard)
    lines_625 = signal & 0x20
    application = 0 if codec == "dv25-iec" else 1
    frame[0:8] = bytes([0x1F, 0x07, 0x00, 0xBF if lines_625 else 0x3F, 0x68 | application, 0x78, 0x78, 0x78])
    for block in range(2):  # subcode without packs
        at = 80 + 80 * block
        frame[at:at + 80] = bytes([0x3F, 0x07, block]) + b"\xFF" * 77
    for block in range(3):
        at = 240 + 80 * block
        frame[at:at + 80] = bytes([0x5F, 0x07, block]) + b"\xFF" * 77
        frame[at + 3:at + 8] = bytes([0x60, 0xFF, 0xFF, signal | 0xC0, 0xFF])
    return bytes(frame)


def avc_intra_frame(size, seed):
    """A frame's filler NAL, and random bytes in which no other start code comes up."""
    noise = random.Random(seed).randbytes(size).replace(b"\0", b"\1")
    return (b"\0\0\0\1\x0C\x80" + noise)[:size]


def frames(codec, raster, standard, size, count=2):
    if codec.startswith("dv"):
        return b"".join(dv_frame(codec, raster, standard, size, seed) for seed in range(count))
    return b"".join(avc_intra_frame(size, seed) for seed in range(count))


def sparse_essence(path, count):
    """A large DV25 file of `count` frames, of which only the first two are more than zeros."""
    with open(path, "wb") as file:
        file.write(essence("dv25-5994i.dif"))
        file.truncate(count * 120000)
    return path



def sparse_wav(path, start, channels=8, samples_each=10000000):
    """A large WAV of 16 bits at 48 kHz: these samples first in every channel, then silence."""
    size = samples_each * channels * 2
    with open(path, "wb") as file:
        file.write(b"RIFF" + struct.pack("<I", 36 + size) + b"WAVEfmt " +
                   struct.pack("<IHHIIHH", 16, 1, channels, 48000, 96000 * channels, 2 * channels, 16) + b"data" +
                   struct.pack("<I", size))
        file.write(b"".join(start[at:at + 2] * channels for at in range(0, len(start), 2)))
        file.truncate(44 + size)
    return path
