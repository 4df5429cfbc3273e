"""Tests the tools as a user starts them. Usage: tools_test.py TREE PLOT"""
import json
import subprocess
import sys
import tempfile
import unittest
from datetime import datetime, timedelta, timezone
from pathlib import Path

import h5py
import numpy as np

TREE, PLOT = (str(Path(program).resolve()) for program in sys.argv[1:3])
FOREIGN = Path(__file__).parent.parent / "examples" / "foreign.py"


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_tool(self, *command, status=0, **options):
        """What a tool prints: to the standard output if it succeeds, else to the error output."""
        output = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        result = subprocess.run([str(word) for word in command], cwd=self.folder, text=True, **output)
        self.assertEqual(result.returncode, status, result)
        return result.stdout if status == 0 else result.stderr


class EachTool(InAFolder):
    def test_tells_its_use_its_version_and_a_wrong_use(self):
        for program, missing in (TREE, ["missing"]), (PLOT, ["missing", "picture.png"]):
            name = Path(program).name
            with self.subTest(name):
                self.assertIn(f"sage: {name} ", self.run_tool(program, "--help"))
                self.assertRegex(self.run_tool(program, "--version"), rf"^{name} \d+\.\d+\.\d+")
                self.assertIn("sage: ", self.run_tool(program, status=2))
                self.assertIn("sage: ", self.run_tool(program, "--no-such-option", "a", "b", status=2))
                self.assertRegex(self.run_tool(program, *missing, status=1), rf"^{name}: .*missing")


class Tree(InAFolder):
    def test_tells_why_a_data_set_opens_as_nothing(self):
        with h5py.File(self.folder / "nothing.h5", "w") as file:
            file["big-endian"] = np.arange(5, dtype=">i4")
            file["boolean"] = np.array([True])
            file["cube"] = np.zeros((2, 3, 4))
            file["plane"] = np.zeros((2, 2), dtype=[("a", "f8")])

        printed = self.run_tool(TREE, "nothing.h5")

        for name, reason in {
                "big-endian": "invalid HDF type (integer of 4 bytes, big-endian; 1 dimension)",
                "boolean": "invalid HDF type (enumeration of 1 byte; 1 dimension)",
                "cube": "there's no support for arrays with more than 2 dimensions (float of 8 bytes; 3 dimensions)",
                "plane": "could not open Table 'plane' (compound of 8 bytes: a float; 2 dimensions)"}.items():
            self.assertIn(f"/{name}  data set that opens as nothing: {reason}\n", printed)

    def test_prints_what_others_wrote_and_a_group_with_two_names_once(self):
        subprocess.run([sys.executable, FOREIGN, self.folder / "foreign.h5"], check=True, capture_output=True)

        lines = self.run_tool(TREE, "foreign.h5").splitlines()

        self.assertIn("/numbers/compact  array of Int64, length 4, components 1", lines)
        self.assertIn('  @unit = "mm"', lines)
        self.assertIn("/links/external  external link to / in other.h5", lines)
        self.assertIn("/links/loop  group, the same as /", lines)

    def test_fails_if_its_output_is_lost(self):
        h5py.File(self.folder / "some.h5", "w").close()
        with open("/dev/full", "w") as full:
            self.assertEqual(self.run_tool(TREE, "some.h5", status=1, stdout=full),
                             "tarnwickhdf-tree: the output can't be written\n")


START = datetime(2026, 11, 25, 21, 0, 0, tzinfo=timezone(timedelta(hours=1)))


def sample(index, seconds):
    counts = {"file_count": 1, "group_count": 2, "dataset_count": 0, "attr_count": 0, "datatype_count": 0}
    time = (START + timedelta(seconds=seconds)).strftime("%Y-%m-%dT%H:%M:%S%z")
    return json.dumps({"index": index, "timestamp": time, "total_heap_used_bytes": 1000 * index,
                       "files": [{**counts, "cache_size": 5}]})


class Plot(InAFolder):
    def write_log(self, *lines, name="memory.log"):
        log = self.folder / name
        log.write_text("\n".join(lines))
        return log

    def test_draws_a_run_where_the_index_goes_back_and_passes_over_what_is_no_sample(self):
        log = self.write_log(sample(0, 0), sample(1, 0), '{"index":2,"timest', sample(0, 60), sample(5, 70))
        other = self.write_log(sample(7, 90000), name="other.log")
        for options in (), ("--since-start",):
            self.assertEqual(self.run_tool(PLOT, *options, log, other, "runs.svg"), "")

            drawn = (self.folder / "runs.svg").read_text()
            for run in "memory.log, run 1", "memory.log, run 2", "other.log":
                self.assertIn(f"<!-- {run} -->", drawn)
            self.assertNotIn("run 3", drawn)

    def test_says_that_a_log_has_no_sample(self):
        printed = self.run_tool(PLOT, self.write_log(), "picture.png", status=1)

        self.assertRegex(printed, "memory.log: no sample in it\n$")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
