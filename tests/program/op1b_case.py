"""OP-1b clips of the bundled Long-GOP stream, as long as a test wants them."""

import json

from kmxf_case import ESSENCE, KmxfCase, essence, samples
from op1b_file import Op1bFile

LONG_GOP = "longg25-1080-5994i.264"
ACCESS_UNITS = json.loads((ESSENCE / "longg25-1080-5994i.au.json").read_text())["access_units"]
GROUP = 60  # frames of a group at 59.94i
HEADER = 131072


class Op1bCase(KmxfCase):
    def wrap_op1b(self, frames, channels=0, *options, bits=16, **how):
        """A clip of that many frames, with sound to match."""
        video = self.file("in.264", long_gop(0, frames))
        if channels:
            sound = [samples(samples_before(frames), bits, seed) for seed in range(1, channels + 1)]
            options = ("--audio", self.wav("in.wav", sound, bits), *options)
        return self.wrap("--video", video, *options, **how)


def access_unit(number):
    """The picture stored in this place of the stream, which repeats without end."""
    unit = ACCESS_UNITS[number % len(ACCESS_UNITS)]
    return STREAM[unit["offset"]:unit["offset"] + unit["size"]]


STREAM = essence(LONG_GOP)


def long_gop(first, end):
    return b"".join(access_unit(number) for number in range(first, end))


def aligned(picture):
    return picture + bytes(-len(picture) % 4)


def samples_before(frame):
    """Samples of a channel before this frame, at 59.94i and 48 kHz."""
    return frame // 5 * 8008 + (0, 1600, 3204, 4804, 6408)[frame % 5]


def partitions(content):
    """Offset and BodySID of every partition pack."""
    return [(each.offset, int.from_bytes(each.value[60:64], "big")) for each in Op1bFile(content).partitions]


def group_starts(content):
    return [offset for offset, sid in partitions(content) if sid == 1]
