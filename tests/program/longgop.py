"""Long-GOP streams made on the spot, and what another program says of their order."""

import json
import subprocess
from pathlib import Path

RATES = {"59.94i": "30000/1001", "50i": "25", "23.98p": "24000/1001", "29.97p": "30000/1001", "59.94p": "60000/1001",
         "25p": "25", "50p": "50"}


def ffmpeg(*arguments):
    result = subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, arguments)], capture_output=True)
    assert result.returncode == 0, result.stderr.decode()
    return result.stdout


def encode(path, frames=24, raster="720", standard="59.94p", x264="", pixels="yuv420p", quality=45, options=()):
    """An MP4 file of a moving test picture."""
    size = "1280x720" if raster == "720" else "1920x1080"
    interlaced = ["-flags", "+ildct+ilme"] if standard.endswith("i") else []
    ffmpeg("-f", "lavfi", "-i", f"testsrc2=size={size}:rate={RATES[standard]}", "-frames:v", frames, "-c:v", "libx264",
           "-preset", "ultrafast", "-threads", 1, "-qp", quality, "-pix_fmt", pixels, *interlaced, "-x264-params",
           x264 or "bframes=2:b-adapt=0:keyint=30", *options, path)
    return path


def annex_b(path, target=None, filters="h264_mp4toannexb"):
    target = target or Path(path).with_suffix(".h264")
    ffmpeg("-i", path, "-c", "copy", "-bsf:v", filters, "-f", "h264", target)
    return target


def order(path):
    """Of every picture as it is stored: its place in display order, and its type. From the container's times."""
    def probe(what, *entries):
        output = subprocess.run(["ffprobe", "-v", "error", f"-show_{what}s", "-of", "json", *entries, str(path)],
                                capture_output=True, check=True).stdout
        return json.loads(output)[f"{what}s"]
    stored = [packet["pts"] for packet in probe("packet", "-show_entries", "packet=pts")]
    types = {frame["pts"]: frame["pict_type"] for frame in probe("frame", "-show_entries", "frame=pts,pict_type")}
    shown = sorted(stored)
    return [(shown.index(time), types[time]) for time in stored]


def pictures(path, *options):
    """MD5 of every decoded picture."""
    output = ffmpeg("-i", path, "-map", "0:v", *options, "-f", "framemd5", "-").decode()
    return [line.split(",")[-1].strip() for line in output.splitlines() if not line.startswith("#")]


def heard(path, stream, bits):
    return ffmpeg("-i", path, "-map", f"0:a:{stream}", "-f", f"s{bits}le", "-c:a", f"pcm_s{bits}le", "-")
