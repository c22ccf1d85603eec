"""ffmpeg and ffprobe as black boxes: they make essence, and say what they see in our files."""

import json
import subprocess

from kmxf_case import RATES, KmxfCase


def run(*command):
    """Standard output of a command that must not fail."""
    result = subprocess.run([str(each) for each in command], stdin=subprocess.DEVNULL, capture_output=True, timeout=200,
                            check=False)
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stderr.decode()}")
    return result.stdout


def probe(path, kind):
    """The format, and the one stream of this kind ("v", "a") that the file holds. The clip's other tracks, whose essence
    lies in other files, are of no kind."""
    document = json.loads(run("ffprobe", "-v", "error", "-select_streams", kind, "-show_streams", "-show_format", "-of",
                              "json", path))
    (stream,) = document["streams"]
    return document["format"], stream


def ffmpeg(*arguments):
    return run("ffmpeg", "-v", "error", "-nostdin", "-threads", "1", *arguments)


class InteropCase(KmxfCase):
    def picture(self, name, size, rate, pixel_format, *coding, frames=2):
        """Coded frames of a moving test picture."""
        path = self.folder / name
        ffmpeg("-f", "lavfi", "-i", f"testsrc2=size={size}:rate={rate}", "-frames:v", frames, "-pix_fmt", pixel_format,
               *coding, "-threads", "1", "-y", path)
        return path

    def picture_md5(self, path, *options):
        """MD5 of every decoded picture, with its size in bytes."""
        lines = ffmpeg(*options, "-i", path, "-map", "0:v", "-f", "framemd5", "-").decode().splitlines()
        found = [tuple(field.strip() for field in line.split(",")[-2:]) for line in lines if not line.startswith("#")]
        self.assertNotEqual([], found)
        return found

    def assertProbed(self, path, codec, size, standard, frames, **others):
        """ffprobe tells of this codec, raster, rate and duration."""
        container, stream = probe(path, "v")
        self.assertEqual("mxf", container["format_name"])
        numerator, denominator = (int(each) for each in RATES[standard].split("/"))
        self.assertEqual((codec, size, RATES[standard]),
                         (stream["codec_name"], f"{stream['width']}x{stream['height']}", stream["r_frame_rate"]))
        self.assertAlmostEqual(frames * denominator / numerator, float(stream["duration"]), places=5)
        for key, value in others.items():
            self.assertEqual(value, stream[key], key)
        return container["tags"]
