"""The same work by h5py and PyTables on the same data; prints the seconds of each as JSON."""
import json
import os
import sys
import time
import warnings

import h5py
import numpy as np
import tables

warnings.filterwarnings("ignore")
QUICK = "TARNWICKHDF_BENCH_QUICK" in os.environ
FOLDER = os.environ.get("TARNWICKHDF_BENCH_DIR", ".")
REPEATS = 1 if QUICK else 3
ROW = np.dtype([("time", "f8"), ("value", "f8"), ("error", "f8"), ("channel", "i4"), ("flags", "i4"), ("text", "S8")])
ROWS = 1_000_000
SMALL = np.arange(1, 9, dtype="f8")
results = {}


def path(name):
    return os.path.join(FOLDER, name)


def measure(peer, work, size, prepare, do):
    """The median of a few runs; `prepare` opens what `do` works on and gives a tuple that begins with the file."""
    seconds = []
    for _ in range(REPEATS):
        things = prepare()
        begin = time.perf_counter()
        do(*things)
        seconds.append(time.perf_counter() - begin)
        things[0].close()
        if sum(seconds) > 2:
            break
    results.setdefault(f"{work}/{size}", {})[peer] = sorted(seconds)[len(seconds) // 2]
    print(f"{peer} {work}/{size}", file=sys.stderr)


def h5(name, mode="w"):
    return lambda: (h5py.File(path(name), mode),)


def pt(name, mode="w"):
    return lambda: (tables.open_file(path(name), mode),)


def h5_node(name, node, mode="r"):
    def prepare():
        file = h5py.File(path(name), mode)
        return file, file[node]
    return prepare


def pt_node(name, node, mode="r"):
    def prepare():
        file = tables.open_file(path(name), mode)
        return file, file.get_node("/" + node)
    return prepare


def filters_of(deflate):
    """Shuffle and deflate, as h5py's arguments and as PyTables' filters."""
    if not deflate:
        return {}, None
    return (dict(shuffle=True, compression="gzip", compression_opts=deflate),
            tables.Filters(complevel=deflate, shuffle=True, complib="zlib"))


def new_extensible(shape, chunk_rows, deflate):
    """How h5py and PyTables open a new file with an extensible array."""
    filters, both = filters_of(deflate)

    def prepare_h5py():
        file = h5py.File(path("rows-h5py.h5"), "w")
        return file, file.create_dataset("rows", shape, maxshape=(None, None), chunks=(chunk_rows, 16), dtype="f8",
                                         **filters)

    def prepare_tables():
        file = tables.open_file(path("rows-tables.h5"), "w")
        return file, file.create_earray("/", "rows", tables.Float64Atom(), shape, filters=both,
                                        chunkshape=(chunk_rows, 16))

    return prepare_h5py, prepare_tables


def names(prefix, count):
    return [f"{prefix}{i:06d}" for i in range(count)]


class Nothing:
    def close(self):
        pass


def files(count):
    os.makedirs(path("files-peers"), exist_ok=True)
    paths = [path(f"files-peers/f{i:06d}") for i in range(count)]

    def with_h5py(mode):
        def do(_):
            for p in paths:
                with h5py.File(p, mode) as file:
                    if mode == "w":
                        file.attrs.create("__vorl_api_version", [1], dtype="u4")
        return do

    def with_tables(mode):
        def do(_):
            for p in paths:
                with tables.open_file(p, mode) as file:
                    if mode == "w":
                        file.root._v_attrs["__vorl_api_version"] = np.uint32(1)
        return do

    for work, mode in (("create", "w"), ("open", "r")):
        measure("h5py", f"files/{work}", count, lambda: (Nothing(),), with_h5py(mode))
        measure("PyTables", f"files/{work}", count, lambda: (Nothing(),), with_tables(mode))


def group_path(i, levels):
    parts, above = [f"leaf{i:06d}"], i
    for _ in range(levels - 1):
        above //= 10
        parts.insert(0, f"group{above}")
    return "/".join(parts)


def groups(count, levels):
    paths = [group_path(i, levels) for i in range(count)]

    def with_h5py(file):
        for p in paths:
            file.create_group(p)

    def with_tables(file):
        for p in paths:
            parent, _, leaf = ("/" + p).rpartition("/")
            file.create_group(parent or "/", leaf, createparents=True)

    measure("h5py", f"groups/create-{levels}-levels", count, h5("peers.h5"), with_h5py)
    measure("PyTables", f"groups/create-{levels}-levels", count, pt("peers.h5"), with_tables)


def small_arrays(count):
    children = names("child", count)

    def create_h5py(file):
        for name in children:
            file.create_dataset(name, data=SMALL, chunks=(8,))

    def create_tables(file):
        for name in children:
            file.create_carray("/", name, obj=SMALL, chunkshape=(8,))

    def open_h5py(file):
        for name in children:
            data = file[name]
            data.dtype, data.shape

    def open_tables(file):
        for name in children:
            data = file.get_node("/", name)
            data.dtype, data.shape

    def has_h5py(file):
        for name in children:
            name in file

    def has_tables(file):
        for name in children:
            "/" + name in file

    measure("h5py", "arrays/create", count, h5("small-h5py.h5"), create_h5py)
    measure("PyTables", "arrays/create", count, pt("small-tables.h5"), create_tables)
    measure("h5py", "arrays/open", count, h5("small-h5py.h5", "r"), open_h5py)
    measure("PyTables", "arrays/open", count, pt("small-tables.h5", "r"), open_tables)
    measure("h5py", "arrays/has", count, h5("small-h5py.h5", "r"), has_h5py)
    measure("PyTables", "arrays/has", count, pt("small-tables.h5", "r"), has_tables)
    def has_growing_h5py(file):
        for name in children:
            name in file and None in file[name].maxshape

    def has_growing_tables(file):
        for name in children:
            "/" + name in file and isinstance(file.get_node("/", name), tables.EArray)

    measure("h5py", "arrays/has-as-extensible", count, h5("small-h5py.h5", "r"), has_growing_h5py)
    measure("PyTables", "arrays/has-as-extensible", count, pt("small-tables.h5", "r"), has_growing_tables)
    list_arrays = (lambda file: [(d, d.dtype, d.shape) for d in file.values() if not d.dtype.fields],
                   lambda file: [(d, d.dtype, d.shape) for d in file.list_nodes("/", "Array")])
    list_tables = (lambda file: [(d, d.dtype, d.shape) for d in file.values() if d.dtype.fields],
                   lambda file: [(d, d.dtype, d.shape) for d in file.list_nodes("/", "Table")])
    groups_of, tables_of = f"groups-of-{count}.h5", f"tables-of-{count}.h5"
    row = np.zeros(1, [("value", "f8"), ("number", "i4")])
    with h5py.File(path(groups_of), "w") as of_groups, h5py.File(path(tables_of), "w") as of_tables:
        for name in children:
            of_groups.create_group(name)
            of_tables.create_dataset(name, data=row, chunks=(1,))
    measure("h5py", "list/groups", count, h5(groups_of, "r"),
            lambda file: [g for g in file.values() if isinstance(g, h5py.Group)])
    measure("PyTables", "list/groups", count, pt(groups_of, "r"), lambda file: file.list_nodes("/", "Group"))
    measure("h5py", "list/count-groups", count, h5(groups_of, "r"),
            lambda file: sum(file.get(n, getclass=True) is h5py.Group for n in file))
    measure("PyTables", "list/count-groups", count, pt(groups_of, "r"), lambda file: file.root._v_ngroups
            if hasattr(file.root, "_v_ngroups") else len(file.root._v_groups))
    for work, (with_h5py, with_tables), paths in (
            ("list/arrays", list_arrays, ("small-h5py.h5", "small-tables.h5")),
            ("list/tables", list_tables, (tables_of, tables_of)),
            ("list/arrays-among-tables", list_arrays, (tables_of, tables_of)),
            ("list/tables-among-arrays", list_tables, ("small-h5py.h5", "small-tables.h5"))):
        measure("h5py", work, count, h5(paths[0], "r"), with_h5py)
        measure("PyTables", work, count, pt(paths[1], "r"), with_tables)


def whole_arrays(size, deflate):
    rng = np.random.default_rng(1)
    data = rng.integers(0, 1024, size // 8).astype("f8")
    word = f"deflate-{deflate}" if deflate else "plain"
    filters, both = filters_of(deflate)
    out = np.empty_like(data)
    measure("h5py", f"whole/write-{word}", size, h5("whole-h5py.h5"),
            lambda file: file.create_dataset("array", data=data, chunks=data.shape, **filters))
    measure("PyTables", f"whole/write-{word}", size, pt("whole-tables.h5"),
            lambda file: file.create_carray("/", "array", obj=data, chunkshape=data.shape, filters=both))

    measure("h5py", f"whole/read-{word}", size, h5_node("whole-h5py.h5", "array"),
            lambda _, data_set: data_set.read_direct(out))
    measure("PyTables", f"whole/read-{word}", size, pt_node("whole-tables.h5", "array"),
            lambda _, data_set: data_set.read(out=out))


def hyperslabs():
    size = 16 << 20
    data = np.arange(size // 8, dtype="f8")
    with h5py.File(path("slab-peers.h5"), "w") as file:
        file.create_dataset("array", data=data, chunks=data.shape)

    for stride in (1, 2, 16):
        measure("h5py", f"hyperslab/stride-{stride}", size, h5_node("slab-peers.h5", "array"),
                lambda _, data_set: data_set[::stride])
        measure("PyTables", f"hyperslab/stride-{stride}", size, pt_node("slab-peers.h5", "array"),
                lambda _, data_set: data_set[::stride])


def attributes(objects, count, word):
    keys = names("attribute", count)
    values = [f"channel {i}, Grad Celsius" for i in range(count)]
    encoded = [v.encode() for v in values]
    types = [h5py.string_dtype("utf-8", len(v)) for v in encoded]
    size = objects * count

    def prepare_h5py(mode):
        def prepare():
            file = h5py.File(path("attributes-h5py.h5"), mode)
            return file, [file.require_group(n) for n in names("object", objects)]
        return prepare

    def prepare_tables(mode):
        def prepare():
            file = tables.open_file(path("attributes-tables.h5"), mode)
            make = file.create_group if mode == "w" else file.get_node
            return file, [make("/", n) for n in names("object", objects)]
        return prepare

    def set_h5py(_, nodes):
        for node in nodes:
            for key, value, kind in zip(keys, encoded, types):
                node.attrs.create(key, [value], dtype=kind)

    def set_tables(_, nodes):
        for node in nodes:
            for key, value in zip(keys, values):
                node._v_attrs[key] = value

    def get_h5py(_, nodes):
        for node in nodes:
            for key in keys:
                node.attrs[key]

    def get_tables(_, nodes):
        for node in nodes:
            for key in keys:
                node._v_attrs[key]

    for work, mode, with_h5py, with_tables in (
            ("set", "w", set_h5py, set_tables), ("get", "r+", get_h5py, get_tables),
            ("list", "r+", lambda _, nodes: [list(n.attrs) for n in nodes],
             lambda _, nodes: [list(n._v_attrs._v_attrnames) for n in nodes])):
        measure("h5py", f"attributes/{work}-{word}", size, prepare_h5py(mode), with_h5py)
        measure("PyTables", f"attributes/{work}-{word}", size, prepare_tables(mode), with_tables)


def extensible(rows, word, chunk_rows, deflate=0):
    line = np.arange(16, dtype="f8")
    prepare_h5py, prepare_tables = new_extensible((0, 16), chunk_rows, deflate)

    def append_h5py(_, data_set):
        for row in range(rows):
            data_set.resize(row + 1, axis=0)
            data_set[row] = line

    def append_tables(_, data_set):
        for _ in range(rows):
            data_set.append(line.reshape(1, 16))
        data_set.flush()

    def read(_, data_set):
        for row in range(rows):
            data_set[row]

    def read_columns(_, data_set):
        for column in range(16):
            data_set[:, column]

    measure("h5py", f"extensible/append-rows-{word}", rows, prepare_h5py, append_h5py)
    measure("PyTables", f"extensible/append-rows-{word}", rows, prepare_tables, append_tables)
    for work, do in ("read-rows", read), ("read-16-columns", read_columns):
        measure("h5py", f"extensible/{work}-{word}", rows, h5_node("rows-h5py.h5", "rows"), do)
        measure("PyTables", f"extensible/{work}-{word}", rows, pt_node("rows-tables.h5", "rows"), do)


def appended_columns(word, chunk_rows, deflate=0):
    rows, column = 10000, np.arange(10000, dtype="f8")
    prepare_h5py, prepare_tables = new_extensible((rows, 0), chunk_rows, deflate)

    def append_h5py(_, data_set):
        for i in range(16):
            data_set.resize(i + 1, axis=1)
            data_set[:, i] = column

    def append_tables(_, data_set):
        for _ in range(16):
            data_set.append(column.reshape(rows, 1))
        data_set.flush()

    measure("h5py", f"extensible/append-16-columns-{word}", rows, prepare_h5py, append_h5py)
    measure("PyTables", f"extensible/append-16-columns-{word}", rows, prepare_tables, append_tables)


def table(rows):
    data = np.zeros(rows, ROW)
    data["time"] = np.arange(rows) / 100
    data["text"] = np.char.add(b"row ", (np.arange(rows) % 1000).astype("S3"))

    def write_tables(file):
        file.create_table("/", "table", description=data, chunkshape=rows, expectedrows=rows).flush()

    measure("h5py", "table/write", rows, h5("table-h5py.h5"),
            lambda file: file.create_dataset("table", data=data, chunks=(rows,)))
    measure("PyTables", "table/write", rows, pt("table-tables.h5"), write_tables)
    for work, peers in {
            "table/read": (lambda _, t: t[:], lambda _, t: t.read()),
            "table/hyperslab-stride-4": (lambda _, t: t[::4], lambda _, t: t.read(step=4)),
            "table/string-column": (lambda _, t: [s.decode() for s in t["text"]],
                                    lambda _, t: [s.decode() for s in t.col("text")])}.items():
        measure("h5py", work, rows, h5_node("table-h5py.h5", "table"), peers[0])
        measure("PyTables", work, rows, pt_node("table-tables.h5", "table"), peers[1])
    if rows == ROWS:
        selections(data.copy())


def selections(buffer):
    for count in (1000, 10000) if QUICK else (1000, 10000, 100000):
        ordered = np.arange(count) * (ROWS // count)
        shuffled = np.random.default_rng(1).permutation(ordered)
        repeated = np.tile(shuffled[:count // 4], 4)
        for word, rows in (("sorted", ordered), ("shuffled", shuffled), ("repeated", repeated)):
            # A mask is h5py's fastest way, and gives rows in ascending order and each once: numpy puts them in place.
            def pick_h5py(_, t, rows=rows):
                mask = np.zeros(ROWS, bool)
                mask[rows] = True
                unique, back = np.unique(rows, return_inverse=True)
                t[mask][back]

            def scatter_h5py(_, t, rows=rows):
                buffer[rows] = t[100:100 + len(rows)]

            def scatter_tables(_, t, rows=rows):
                buffer[rows] = t.read(100, 100 + len(rows))

            def collect_h5py(_, t, rows=rows):
                t[100:100 + len(rows)] = buffer[rows]

            def collect_tables(_, t, rows=rows):
                t.modify_rows(100, 100 + len(rows), rows=buffer[rows])
                t.flush()

            for work, with_h5py, with_tables in (
                    ("rows-to-buffer", pick_h5py, lambda _, t, rows=rows: t.read_coordinates(rows)),
                    ("run-to-rows", scatter_h5py, scatter_tables), ("rows-to-run", collect_h5py, collect_tables)):
                measure("h5py", f"selection/{work}-{word}", count, h5_node("table-h5py.h5", "table", "r+"), with_h5py)
                measure("PyTables", f"selection/{work}-{word}", count, pt_node("table-tables.h5", "table", "r+"),
                        with_tables)


def types():
    stored = [h5py.h5t.py_create(np.dtype(d)) for d in "i1 u1 i2 u2 i4 u4 i8 u8 i8 u8 i8 u8 f4 f8 f4 f8 S1".split()]
    measure("h5py", "types/translate", len(stored), lambda: (Nothing(),), lambda _: [t.dtype for t in stored])


def main():
    sizes = (lambda *all_sizes: all_sizes[:-1] if QUICK else all_sizes)
    for count in sizes(10, 100, 1000):
        files(count)
    for levels in range(1, 7):
        groups(1000 if QUICK else 10000, levels)
    for count in sizes(1000, 10000, 50000):
        small_arrays(count)
    for deflate in (0, 1, 6):
        for size in sizes(8 << 10, 512 << 10, 8 << 20, 64 << 20, 512 << 20):
            whole_arrays(size, deflate)
    hyperslabs()
    for objects in sizes(100, 500, 2000):
        attributes(objects, 5, "on-many-objects")
    for count in (10, 100, 1000):
        attributes(1, count, "on-one-object")
    for word, chunk_rows, deflate in (
            ("small-chunks", 1024, 0), ("large-chunks", 16384, 0), ("large-deflated-chunks", 16384, 1)):
        for rows in (100,) if deflate else sizes(100, 1000, 10000, 100000):
            extensible(rows, word, chunk_rows, deflate)
        appended_columns(word, chunk_rows, deflate)
    for rows in sizes(10000, 100000, ROWS):
        table(rows)
    types()
    json.dump(results, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
