"""What holds for every command: help, messages, statuses, statistics, and that the man page tells all of it."""

import json
import re
import shutil
import subprocess
import unittest

from kmxf_case import (DONE, ESSENCE, INPUT, OUTPUT, SCHEMA, SOURCE, USAGE, VALIDATOR, KmxfCase, essence, samples)

COMMANDS = ("wrap", "unwrap", "info", "frames", "dump", "check", "edit", "salvage")
DV25 = ESSENCE / "dv25-5994i.dif"
MAN = (SOURCE / "docs" / "kmxf.1").read_text().replace("\\-", "-")
VERSION = re.search(r"project\(kmxf VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text())[1]


def options_in(text):
    return set(re.findall(r"(?<![\w-])--?[a-z](?:[a-z-]*[a-z])?(?![\w-])", text))


class Help(KmxfCase):
    def test_help_and_version_of_every_command(self):
        for command in ([], *([each] for each in COMMANDS)):
            text = self.kmxf(*command, "--help").decode()
            self.assertIn(" ".join(["Usage: kmxf", *command]), text)
            self.assertEqual(text, self.kmxf(*command, "-h").decode())
            self.assertEqual(f"kmxf {VERSION}\n", self.kmxf(*command, "--version").decode())

    def test_every_option_is_in_the_man_page(self):
        common = options_in(self.kmxf("--help").decode())
        self.assertLessEqual({"--help", "-h", "--quiet", "--stats", "--log-file", "--version"}, common)
        sections = dict(re.findall(r"^\.SH (.*)\n((?:(?!\.SH ).*\n)*)", MAN, re.MULTILINE))
        self.assertLessEqual(common, options_in(sections["COMMON OPTIONS"]))
        for command in COMMANDS:
            options = options_in(self.kmxf(command, "--help").decode()) - {"-h", "--help", "--version"}
            self.assertGreater(len(options), 1, command)
            self.assertEqual(set(), options - options_in(sections[f"KMXF {command.upper()}"]), command)

    def test_the_man_page_has_no_options_that_there_are_not(self):
        told = set().union(*(options_in(self.kmxf(*command, "--help").decode())
                             for command in ([], *([each] for each in COMMANDS))))
        self.assertEqual(set(), options_in(MAN) - told)

    def test_the_man_page_is_of_this_version(self):
        self.assertIn(f'"kmxf {VERSION}"', MAN.splitlines()[0])

    def test_the_man_page_tells_every_exit_status(self):
        self.assertEqual(["0", "1", "2", "3", "4", "5", "130"],
                         re.findall(r"^\.B ([0-9]+)$", MAN[MAN.index(".SH EXIT STATUS"):], re.MULTILINE))

    def test_the_man_page_is_well_formed(self):
        if shutil.which("groff") is None:
            self.skipTest("no groff here")
        result = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", str(SOURCE / "docs" / "kmxf.1")],
                                capture_output=True, check=True)
        self.assertEqual(b"", result.stderr)


class Usage(KmxfCase):
    def test_wrong_usage_is_one_line(self):
        for arguments in ([], ["nope"], ["info"], ["unwrap"], ["unwrap", "x"], ["frames"], ["frames", "a", "b"],
                          ["wrap"], ["info", "--bogus", "x"], ["--color", "sometimes", "info", "x"], ["wrap", "info"],
                          ["info", "--json=maybe", "x"]):
            with self.subTest(arguments):
                self.refused(USAGE, ".", *arguments)

    def test_a_name_without_letters_is_no_file(self):
        for command in ("info", "check", "salvage"):
            with self.subTest(command):
                self.refused(INPUT, r"\Akmxf: (?!.*internal fault)", command, "")

    def test_every_failure_is_one_line_with_the_file(self):
        nowhere = self.folder / "nowhere"
        for arguments in (["info", nowhere], ["frames", nowhere], ["unwrap", nowhere, "-o", self.folder / "x"],
                          ["wrap", "--video", nowhere, "-o", self.folder / "x", "--name", "N"],
                          ["info", "--json", nowhere], ["frames", "--json", nowhere]):
            for extra in ([], ["--quiet"], ["--progress"]):
                self.refused(INPUT, f"^kmxf: {nowhere}: cannot be opened: No such file or directory", *arguments, *extra)


class Output(KmxfCase):
    def test_wrap_and_unwrap_say_nothing(self):
        wav = self.wav("in.wav", [samples(3204)])
        file = self.wrap("--video", DV25, "--audio", wav, "--quiet")
        for arguments in ([], ["--force"], ["--force", "--quiet"]):
            self.assertEqual(b"", self.kmxf("unwrap", file, "-o", self.folder / "out", *arguments))

    def test_quiet_silences_progress_but_not_what_is_done_to_the_essence(self):
        self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(5)]), "--quiet", says="filled with silence")

    def test_progress(self):
        file = self.folder / "clip" / "CLIP.mxf"
        result = self.run_kmxf("wrap", "--video", DV25, "-o", file.parent, "--name", "CLIP", "--progress")
        self.assertEqual((DONE, b""), (result.returncode, result.stdout))
        self.assertRegex(result.stderr, r"\r[^\r\n]*CLIP.mxf: 0.2 MB, 2 frames, [0-9.]+ MB/s, 100 %, 0 s left \n\Z")
        result = self.run_kmxf("unwrap", file, "-o", "-", "--progress")
        self.assertSameBytes(essence(DV25.name), result.stdout)
        self.assertRegex(result.stderr, r"\rstandard output: 0.2 MB, 2 frames, [0-9.]+ MB/s, 100 %")

    def test_progress_ends_at_100_percent(self):
        clips = []
        for options in (["--video", DV25, "--audio", self.wav("short.wav", [samples(5)] * 4)],
                        ["--video", DV25, "--audio", self.wav("long.wav", [samples(3204)] * 8)],
                        ["--pattern", "op-1b", "--video", ESSENCE / "longg25-1080-5994i.264",
                         "--audio", ESSENCE / "tone-24bit-stereo.wav"]):
            clips.append(self.folder / f"clip{len(clips)}")
            self.assertUpTo100Percent("wrap", *options, "-o", clips[-1], "--name", "CLIP")
            self.assertUpTo100Percent("unwrap", clips[-1] / "CLIP.mxf", "-o", self.folder / f"out{len(clips)}")
        for clip in clips:
            file = clip / "CLIP.mxf"
            file.write_bytes(file.read_bytes()[:-1000])
            for sound in clip.glob("CLIP0?.mxf"):
                sound.write_bytes(sound.read_bytes()[:32768 + 3200])  # silence is added
            self.assertUpTo100Percent("salvage", clip)

    def assertUpTo100Percent(self, *arguments):
        shown = [int(number) for number in re.findall("([0-9]+) %", self.run_kmxf(*arguments, "--progress").stderr)]
        self.assertTrue(shown, arguments)
        self.assertLessEqual(max(shown), 100, arguments)

    def test_statistics(self):
        numbers = (r"\Aread ([0-9 ]+) bytes in ([0-9]+) reads, wrote ([0-9 ]+) bytes in ([0-9]+) writes, "
                   r"[0-9]+\.[0-9]{3} s\n\Z")
        result = self.run_kmxf("wrap", "--video", DV25, "-o", self.folder / "clip", "--name", "A", "--stats")
        read, _, wrote, _ = (int(text.replace(" ", "")) for text in re.search(numbers, result.stderr).groups())
        self.assertGreaterEqual(wrote, 32768 + 240000 + 224)
        self.assertGreaterEqual(read, 240000)
        result = self.run_kmxf("unwrap", self.folder / "clip", "-o", self.folder / "out", "--stats")
        read, _, wrote, _ = (int(text.replace(" ", "")) for text in re.search(numbers, result.stderr).groups())
        self.assertEqual(240000, wrote)
        self.assertGreaterEqual(read, 240000)
        result = self.run_kmxf("--stats", "info", self.folder / "nowhere")
        self.assertEqual(2, len(result.stderr.splitlines()), "after a failure as well")

    def test_log_file(self):
        log = self.folder / "log"
        log.write_text("before\n")
        bad = self.file("bad.mxf", self.wrap("--video", DV25).read_bytes()[:5000])
        self.kmxf("info", bad, "--log-file", log, status=1)
        lines = log.read_text().splitlines()
        self.assertEqual("before", lines[0])
        self.assertGreater(len(lines), 1)
        for line in lines[1:]:
            self.assertRegex(line, r"^\w+::\w+ \([\w/.]+:[0-9]+\): .+$")
        verbose = self.run_kmxf("info", bad, "--verbose").stderr.splitlines()
        self.assertEqual([f"kmxf: {line}" for line in lines[1:]], verbose)

    def test_a_log_file_that_cannot_be_written(self):
        self.refused(OUTPUT, "log: cannot be written: No such file or directory", "info", self.folder, "--log-file",
                     self.folder / "nowhere" / "log")

    def test_no_colour_where_there_is_no_terminal(self):
        file = self.wrap("--video", DV25)
        for options in ([], ["--color", "never"], ["--color=auto"]):
            for command in ("info", "frames"):
                self.assertNotIn(b"\x1b", self.kmxf(command, file, *options))


class Schema(KmxfCase):
    """The description that all JSON of these tests is held against can itself find faults."""

    def test_is_well_formed(self):
        VALIDATOR.check_schema(SCHEMA)

    def test_finds_faults(self):
        self.wrap("--video", DV25, "--audio", self.wav("in.wav", [samples(3204)]))
        document = self.info(self.folder / "clip")
        frames = self.json("frames", self.folder / "clip" / "CLIP.mxf")

        def changed(original, change):
            copy = json.loads(json.dumps(original))
            change(copy)
            return copy
        for fault in [changed(document, lambda d: d.pop("schema")), changed(document, lambda d: d.update(schema="2")),
                      changed(document, lambda d: d["files"][0].update(duration="2")),
                      changed(document, lambda d: d["files"][0].update(verdict="fine")),
                      changed(document, lambda d: d["files"][0].update(surprise=1)),
                      changed(document, lambda d: d["files"][0].pop("codec")),
                      changed(document, lambda d: d["files"][1].pop("samples")),
                      changed(document, lambda d: d["files"][0].update(material_umid="00")),
                      changed(document, lambda d: d["files"].clear()),
                      changed(document, lambda d: d["clip"].update(creation_date="today")),
                      changed(frames, lambda d: d["frames"][0].update(timecode="1:2:3:4")),
                      changed(frames, lambda d: d["frames"][0].pop("offset"))]:
            self.assertFalse(VALIDATOR.is_valid(fault), fault)


if __name__ == "__main__":
    unittest.main()
