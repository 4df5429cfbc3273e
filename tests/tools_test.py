"""Tests the tools as a user starts them. Usage: tools_test.py TREE PLOT"""
import importlib.machinery
import importlib.util
import json
import re
import subprocess
import sys
import tempfile
import unittest
from collections import namedtuple
from datetime import datetime, timedelta, timezone
from pathlib import Path

import h5py
import numpy as np

TREE, PLOT = (str(Path(program).resolve()) for program in sys.argv[1:3])
FOREIGN = Path(__file__).parent.parent / "examples" / "foreign.py"


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)


class EachTool(InAFolder):
    def test_tells_its_use_and_its_version(self):
        for program in (TREE, PLOT):
            with self.subTest(program=program):
                help_ = run(program, "--help")
                version = run(program, "--version")

                self.assertEqual((help_.returncode, version.returncode), (0, 0))
                self.assertIn(f"sage: {Path(program).name} ", help_.stdout)
                self.assertRegex(version.stdout, rf"^{Path(program).name} \d+\.\d+\.\d+")

    def test_has_a_status_of_its_own_for_a_wrong_use(self):
        for program in (TREE, PLOT):
            for arguments in ((), ("--no-such-option", "a", "b")):
                with self.subTest(program=program, arguments=arguments):
                    result = run(program, *arguments)

                    self.assertEqual(result.returncode, 2)
                    self.assertIn("sage: ", result.stderr)

    def test_says_which_file_is_missing(self):
        for program in (TREE, PLOT):
            with self.subTest(program=program):
                result = run(program, "missing", *["picture.png"] * (program == PLOT), cwd=self.folder)

                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, rf"^{Path(program).name}: .*missing")


class Tree(InAFolder):
    def lines_of(self, path):
        result = run(TREE, path)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.splitlines()

    def test_tells_why_a_data_set_opens_as_nothing(self):
        Case = namedtuple("Case", "name data reason")
        cases = [Case("big-endian", np.arange(5, dtype=">i4"),
                      "invalid HDF type (integer of 4 bytes, big-endian; 1 dimension)"),
                 Case("boolean", np.array([True]), "invalid HDF type (enumeration of 1 byte; 1 dimension)"),
                 Case("cube", np.zeros((2, 3, 4)),
                      "there's no support for arrays with more than 2 dimensions (float of 8 bytes; 3 dimensions)"),
                 Case("plane", np.zeros((2, 2), dtype=[("a", "f8")]),
                      "could not open Table 'plane' (compound of 8 bytes: a float; 2 dimensions)")]
        path = self.folder / "nothing.h5"
        with h5py.File(path, "w") as file:
            for case in cases:
                file[case.name] = case.data

        lines = self.lines_of(path)

        for case in cases:
            self.assertIn(f"/{case.name}  data set that opens as nothing: {case.reason}", lines)

    def test_prints_what_others_wrote_and_a_group_with_two_names_once(self):
        path = self.folder / "foreign.h5"
        run(sys.executable, FOREIGN, path, check=True)

        lines = self.lines_of(path)

        self.assertIn("/numbers/compact  array of Int64, length 4, components 1", lines)
        self.assertIn('  @unit = "mm"', lines)
        self.assertIn("/links/external  external link to / in other.h5", lines)
        self.assertIn("/links/loop  group, the same as /", lines)

    def test_fails_if_its_output_is_lost(self):
        path = self.folder / "some.h5"
        h5py.File(path, "w").close()

        with open("/dev/full", "w") as full:
            result = subprocess.run([TREE, str(path)], stdout=full, stderr=subprocess.PIPE, text=True)

        self.assertEqual((result.returncode, result.stderr), (1, "tarnwickhdf-tree: the output can't be written\n"))


START = datetime(2026, 11, 25, 21, 0, 0, tzinfo=timezone(timedelta(hours=1)))


def sample(index, seconds):
    counts = {"file_count": 1, "group_count": 2, "dataset_count": 0, "attr_count": 0, "datatype_count": 0}
    time = (START + timedelta(seconds=seconds)).strftime("%Y-%m-%dT%H:%M:%S%z")
    return json.dumps({"index": index, "timestamp": time, "total_heap_used_bytes": 1000 * index,
                       "files": [{**counts, "cache_size": 5}]})


def load_plot():
    loader = importlib.machinery.SourceFileLoader("plot_memory_log", PLOT)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    sys.modules[loader.name] = module
    loader.exec_module(module)
    return module


class Plot(InAFolder):
    def setUp(self):
        super().setUp()
        self.log = self.folder / "memory.log"

    def test_begins_a_run_where_the_index_goes_back_and_passes_over_what_is_no_sample(self):
        self.log.write_text("\n".join([sample(0, 0), sample(1, 9), '{"index":2,"timest', sample(0, 60), sample(5, 70)]))

        runs = load_plot().runs_of(self.log)

        self.assertEqual([run.name for run in runs], ["memory.log, run 1", "memory.log, run 2"])
        self.assertEqual([[one.index for one in run.samples] for run in runs], [[0, 1], [0, 5]])
        self.assertEqual(runs[1].samples[0].time, START + timedelta(seconds=60))

    def test_lets_samples_of_one_second_share_it(self):
        seconds = [START, START, START + timedelta(seconds=1), START + timedelta(seconds=2)]

        shared = load_plot().spread(seconds)

        self.assertEqual([(time - START).total_seconds() for time in shared], [0, 0.5, 1, 2])

    def test_draws_one_sample_and_several_runs(self):
        self.log.write_text(sample(7, 0))
        other = self.folder / "other.log"
        other.write_text("\n".join([sample(0, 90000), sample(1, 90009), sample(0, 180000)]))

        for arguments in ((self.log, "one.png"), (self.log, other, "times.png"),
                          ("--since-start", self.log, other, "together.svg")):
            result = run(PLOT, *arguments, cwd=self.folder)

            self.assertEqual((result.returncode, result.stderr), (0, ""), arguments)
            self.assertGreater((self.folder / arguments[-1]).stat().st_size, 1000)

    def test_says_that_a_log_has_no_sample(self):
        self.log.write_text("")

        result = run(PLOT, self.log, "picture.png", cwd=self.folder)

        self.assertEqual((result.returncode, re.sub(r".*/", "", result.stderr)), (1, "memory.log: no sample in it\n"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
