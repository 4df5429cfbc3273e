"""Tests the tools as a user starts them. Usage: tools_test.py TREE PLOT"""
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

import h5py
import numpy as np


def output_of(*command, status=0):
    """What a tool prints: to the standard output if it succeeds, else to the error output."""
    result = subprocess.run(command, text=True, capture_output=True)
    assert result.returncode == status, result
    return result.stdout if status == 0 else result.stderr


def each_tells_its_use_its_version_and_a_wrong_use(program, *missing):
    name = Path(program).name
    assert f"sage: {name} " in output_of(program, "--help")
    assert output_of(program, "--version").startswith(name + " ")
    assert "sage: " in output_of(program, status=2)
    assert output_of(program, *missing, status=1).startswith(name + ": ")


def tree_prints_each_object_once_and_why_a_data_set_opens_as_nothing(tree):
    with h5py.File("all.h5", "w") as file:
        file["array"] = np.arange(3)
        file["array"].attrs["unit"] = "mm"
        file["loop"] = file["/"]
        file["outside"] = h5py.ExternalLink("other.h5", "/")
        file["big-endian"] = np.arange(5, dtype=">i4")
        file["plane"] = np.zeros((2, 2), dtype=[("a", "f8")])

    printed = output_of(tree, "all.h5").splitlines()

    nothing = "data set that opens as nothing"
    for line in ("/array  array of Int64, length 3, components 1", '  @unit = "mm"', "/loop  group, the same as /",
                 "/outside  external link to / in other.h5",
                 f"/big-endian  {nothing}: invalid HDF type (integer of 4 bytes, big-endian; 1 dimension)",
                 f"/plane  {nothing}: could not open Table 'plane' (compound of 8 bytes: a float; 2 dimensions)"):
        assert line in printed, (line, printed)


def plot_draws_a_run_where_the_index_goes_back_and_passes_over_what_is_no_sample(plot):
    counts = dict.fromkeys(("file_count", "group_count", "dataset_count", "attr_count", "datatype_count"), 1)
    sample = {"timestamp": "2026-11-25T21:00:00+0100", "total_heap_used_bytes": 9,
              "files": [{**counts, "cache_size": 5}]}
    lines = [json.dumps({"index": index, **sample}) for index in (0, 1, 0, 5)]
    Path("memory.log").write_text("\n".join([*lines, '{"index":2,"timest']))

    output_of(plot, "--since-start", "memory.log", "runs.svg")

    drawn = Path("runs.svg").read_text()
    assert "<!-- memory.log, run 2 -->" in drawn and "run 3" not in drawn


TREE, PLOT = (str(Path(program).resolve()) for program in sys.argv[1:])
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    each_tells_its_use_its_version_and_a_wrong_use(TREE, "missing")
    each_tells_its_use_its_version_and_a_wrong_use(PLOT, "missing", "picture.png")
    tree_prints_each_object_once_and_why_a_data_set_opens_as_nothing(TREE)
    plot_draws_a_run_where_the_index_goes_back_and_passes_over_what_is_no_sample(PLOT)
