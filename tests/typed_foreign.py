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


def copy(read_array, attributes, set_array, own_attributes):
    for name in NUMBERS:
        assert read_array(name).dtype == name
        set_array(name, read_array(name))
        for attribute in name, name + "_scalar":
            assert attributes[attribute].dtype == name
            own_attributes[attribute] = attributes[attribute]
    set_array("matrix", read_array("matrix"))
    set_array("scalar", np.float64(4.5))
    set_array("words", np.array([b"sun", b"rain"]))
    own_attributes["text"] = "Zürich"
    own_attributes["words"] = np.array([b"a", b"bcd"])
    own_attributes["nothing"] = ""
    own_attributes["big_endian"] = np.array([1, -2], ">i4")
    own_attributes["yes"] = np.bool_(True)
    own_attributes["mixed"] = np.array([False, True])


ours, theirs = sys.argv[1:]
with h5py.File(ours) as read, h5py.File(theirs, "w") as write:
    group = write.create_group("h5py")
    copy(lambda name: read[name][()], read.attrs, group.__setitem__, group.attrs)
    assert read.attrs["yes"] is np.True_ and read.attrs["mixed"].tolist() == [False, True]
    group["table"] = turned(read["table"][()])
    group["log"] = read["log"][()]
    group["texts"] = list(read["texts"].asstr())
    group["one text"] = read["texts"].asstr()[1]
    group.attrs["texts"] = [text.decode() for text in read.attrs["texts"]]
    group["rows of texts"] = np.array([[b"a", b"b"], [b"c", b"d"]])
    group["one row"] = read["table"]["place"][0]
    group.create_dataset("variable texts", (1,), [("station", h5py.string_dtype())])
with tables.open_file(ours) as read, tables.open_file(theirs, "a") as write:
    group = write.create_group("/", "PyTables")
    copy(lambda name: read.get_node("/" + name).read(), read.root._v_attrs,
         lambda name, value: write.create_array(group, name, value), group._v_attrs)
    write.create_table(group, "table", turned(read.root.table.read()))
    assert read.root.texts.read()[1].decode() == "Zürich"
