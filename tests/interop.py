"""HDF5's tools and PyTables on a file that the library wrote; the guide makes it and lists it. The pages' own
tests see what h5py and pandas read and what others wrote. Usage: interop.py GUIDE-PROGRAM"""
import os, subprocess, sys, tempfile
import tables

guide = os.path.abspath(sys.argv[1])


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


folder = tempfile.TemporaryDirectory()
os.chdir(folder.name)
for chapter in range(1, 9):  # the ninth lists what these wrote
    output_of(guide, str(chapter))
listing = output_of(guide, "9")
dumped = output_of("h5dump", "-p", "-d", "/readings", "-d", "/log", "station.h5")
assert all(text in dumped for text in ("DEFLATE { LEVEL 4 }", "CHUNKED ( 1024, 3 )", 'H5T_STD_I64LE "time"', '"south"'))

# A repacked file has the same contents, and the library reads it the same.
os.rename("station.h5", "original.h5")
output_of("h5repack", "-f", "GZIP=9", "original.h5", "station.h5")
output_of("h5diff", "original.h5", "station.h5")
assert output_of(guide, "9") == listing

# PyTables changes and extends an array that the library made, and HDF5 and the library see a sound file.
with tables.open_file("station.h5", "a") as file:
    file.root.log[0, 0] = 7.0
    file.root.log.append([[1.0, 2.0, 3.0]])
assert "Dataset {13/Inf, 3/Inf}" in output_of("h5ls", "station.h5/log")
assert output_of(guide, "9") == listing
print("other tools and the library agree")
