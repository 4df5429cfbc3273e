"""Reads with h5py and PyTables what typed_test.cpp has stored in OURS, and stores it anew in THEIRS, in a group for each
of the two, with something of their own beside it. Usage: typed_foreign.py OURS THEIRS"""
import sys

import h5py
import numpy as np
import tables

NUMBERS = "int8 int16 int32 int64 uint8 uint16 uint32 uint64 float32 float64".split()


def turned(rows):
    """The rows with their columns in another order, one of another number type, and one more."""
    columns = [(name, "u2" if name == "time" else rows.dtype[name]) for name in reversed(rows.dtype.names)]
    copy = np.zeros(rows.shape, [*columns, ("extra", "u1")])
    for name in rows.dtype.names:
        copy[name] = rows[name]
    return copy


def copy_numbers(arrays, attributes, set_array, set_attribute):
    for name in NUMBERS:
        for value in (arrays(name), attributes(name), attributes(name + "_scalar")):
            assert value.dtype == name, (name, value)
        set_array(name, arrays(name))
        set_attribute(name, attributes(name))
        set_attribute(name + "_scalar", attributes(name + "_scalar"))
    set_array("matrix", arrays("matrix"))


def add_own(set_array, set_attribute):
    set_array("scalar", np.float64(4.5))
    set_array("words", np.array([b"sun", b"rain"]))
    set_attribute("text", "Zürich")
    set_attribute("words", np.array([b"a", b"bcd"]))
    set_attribute("nothing", "")
    set_attribute("big_endian", np.array([1, -2], ">i4"))
    set_attribute("yes", np.bool_(True))
    set_attribute("mixed", np.array([False, True]))


def copy_by_h5py(ours, theirs):
    with h5py.File(ours) as read, h5py.File(theirs, "w") as write:
        group = write.create_group("h5py")
        copy_numbers(lambda name: read[name][()], read.attrs.__getitem__, group.__setitem__, group.attrs.__setitem__)
        add_own(group.__setitem__, group.attrs.__setitem__)
        assert read.attrs["yes"] is np.True_ and read.attrs["mixed"].tolist() == [False, True]
        group["table"] = turned(read["table"][()])
        group["log"] = read["log"][()]
        group["texts"] = list(read["texts"].asstr())
        group["one text"] = read["texts"].asstr()[1]
        group.attrs["texts"] = [text.decode() for text in read.attrs["texts"]]
        group["rows of texts"] = np.array([[b"a", b"b"], [b"c", b"d"]])
        group["one row"] = read["table"]["place"][0]
        group.create_dataset("variable texts", (1,), [("station", h5py.string_dtype())])


def copy_by_pytables(ours, theirs):
    with tables.open_file(ours) as read, tables.open_file(theirs, "a") as write:
        group = write.create_group("/", "PyTables")
        set_array = lambda name, value: write.create_array(group, name, value)
        copy_numbers(lambda name: read.get_node("/" + name).read(), read.root._v_attrs.__getitem__, set_array,
                     group._v_attrs.__setitem__)
        add_own(set_array, group._v_attrs.__setitem__)
        write.create_table(group, "table", turned(read.root.table.read()))
        assert read.root.texts.read()[1].decode() == "Zürich"


copy_by_h5py(*sys.argv[1:])
copy_by_pytables(*sys.argv[1:])
