"""What other writers store for typed_test.cpp to read, and what they read of its file.
Usage: typed_foreign.py write|check FILE"""
import sys
import h5py
import numpy as np
import tables

NUMBERS = "int8 int16 int32 int64 uint8 uint16 uint32 uint64 float32 float64".split()
PLACE = np.dtype([("east", "f8"), ("north", "f8")])
# The columns in another order than the C++ struct has them, of other number types, and one more.
ROW = np.dtype([("place", PLACE), ("extra", "u1"), ("station", "S8"), ("levels", "i8", 2), ("value", "f4"),
                ("unit", "S2"), ("time", "u2")])
READINGS = np.array([((1.5, -2.5), 0, b"north", [1, 2], 20.5, b"C", 100),
                     ((0, 0), 0, "Zürich".encode(), [-1, 1], -3.25, b"F", 160),
                     ((7, 8), 0, b"", [0, 0], 0.125, b"", 220)], ROW)


def extremes(name):
    info = np.iinfo(name) if "int" in name else np.finfo(name)
    return np.array([info.min, 1, info.max], name)


def store(set_array, set_attr):
    for name in NUMBERS:
        set_array(name, extremes(name))
        set_attr(name, extremes(name))
        set_attr(name + "_scalar", extremes(name)[2])
    set_array("scalar", np.float64(4.5))
    set_array("texts", np.array([b"sun", b"rain"]))
    set_attr("text", "Zürich")
    set_attr("texts", np.array([b"a", b"bcd"]))
    set_attr("nothing", "")
    set_attr("big_endian", np.array([1, -2], ">i4"))
    set_attr("yes", np.bool_(True))
    set_attr("mixed", np.array([False, True]))


def write(path):
    with tables.open_file(path, "w") as file:
        group = file.create_group("/", "PyTables")
        store(lambda name, value: file.create_array(group, name, value), group._v_attrs.__setitem__)
        file.create_table(group, "table", READINGS)
    with h5py.File(path, "a") as file:
        group = file.create_group("h5py")
        store(group.__setitem__, group.attrs.__setitem__)
        group["table"] = READINGS
        group["one row"] = np.array((1, 2), PLACE)
        group["variable"] = ["sun", "Zürich", ""]
        group["one text"] = "Zürich"
        group["rows of texts"] = np.array([[b"a", b"b"], [b"c", b"d"]])
        group.attrs["variable"] = ["sun", "Zürich", ""]
        group.create_dataset("variable texts", (1,), [("station", h5py.string_dtype())])


def same(value, expected):
    assert value.dtype == expected.dtype and value.shape == expected.shape and (value == expected).all(), value


def check_rows(rows):
    for column in "time", "value", "station", "unit", "levels", "place":
        assert rows[column].tolist() == READINGS[column].tolist(), rows


def check(path):
    with h5py.File(path) as file:
        for name in NUMBERS:
            same(file[name][()], extremes(name))
            same(file.attrs[name], extremes(name))
            same(file.attrs[name + " scalar"], extremes(name)[2])
        same(file["matrix"][()], np.array([[1, 2], [3, 4], [5, 6]], "i4"))
        same(file["log"][()], np.array([[1, 2], [3, 4]], "f4"))
        assert list(file["texts"].asstr()) == ["sun", "Zürich", ""]
        check_rows(file["table"][()])
        assert file.attrs["text"][0].decode() == "Zürich", file.attrs["text"]
        assert [text.decode() for text in file.attrs["texts"]] == ["Zürich", "x"]
        assert file.attrs["yes"] is np.True_ and file.attrs["mixed"].tolist() == [False, True]
    with tables.open_file(path) as file:
        for name in NUMBERS:
            same(file.get_node("/" + name).read(), extremes(name))
            same(file.root._v_attrs[name], extremes(name))
        assert [text.decode() for text in file.root.texts.read()] == ["sun", "Zürich", ""]
        check_rows(file.root.table.read())
        assert file.root.padded.read().tolist() == [(1, 1.5), (2, 2.5)]


{"write": write, "check": check}[sys.argv[1]](sys.argv[2])
