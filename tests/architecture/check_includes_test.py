#!/usr/bin/env python3
"""Plants one fault of each kind in a small tree and sees check_includes find it."""
import tempfile
import unittest
from pathlib import Path

from check_includes import check

SOUND = {
    "include/kmxf/kmxf.h": ["kmxf/core/A.h", "kmxf/writer/W.h"],
    "include/kmxf/core/A.h": [],
    "include/kmxf/writer/W.h": ["kmxf/core/A.h"],
    "src/core/B.h": ["kmxf/core/A.h"],
    "src/collaborators/F.h": ["core/B.h"],
    "src/structures/S.h": ["core/B.h"],
    "src/writer/W.cpp": ["kmxf/writer/W.h", "structures/S.h", "collaborators/F.h"],
    "src/reader/R.h": ["structures/S.h"],
    "src/tools/T.cpp": ["kmxf/writer/W.h", "reader/R.h"],
}


def faults_with(changes):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name, includes in {**SOUND, **changes}.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("#include <vector>\n" + "".join(f'#include "{target}"\n' for target in includes))
        return check(root)[1]


class CheckIncludes(unittest.TestCase):
    def test_a_sound_tree_has_no_faults(self):
        self.assertEqual(faults_with({}), [])

    def test_an_include_that_runs_up_a_floor(self):
        self.assertEqual(faults_with({"src/structures/Up.cpp": ["kmxf/writer/W.h"]}),
                         ["src/structures/Up.cpp: structures may not include writer (include/kmxf/writer/W.h)"])

    def test_structures_stand_beside_the_collaborators(self):
        self.assertEqual(faults_with({"src/structures/Up.cpp": ["collaborators/F.h"]}),
                         ["src/structures/Up.cpp: structures may not include collaborators (src/collaborators/F.h)"])

    def test_reader_and_writer_do_not_know_each_other(self):
        self.assertEqual(faults_with({"src/writer/X.cpp": ["reader/R.h"]}),
                         ["src/writer/X.cpp: writer may not include reader (src/reader/R.h)"])

    def test_a_folder_that_is_no_subsystem(self):
        self.assertEqual(faults_with({"src/misc/X.cpp": ["core/B.h"]}),
                         ["src/misc/X.cpp: misc may not include core (src/core/B.h)"])

    def test_a_public_header_that_needs_an_internal_one(self):
        self.assertEqual(faults_with({"include/kmxf/core/A.h": ["core/C.h"], "src/core/C.h": []}),
                         ["include/kmxf/core/A.h: a public header includes the internal src/core/C.h"])

    def test_a_circle_between_files(self):
        self.assertEqual(faults_with({"src/core/C.h": ["core/D.h"], "src/core/D.h": ["core/E.h"], "src/core/E.h": ["core/C.h"]}),
                         ["circle: src/core/C.h -> src/core/D.h -> src/core/E.h -> src/core/C.h"])

    def test_an_include_that_leads_nowhere(self):
        self.assertEqual(faults_with({"src/core/X.cpp": ["core/Gone.h"]}),
                         ['src/core/X.cpp: "core/Gone.h" is neither in include/ nor in src/'])

    def test_a_public_header_that_kmxf_h_forgets(self):
        self.assertEqual(faults_with({"include/kmxf/core/New.h": []}),
                         ["include/kmxf/kmxf.h: does not include include/kmxf/core/New.h"])

    def test_the_whole_interface_pulled_in_from_inside(self):
        self.assertEqual(faults_with({"src/core/X.cpp": ["kmxf/kmxf.h"]}),
                         ["src/core/X.cpp: includes include/kmxf/kmxf.h instead of what it needs"])


if __name__ == "__main__":
    unittest.main()
