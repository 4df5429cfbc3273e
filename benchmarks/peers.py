"""The rows by h5py and PyTables, each as its users write it.

The benchmarks ask by lines "peer|row|size" and get the seconds of one turn, -1 for a row that the peer doesn't know; the
size 0 asks for that alone.
"""
import os
import sys
import time
import warnings

import h5py
import numpy as np
import tables

warnings.filterwarnings("ignore")
READING = np.dtype([("time", "f8"), ("value", "f8"), ("error", "f8"), ("channel", "i4"), ("flags", "i4"), ("text", "S8")])
MILLION = 1_000_000
SMALL = np.arange(1, 9, dtype="f8")
COLUMNS = 16
FLOATS = tables.Float64Atom()
STORAGES = {"128 KiB chunks": (1024, 0), "2 MiB chunks": (16384, 0), "deflated 2 MiB chunks": (16384, 1)}
ROWS = {}
cached = {}


def path(name):
    return os.path.join(os.environ.get("TARNWICKHDF_BENCH_DIR", "."), "peers-" + name)


def row(name, prepare, h5py=None, PyTables=None):
    """`prepare(peer, size)` gives a list that begins with what is closed after the turn; `do(*list, size)` is measured."""
    ROWS[name] = {peer: (prepare, do) for peer, do in (("h5py", h5py), ("PyTables", PyTables)) if do}


def turn(peer, name, size):
    prepare, do = ROWS[name][peer]
    things = prepare(peer, size)
    begin = time.perf_counter()
    do(*things, size)
    seconds = time.perf_counter() - begin
    things[0].close()
    return seconds


def open_file(peer, name, mode):
    return (h5py.File if peer == "h5py" else tables.open_file)(path(f"{peer}-{name}.h5"), mode)


def new(peer, size):
    return [open_file(peer, "new", "w")]


def stored(name, make, node=None, mode="r"):
    """A file that the first turn of a size makes by `make(file, size)`, one function for each peer, and a node of it."""
    def prepare(peer, size):
        if (peer, name, size) not in cached:
            with open_file(peer, f"{name}-{size}", "w") as file:
                make[peer](file, size)
            cached[peer, name, size] = True
        file = open_file(peer, f"{name}-{size}", mode)
        return [file, file["/" + node] if peer == "h5py" else file.get_node("/" + node)] if node else [file]
    return prepare


def both(h5py_make, tables_make):
    return {"h5py": h5py_make, "PyTables": tables_make}


def data_of(size, make):
    """The data of a size, made once."""
    if (make, size) not in cached:
        cached[make, size] = make(size)
    return cached[make, size]


def filters_of(deflate):
    """Shuffle and deflate, as h5py's arguments and as PyTables' filters."""
    if not deflate:
        return {}, None
    return (dict(shuffle=True, compression="gzip", compression_opts=deflate),
            tables.Filters(complevel=deflate, shuffle=True, complib="zlib"))


class Nothing:
    def close(self):
        pass


def files():
    def each_file(open_one, mode, work):
        def do(_, count):
            for i in range(count):
                with open_one(path(f"files/f{i:06d}"), mode) as file:
                    work(file)
        return do

    def mark_tables(file):
        file.root._v_attrs["__vorl_api_version"] = np.uint32(1)

    def nothing(peer, size):
        os.makedirs(path("files"), exist_ok=True)
        return [Nothing()]

    row("files and groups/create and close files", nothing,
        each_file(h5py.File, "w", lambda file: file.attrs.create("__vorl_api_version", [1], dtype="u4")),
        each_file(tables.open_file, "w", mark_tables))
    row("files and groups/open and close files", nothing, each_file(h5py.File, "r", lambda file: None),
        each_file(tables.open_file, "r", lambda file: None))


def group_paths(levels):
    def path_of(i):
        above = [f"group{i // 10 ** level}" for level in range(levels - 1, 0, -1)]
        return "/".join([*above, f"leaf{i:06d}"])
    return [path_of(i) for i in range(10000)]


def groups():
    def with_h5py(file, levels):
        for name in data_of(levels, group_paths):
            file.create_group(name)

    def with_tables(file, levels):
        for name in data_of(levels, group_paths):
            parent, _, leaf = ("/" + name).rpartition("/")
            file.create_group(parent or "/", leaf, createparents=True)

    row("files and groups/create 10,000 groups", new, with_h5py, with_tables)


def child_names(count):
    return [f"child{i:06d}" for i in range(count)]


def for_each_child(work):
    def do(file, count):
        for name in data_of(count, child_names):
            work(file, name)
    return do


def shape(node):
    return node, node.dtype, node.shape


def small_arrays():
    table_row = np.zeros(1, [("value", "f8"), ("number", "i4")])
    create_arrays = both(for_each_child(lambda file, name: file.create_dataset(name, data=SMALL, chunks=(8,))),
                         for_each_child(lambda file, name: file.create_carray("/", name, obj=SMALL, chunkshape=(8,))))
    arrays = stored("arrays", create_arrays)
    some_tables = stored("tables", both(
        for_each_child(lambda file, name: file.create_dataset(name, data=table_row, chunks=(1,))),
        for_each_child(lambda file, name: file.create_table("/", name, obj=table_row, chunkshape=(1,)))))
    some_groups = stored("groups", both(for_each_child(lambda file, name: file.create_group(name)),
                                        for_each_child(lambda file, name: file.create_group("/", name))))

    def add(work, prepare, with_h5py, with_tables):
        row("small arrays/" + work, prepare, with_h5py, with_tables)

    def list_h5py(wants_tables):
        return lambda file, _: [shape(d) for d in file.values() if bool(d.dtype.fields) == wants_tables]

    def list_tables(kind):
        return lambda file, _: [shape(d) for d in file.list_nodes("/", kind)]

    def is_growing_array(file, name):
        return "/" + name in file and isinstance(file.get_node("/", name), tables.EArray)

    add("create arrays of 8 doubles", new, create_arrays["h5py"], create_arrays["PyTables"])
    add("open arrays, ask for type and shape", arrays, for_each_child(lambda file, name: shape(file[name])),
        for_each_child(lambda file, name: shape(file.get_node("/", name))))
    add("ask whether arrays are there", arrays, for_each_child(lambda file, name: name in file),
        for_each_child(lambda file, name: "/" + name in file))
    add("ask whether arrays are extensible", arrays,
        for_each_child(lambda file, name: name in file and None in file[name].maxshape), for_each_child(is_growing_array))
    add("list arrays", arrays, list_h5py(False), list_tables("Array"))
    add("list tables", some_tables, list_h5py(True), list_tables("Table"))
    add("list no arrays among tables", some_tables, list_h5py(False), list_tables("Array"))
    add("list no tables among arrays", arrays, list_h5py(True), list_tables("Table"))
    add("list groups", some_groups, lambda file, _: [g for g in file.values() if isinstance(g, h5py.Group)],
        lambda file, _: file.list_nodes("/", "Group"))
    add("count groups", some_groups, lambda file, _: sum(file.get(n, getclass=True) is h5py.Group for n in file),
        lambda file, _: len(file.root._v_groups))


# The kinds of data of data_sets.cpp, as many elements of each.

def counts(count):
    return np.random.default_rng(1).integers(0, 1024, count).astype("f8")


def walk(count):
    return np.random.default_rng(1).integers(-8, 9, count, "i4").cumsum(dtype="i4")


def sines(count):
    i = np.arange(count)
    return 3 * np.sin(i / 1000) + np.sin(i / 77) + np.sin(i / 13) / 10


def noisy_counts(count):
    noise = np.random.default_rng(1).normal(0, 8, count)
    return np.clip(np.rint(2048 + 1500 * np.sin(np.arange(count) / 500) + noise), 0, 4095).astype("i2")


def measurements(count):
    random = np.random.default_rng(1)
    columns = (1.7e9 + np.arange(count) / 100, sines(count), random.normal(0, 8, count), walk(count), noisy_counts(count),
               random.choice([b"ok", b"ok", b"ok", b"low", b"high"], count))
    return np.rec.fromarrays(columns, READING).view(np.ndarray)


def repeated_rows(count):
    i = np.arange(count)
    columns = (i / 100, counts(count), 0 * i, i % 16, 0 * i, np.char.add(b"row ", (i % 1000).astype("S3")))
    return np.rec.fromarrays(columns, READING).view(np.ndarray)


def make_data_set(kind, deflate=0, chunk=0, count=0):
    """A data set as each peer makes it by default: contiguous, or in chunks of its own choice where filtered."""
    filters, tables_filters = filters_of(deflate)

    def data_for(size):
        return data_of(count or size // kind(1).itemsize, kind)

    def by_h5py(file, size):
        file.create_dataset("data", data=data_for(size), chunks=(chunk,) if chunk else None, **filters)

    def by_tables(file, size):
        data = data_for(size)
        if data.dtype.fields:
            node = file.create_table("/", "data", obj=data, filters=tables_filters, expectedrows=len(data),
                                     chunkshape=chunk or None)
        elif deflate or chunk:
            node = file.create_carray("/", "data", obj=data, filters=tables_filters, chunkshape=(chunk,) if chunk else None)
        else:
            node = file.create_array("/", "data", obj=data)
        node.close()
    return both(by_h5py, by_tables)


def whole(family, word, kind, deflate=0):
    """Writing and reading whole; arrays are read into memory that is there, which h5py and PyTables can't do for tables."""
    def read_h5py(_, node, size):
        node[:] if family == "tables" else node.read_direct(data_of(size // node.dtype.itemsize, kind))

    def read_tables(_, node, size):
        node.read() if family == "tables" else node.read(out=data_of(size // node.dtype.itemsize, kind))

    make = make_data_set(kind, deflate)
    row(f"{family}/write{word}", new, make["h5py"], make["PyTables"])
    row(f"{family}/read{word}", stored(f"{family}{word}", make, "data"), read_h5py, read_tables)


def parts(family, element, kind):
    length = (16 << 20) // kind(1).itemsize

    def add(work, read, **storage):
        there = stored(f"{family}-{work}", make_data_set(kind, count=length, **storage), "data")
        row(f"{family}/{work}", there, read, read)

    def read_every(stride):
        def do(_, node, count):
            for _ in range(10):
                node[0:count * stride:stride]
        return do

    add(f"read every n-th {element} of 16 MiB", lambda _, node, stride: node[::stride], chunk=length)
    add(f"read a run of {element}s", lambda _, node, size: node[0:length], chunk=length)
    add(f"read every 500th {element} of a contiguous data set, 10 times", read_every(500))
    add(f"read every 20th {element} in chunks of 1,024, 10 times", read_every(20), chunk=1024)


def data_sets():
    whole("arrays", "", counts)
    whole("tables", "", repeated_rows)
    for deflate in 1, 6:
        word = f" with shuffle and deflate {deflate}, "
        for kind, name in ((walk, "random walk of ints"), (sines, "sines in doubles"), (counts, "counts in doubles"),
                           (noisy_counts, "noisy 12-bit counts in shorts")):
            whole("arrays", word + name, kind, deflate)
        for kind, name in (measurements, "measurements"), (repeated_rows, "rows that repeat"):
            whole("tables", word + name, kind, deflate)
    parts("arrays", "element", counts)
    parts("tables", "row", repeated_rows)
    row("tables/read a column of texts", stored("tables", make_data_set(repeated_rows), "data"),
        lambda _, node, size: [s.decode() for s in node["text"]], lambda _, node, size: [s.decode() for s in node.col("text")])
    for word, pick in ("sorted", in_order), ("shuffled", shuffled), ("each four times", repeated):
        selections(word, pick)


def attributes(word, objects_for):
    def texts(count):
        return [f"channel {i}, Grad Celsius" for i in range(count)]

    def keys(count):
        return [f"attribute{i:06d}" for i in range(count)]

    def objects(file, count, peer):
        made = [f"object{i:06d}" for i in range(objects_for(count))]
        if peer == "h5py":
            return [file.require_group(name) for name in made]
        return [file.get_node("/" + name) if "/" + name in file else file.create_group("/", name) for name in made]

    def fresh(peer, count):
        file = open_file(peer, "new", "w")
        return [file, objects(file, count, peer)]

    def there(peer, count):
        file, = stored("attributes-" + word.replace(" ", "-"), make, mode="r+")(peer, count)
        return [file, objects(file, count, peer)]

    def for_each(work):
        def do(_, nodes, count):
            each = count // len(nodes)
            for node in nodes:
                for key, text in zip(data_of(each, keys), data_of(each, texts)):
                    work(node, key, text)
        return do

    def set_h5py(node, key, text):
        encoded = text.encode()
        node.attrs.create(key, [encoded], dtype=h5py.string_dtype("utf-8", len(encoded)))

    set_all = both(for_each(set_h5py), for_each(lambda node, key, text: node._v_attrs.__setitem__(key, text)))
    make = both(lambda file, count: set_all["h5py"](file, objects(file, count, "h5py"), count),
                lambda file, count: set_all["PyTables"](file, objects(file, count, "PyTables"), count))
    row(f"attributes/set texts on {word}", fresh, set_all["h5py"], set_all["PyTables"])
    row(f"attributes/get texts of {word}", there, for_each(lambda node, key, _: node.attrs[key]),
        for_each(lambda node, key, _: node._v_attrs[key]))
    row(f"attributes/list names of {word}", there, lambda _, nodes, count: [list(n.attrs) for n in nodes],
        lambda _, nodes, count: [list(n._v_attrs._v_attrnames) for n in nodes])


def line_of(length):
    return np.arange(length, dtype="f8") % 100


def extensible_arrays(word, chunk_rows, deflate):
    filters, both_filters = filters_of(deflate)

    def create(peer, file, shape):
        if peer == "h5py":
            return file.create_dataset("rows", shape, maxshape=(None, None), chunks=(chunk_rows, COLUMNS), dtype="f8",
                                       **filters)
        return file.create_earray("/", "rows", FLOATS, shape, filters=both_filters,
                                  chunkshape=(chunk_rows, COLUMNS))

    def empty(shape_of):
        def prepare(peer, size):
            file = open_file(peer, "new", "w")
            return [file, create(peer, file, shape_of(size))]
        return prepare

    def block(rows):
        return data_of(rows * COLUMNS, line_of).reshape(rows, COLUMNS)

    def append_rows_h5py(step):
        def do(_, node, count):
            rows = block(step)
            for at in range(0, count, step):
                node.resize(at + step, axis=0)
                node[at:at + step] = rows
            node.flush()
        return do

    def append_rows_tables(step):
        def do(_, node, count):
            rows = block(step)
            for _ in range(count // step):
                node.append(rows)
            node.flush()
        return do

    def append_columns_h5py(_, node, count):
        for column in range(COLUMNS):
            node.resize(column + 1, axis=1)
            node[:, column] = data_of(count, line_of)
        node.flush()

    def append_columns_tables(_, node, count):
        for _ in range(COLUMNS):
            node.append(data_of(count, line_of).reshape(count, 1))
        node.flush()

    def read_rows(step):
        def do(_, node, count):
            for at in range(0, count, step):
                node[at] if step == 1 else node[at:at + step]
        return do

    def read_columns(_, node, count):
        for column in range(COLUMNS):
            node[:, column]

    def make(peer):
        def do(file, count):
            node = create(peer, file, (count, COLUMNS) if peer == "h5py" else (0, COLUMNS))
            block = np.repeat(data_of(count, line_of), COLUMNS).reshape(count, COLUMNS)
            node.write_direct(block) if peer == "h5py" else node.append(block)
        return do

    by_rows, by_columns = empty(lambda size: (0, COLUMNS)), empty(lambda size: (size, 0))
    there = stored("extensible-" + word.replace(" ", "-"), both(make("h5py"), make("PyTables")), "rows")
    for blocks, step in ("", 1), (" in blocks of 1,000", 1000):
        row(f"extensible arrays/append rows{blocks} and flush, {word}", by_rows, append_rows_h5py(step), append_rows_tables(step))
        row(f"extensible arrays/read rows{blocks}, {word}", there, *2 * [read_rows(step)])
    row(f"extensible arrays/append 16 columns and flush, {word}", by_columns, append_columns_h5py, append_columns_tables)
    row(f"extensible arrays/read 16 columns, {word}", there, *2 * [read_columns])


def opened_extensible_arrays():
    chunk = (1024, COLUMNS)
    some = stored("open-extensible", both(
        for_each_child(lambda file, name: file.create_dataset(name, (0, COLUMNS), "f8", maxshape=(None, None), chunks=chunk)),
        for_each_child(lambda file, name: file.create_earray("/", name, FLOATS, (0, COLUMNS), chunkshape=chunk))))
    row("extensible arrays/open, ask for type and shape", some, for_each_child(lambda file, name: shape(file[name])),
        for_each_child(lambda file, name: shape(file.get_node("/" + name))))


def selections(word, pick):
    there = stored("million", make_data_set(repeated_rows, count=MILLION), "data", "r+")

    def buffer():
        return data_of(MILLION, repeated_rows)

    def pick_h5py(_, node, count):
        # A mask is h5py's fastest way, and gives rows in ascending order and each once: numpy puts them in place.
        rows = data_of(count, pick)
        mask = np.zeros(MILLION, bool)
        mask[rows] = True
        _, back = np.unique(rows, return_inverse=True)
        node[mask][back]

    def scatter(_, node, count):
        buffer()[data_of(count, pick)] = node[100:100 + count]

    def collect_h5py(_, node, count):
        node[100:100 + count] = buffer()[data_of(count, pick)]

    def collect_tables(_, node, count):
        node.modify_rows(100, 100 + count, rows=buffer()[data_of(count, pick)])
        node.flush()

    row("tables/read selected rows of a million, " + word, there, pick_h5py,
        lambda _, node, count: node.read_coordinates(data_of(count, pick)))
    row("tables/read a run to selected rows of a buffer, " + word, there, scatter, scatter)
    row("tables/write selected rows of a buffer to a run, " + word, there, collect_h5py, collect_tables)


def in_order(count):
    return np.arange(count) * (MILLION // count)


def shuffled(count):
    return np.random.default_rng(1).permutation(in_order(count))


def repeated(count):
    return np.tile(shuffled(count)[:count // 4], 4)


def types():
    stored_types = [h5py.h5t.py_create(np.dtype(d))
                    for d in "i1 u1 i2 u2 i4 u4 i8 u8 i8 u8 i8 u8 f4 f8 f4 f8 S1".split()]
    row("types/translate HDF5 types", lambda peer, size: [Nothing()], lambda _, size: [t.dtype for t in stored_types])


def main():
    files()
    groups()
    small_arrays()
    data_sets()
    for word, (chunk_rows, deflate) in STORAGES.items():
        extensible_arrays(word, chunk_rows, deflate)
    opened_extensible_arrays()
    attributes("many objects, 5 each", lambda count: count // 5)
    attributes("one object", lambda count: 1)
    types()
    for line in sys.stdin:
        peer, name, size = line.rstrip("\n").split("|")
        known = peer in ROWS.get(name, {})
        print(turn(peer, name, int(size)) if known and int(size) else (0 if known else -1), flush=True)


if __name__ == "__main__":
    main()
