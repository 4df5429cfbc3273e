"""Other people's tools on a file that the library wrote. The guide's program writes it and reads it back; the pages'
own tests see what h5py and PyTables wrote. Usage: interop.py GUIDE-PROGRAM"""
import os
import subprocess
import sys
import tempfile

import h5py
import pandas
import tables

guide = os.path.abspath(sys.argv[1])
WRITING = range(1, 9)  # the guide's chapters that make station.h5
LISTING = "9"          # the one that lists it


def output_of(*command, status=0):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == status, f"{command}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout


def kinds_for_pytables():
    with tables.open_file("station.h5") as file:
        return {node._v_pathname: type(node).__name__ for node in file.walk_nodes("/", "Leaf")}


folder = tempfile.TemporaryDirectory()
os.chdir(folder.name)
for chapter in WRITING:
    output_of(guide, str(chapter))
listing = output_of(guide, LISTING)

with h5py.File("station.h5") as file:
    assert file["east and north"][:].tolist() == [[3.5, 1.0], [4.0, 2.5], [0.5, 7.0]]
    assert file["east and north"].attrs["unit"][0].decode() == "m/s"
    assert [name.decode() for name in file["names"]] == ["Seattle", "Zürich", "Oslo"]
    assert file["log"].maxshape == (None, None) and file["log"][11].tolist() == [11.0, 20.5, 1013.0]
    assert file["readings"]["station"].tolist() == [b"north", b"south", b"north"]

assert kinds_for_pytables() == {"/compressed/zeros": "CArray", "/east and north": "CArray", "/log": "EArray",
                                "/names": "CArray", "/picked": "Table", "/readings": "Table"}
frame = pandas.read_hdf("station.h5", "readings")
assert frame["temperature"].mean() == 20.75 and list(frame.columns) == ["time", "temperature", "station"]

assert "/log                     Dataset {12/Inf, 3/Inf}" in output_of("h5ls", "-r", "station.h5")
dumped = output_of("h5dump", "-p", "-d", "/readings", "-d", "/log", "station.h5")
assert all(text in dumped for text in ("DEFLATE { LEVEL 4 }", "CHUNKED ( 1024, 3 )", 'H5T_STD_I64LE "time"', '"south"'))

# A repacked file has the same contents, and the library reads it the same.
os.rename("station.h5", "original.h5")
output_of("h5repack", "-f", "GZIP=9", "original.h5", "station.h5")
output_of("h5diff", "original.h5", "station.h5")
assert output_of(guide, LISTING) == listing

# PyTables changes an array that the library made and appends to it, and h5diff and the library see a sound file.
with tables.open_file("station.h5", "a") as file:
    file.root.log[0, 0] = 7.0
assert "1 differences found" in output_of("h5diff", "original.h5", "station.h5", "/log", "/log", status=1)
with tables.open_file("station.h5", "a") as file:
    file.root.log.append([[1.0, 2.0, 3.0]])
assert "Dataset {13/Inf, 3/Inf}" in output_of("h5ls", "station.h5/log")
assert output_of(guide, LISTING) == listing
print("other tools and the library agree")
