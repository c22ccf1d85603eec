#!/usr/bin/env python3
"""Reads the #includes of a source tree and names each one that breaks the house rules; the exit status is 1 if there are any.

The rules: an include in quotes names a file of include/ or src/; a public header includes public headers only; a file
includes from its own subsystem and from the floors that the table allows; no file includes itself by way of others; and
kmxf/kmxf.h, which stands above all floors, includes every public header.
"""
import re
import sys
from pathlib import Path

MAY_INCLUDE = {
    "core": set(),
    "collaborators": {"core"},
    "structures": {"core"},
    "writer": {"core", "collaborators", "structures"},
    "reader": {"core", "collaborators", "structures"},
    "tools": {"core", "collaborators", "structures", "writer", "reader"},
}
UMBRELLA = Path("include/kmxf/kmxf.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def is_public(path):
    return path.parts[0] == "include"


def subsystem(path):
    return path.parts[2 if is_public(path) else 1]


def faults_of_include(path, named, target):
    if target is None:
        yield f'{path}: "{named}" is neither in include/ nor in src/'
        return
    if is_public(path) and not is_public(target):
        yield f"{path}: a public header includes the internal {target}"
    if target == UMBRELLA:
        yield f"{path}: includes {UMBRELLA} instead of what it needs"
    elif path != UMBRELLA:
        here, there = subsystem(path), subsystem(target)
        if here != there and there not in MAY_INCLUDE.get(here, set()):
            yield f"{path}: {here} may not include {there} ({target})"


def circles(graph):
    """Every include that leads back to a file the walk is still in."""
    done, trail = set(), []

    def walk(path):
        if path in trail:
            circle = trail[trail.index(path):] + [path]
            yield "circle: " + " -> ".join(map(str, circle))
            return
        if path in done:
            return
        trail.append(path)
        for target in graph[path]:
            yield from walk(target)
        trail.pop()
        done.add(path)

    for path in graph:
        yield from walk(path)


def check(root):
    files = sorted(path.relative_to(root) for folder in ("include", "src") for path in (root / folder).rglob("*")
                   if path.suffix in (".h", ".cpp"))
    known, graph, faults = set(files), {}, []
    for path in files:
        graph[path] = []
        for named in INCLUDE.findall((root / path).read_text()):
            target = next((Path(folder) / named for folder in ("include", "src") if Path(folder) / named in known), None)
            faults += faults_of_include(path, named, target)
            if target:
                graph[path].append(target)
    faults += [f"{UMBRELLA}: does not include {path}" for path in files
               if is_public(path) and path != UMBRELLA and path not in graph.get(UMBRELLA, [])]
    return files, faults + list(circles(graph))


if __name__ == "__main__":
    checked, found = check(Path(sys.argv[1]))
    print("\n".join(found) or f"{len(checked)} files keep to their floors")
    sys.exit(1 if found or not checked else 0)
