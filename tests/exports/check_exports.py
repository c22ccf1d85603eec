#!/usr/bin/env python3
"""check_exports.py NM LIBRARY LIST [--update]: holds the names that the library exports against the list, one name a line.

With --update the list is written anew; read the difference before committing it.
"""
import subprocess
import sys
from pathlib import Path

OURS = ("kmxf::", "jq_middle_common::")
TABLES = ("typeinfo for ", "typeinfo name for ", "vtable for ", "non-virtual thunk to ", "virtual thunk to ")


def exported(nm, library):
    lines = subprocess.run([nm, "-D", "--defined-only", "-C", library], check=True, capture_output=True, text=True)
    return sorted({line.split(" ", 2)[2] for line in lines.stdout.splitlines()})


def is_ours(name):
    for table in TABLES:
        name = name.removeprefix(table)
    return name.startswith(OURS)


def main(nm, library, list_file, update):
    names, path = exported(nm, library), Path(list_file)
    foreign = [name for name in names if not is_ours(name)]
    if update and not foreign:
        path.write_text("".join(name + "\n" for name in names))
    listed = path.read_text().splitlines()
    faults = [f"not ours, but exported: {name}" for name in foreign]
    faults += [f"exported, but not listed: {name}" for name in names if name not in listed]
    faults += [f"listed, but not exported: {name}" for name in listed if name not in names]
    print("\n".join(faults) or f"{len(names)} names, as listed")
    return 1 if faults or not names else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4], update="--update" in sys.argv[4:]))
