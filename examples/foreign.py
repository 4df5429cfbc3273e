"""Writes a file with types and links that the library never writes. Usage: foreign.py FILE"""
import sys

import h5py
import numpy as np

with h5py.File(sys.argv[1], "w") as file:
    file.attrs["title"] = "written by h5py"
    file.attrs["version"] = np.int32(3)
    file.attrs["axes"] = ["time", "height"]
    file.attrs["flag"] = True
    file.attrs["big-endian"] = np.arange(3, dtype=">i4")
    file.attrs["two\nlines"] = "first\nsecond"
    strings = file.create_group("strings")
    strings["variable"] = ["sun", "Zürich", ""]
    strings["fixed"] = np.array([b"sun", b"rain"])
    numbers = file.create_group("numbers")
    numbers["scalar"] = 4.5
    numbers["big-endian"] = np.arange(5, dtype=">i4")
    numbers["boolean"] = np.array([True, False])
    numbers["half"] = np.arange(3, dtype="f2")
    numbers["cube"] = np.zeros((2, 3, 4))
    numbers["complex"] = np.array([1 + 2j])
    numbers["opaque"] = np.array([b"\x01\x02"], dtype="V2")
    numbers["references"] = np.array([file.ref], dtype=h5py.ref_dtype)
    numbers["empty"] = h5py.Empty("f8")
    numbers["compact"] = np.arange(4, dtype="i8")
    numbers.create_dataset("growing", data=np.ones((3, 2)), maxshape=(None, 2))
    numbers["compact"].attrs["unit"] = "mm"
    tables = file.create_group("tables")
    inner = np.dtype([("x", "f8"), ("y", "f8")])
    tables["nested"] = np.zeros(2, dtype=[("place", inner), ("count", "i4"), ("flags", "u1", 3), ("name", "S8")])
    tables["enumeration"] = np.zeros(2, dtype=[("color", h5py.enum_dtype({"red": 0, "blue": 1}, basetype="i1"))])
    tables.create_dataset("sequences", (2,), dtype=h5py.vlen_dtype("i4"))
    links = file.create_group("links")
    links["soft"] = h5py.SoftLink("/numbers/scalar")
    links["dangling"] = h5py.SoftLink("/nowhere")
    links["external"] = h5py.ExternalLink("other.h5", "/")
    links["type"] = np.dtype("f8")
    links["hard"] = numbers["scalar"]
    links["loop"] = file["/"]
