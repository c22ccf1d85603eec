#!/usr/bin/env python3
"""Plants the faults of mutants.toml one at a time in a copy of the tree, and tells which of them the tests catch.

    mutants.py --check        every planted text stands in its file exactly once; builds nothing
    mutants.py [WORD...]      plants all faults, or those with one of the words in their file or test, in build/mutants

The tests that a fault names must pass without it and fail with it; a fault with which they still pass has survived. The
exit status is 1 if any survived, does not apply or does not build.
"""
import os
import shutil
import subprocess
import sys
import time
import tomllib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutants"
TREE, BUILD = WORK / "tree", WORK / "build"
# What the copy holds: the library and the tests of its floors.
FLOORS = ("core", "collaborators", "structures", "writer", "reader", "tools", "roundtrip")
PARTS = ("CMakeLists.txt", "cmake/", "include/", "src/", "tests/CMakeLists.txt", "tests/support/", "tests/data/", "docs/check.md",
         *(f"tests/{floor}/" for floor in FLOORS))
SECONDS = 20  # for a run of tests beyond ten times what it takes without a fault, which may make it run for ever

CONFIGURE = [
    "cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "--log-level=WARNING", "-DCMAKE_BUILD_TYPE=None",
    "-DCMAKE_CXX_FLAGS=-O0", "-DKMXF_BUILD_PROGRAM=OFF", "-DCMAKE_COMPILE_WARNING_AS_ERROR=OFF",
    "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
]


class Mutant:
    def __init__(self, program, row):
        self.program, self.file = program, row["file"]
        self.was, self.now, self.tests = row["was"], row["now"], row["tests"]

    def planted(self, root):
        """The text of the file with the fault in it; None if it does not apply."""
        path = root / self.file
        text = path.read_text() if path.is_file() else ""
        return text.replace(self.was, self.now) if text.count(self.was) == 1 and self.was != self.now else None

    def __str__(self):
        return f"{self.file}: {self.was.strip()} -> {self.now.strip()}"


def all_mutants():
    table = tomllib.loads((Path(__file__).parent / "mutants.toml").read_text())
    return [Mutant(program, row) for program, rows in table.items() for row in rows]


def check(mutants):
    bad = [mutant for mutant in mutants if mutant.planted(ROOT) is None]
    for mutant in bad:
        print(f"does not apply  {mutant}")
    print(f"{len(mutants)} planted faults, {len(bad)} do not apply")
    return 1 if bad or not mutants else 0


def copy_tree():
    """Only what differs is written, so that a second run builds little."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z", "--", *PARTS], cwd=ROOT, check=True,
                            capture_output=True)
    names = {name for name in listed.stdout.decode().split("\0") if name and (ROOT / name).is_file()}
    for old in [path for path in TREE.rglob("*") if path.is_file()]:
        if str(old.relative_to(TREE)) not in names:
            old.unlink()
    for name in names:
        here, there = ROOT / name, TREE / name
        if not there.is_file() or here.read_bytes() != there.read_bytes():
            there.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(here, there)


def built(program):
    jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "1")
    run = subprocess.run(["cmake", "--build", BUILD, "-j", jobs, "--target", program], capture_output=True, text=True)
    if run.returncode != 0:
        print(run.stdout[-2000:])
    return run.returncode == 0


def passes(program, tests, seconds=None):
    """Whether the tests run and all pass, in this time if one is given."""
    binary = BUILD / "tests" / program.removesuffix("_tests") / program
    try:
        run = subprocess.run([binary, f"--gtest_filter={tests}", "--gtest_brief=1"], capture_output=True, text=True,
                             errors="replace", timeout=seconds)
    except subprocess.TimeoutExpired:
        return False
    return run.returncode == 0 and "Running 0 tests" not in run.stdout and "[  PASSED  ] 0 tests" not in run.stdout


def verdict(mutant, seconds):
    text = mutant.planted(TREE)
    if text is None:
        return "does not apply"
    path = TREE / mutant.file
    original = path.read_text()
    path.write_text(text)
    try:
        if not built(mutant.program):
            return "does not build"
        return "survived" if passes(mutant.program, mutant.tests, seconds) else "caught"
    finally:
        path.write_text(original)


def plant(mutants):
    copy_tree()
    subprocess.run(CONFIGURE, check=True)
    totals = {}
    for program in sorted({mutant.program for mutant in mutants}):
        group = [mutant for mutant in mutants if mutant.program == program]
        if not built(program):
            sys.exit(f"{program} does not build")
        seconds = {}
        for tests in sorted({mutant.tests for mutant in group}):
            start = time.monotonic()
            if not passes(program, tests):
                sys.exit(f"{program} {tests}: does not pass without any fault, or is no test")
            seconds[tests] = SECONDS + 10 * (time.monotonic() - start)
        for mutant in group:
            start = time.monotonic()
            found = verdict(mutant, seconds[mutant.tests])
            totals[found] = totals.get(found, 0) + 1
            print(f"{found:<9} {program} {mutant.tests} ({time.monotonic() - start:.0f} s)\n          {mutant}", flush=True)
    print(f"{len(mutants)} faults planted: " + ", ".join(f"{count} {found}" for found, count in sorted(totals.items())))
    return 0 if totals == {"caught": len(mutants)} else 1


def main(words):
    mutants = all_mutants()
    if words == ["--check"]:
        return check(mutants)
    wanted = [m for m in mutants if not words or any(word in f"{m.program} {m.file} {m.tests}" for word in words)]
    return plant(wanted) if wanted else sys.exit("no such faults")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
