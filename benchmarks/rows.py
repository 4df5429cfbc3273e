"""The rows: what each measures, at which sizes, and how its sides do it.

The sides in C++ have their works in the .cpp files, by the name that a row's task gives. Those of h5py and PyTables stand here,
each as its users write it. `scripts/bench.sh --quick NAME` tries a row, and the next full run puts it on the pages.
"""
import io
import json
import os
import time
import warnings
from dataclasses import dataclass, field, replace
from functools import cache, partial

import h5py
import numpy as np
import tables

warnings.filterwarnings("ignore")
KIB, MIB, MILLION = 1 << 10, 1 << 20, 1_000_000
MARK = "__vorl_api_version"
ROWS = []
made = set()  # Files that are there.
PEERS = "h5py", "pytables"


def path(name):
    return os.path.join(os.environ.get("TARNWICKHDF_BENCH_DIR", "."), name)


@dataclass
class Row:
    name: str  # "family/work", or "family/work, beside another way" where plain HDF5 isn't measured by its best way.
    unit: str  # What a size counts.
    sizes: list  # A quick run has the first alone.
    target: float  # The highest ratio of library to plain that the project allows itself, or 0.
    reasons: list  # Why somebody is faster: (who or "*", text, largest size or none). The first that fits counts.
    task: object  # For the sides in C++: task(size) gives the fields of Task (Work.h).
    prepare: object = None  # For h5py and PyTables: prepare(peer, size) lists what a turn works on, first what is closed then.
    h5py: object = None  # What is measured of them: work(*prepared, size).
    pytables: object = None
    file: object = None  # The task that makes the file that is worked on; none for a new one each turn.
    mode: str = "r"  # In which that file is opened.
    differ: dict = field(default_factory=dict)  # What is different for one of library, plain and cpp; None: not measured.
    target_from: int = 0  # The smallest size that the target holds for.

    def __post_init__(self):
        ROWS.append(self)

    def sides(self):
        peers = [peer for peer in PEERS if getattr(self, peer)]
        return [side for side in ("library", "plain", "cpp") if self.differ.get(side, {}) is not None] + peers

    def turn(self, program, side, size, rounds, is_first):
        """Takes a turn of a side: gives the seconds of a round, the peak of the heap and the size of the file."""
        if side in PEERS:
            return self.turn_of_peer(side, size, rounds)
        fields = {"task": self.task, "file": self.file, **self.differ.get(side, {})}
        where = {"path": path("new.h5"), "mode": "w"}
        if fields["file"]:
            maker = {"side": "library", "count": size, **fields["file"](size)}
            where = {"path": path(f"made-{hash(json.dumps(maker, default=id))}.h5"), "mode": self.mode}
            if where["path"] not in made:
                program.turn(**{**maker, **where, "mode": "w"})
                made.add(where["path"])
        task = {"side": side, "count": size, **where, **fields["task"](size)}
        return program.turn(**task, rounds=rounds, isFirst=is_first)

    def turn_of_peer(self, peer, size, rounds):
        seconds = 0
        for _ in range(rounds):
            things = self.prepare(peer, size)
            begin = time.perf_counter()
            getattr(self, peer)(*things, size)
            seconds += time.perf_counter() - begin
            things[0].close()
        return seconds / rounds, 0, 0


def beside(way, target, others=None, **plain):
    """The last row's work beside another way of plain HDF5 than the best one."""
    row = ROWS[-1]
    replace(row, name=f"{row.name}, beside {way}", target=target, differ={**row.differ, "plain": plain, "cpp": None}, h5py=None,
            pytables=None, **others or {})


# What h5py and PyTables work on, and how their users make it.

def open_file(peer, name, mode):
    return (h5py.File if peer == "h5py" else tables.open_file)(path(f"{peer}-{name}.h5"), mode)


def of_both(work):
    return partial(work, "h5py"), partial(work, "pytables")


def new(peer, size):
    return [open_file(peer, "new", "w")]


def stored(make, mode="r"):
    """A file that the first turn of a size makes by `make(peer, file, size)`."""
    def prepare(peer, size):
        name = f"made-{hash((make, size))}"
        if (peer, name) not in made:
            with open_file(peer, name, "w") as file:
                make(peer, file, size)
            made.add((peer, name))
        return [open_file(peer, name, mode)]
    return prepare


def having(prepare, thing):
    """The file, and what is in it: `thing(peer, file, size)`."""
    def prepare_both(peer, size):
        file, = prepare(peer, size)
        return [file, thing(peer, file, size)]
    return prepare_both


def node_of(peer, file, name):
    return file[name] if peer == "h5py" else file.get_node("/" + name)


def create_group(peer, file, path):
    if peer == "h5py":
        return file.create_group(path)
    parent, _, leaf = ("/" + path).rpartition("/")
    return file.create_group(parent or "/", leaf, createparents=True)


def filters_of(peer, level):
    """Shuffle and deflate, as arguments."""
    if peer == "h5py":
        return {"shuffle": True, "compression": "gzip", "compression_opts": level} if level else {}
    return {"filters": tables.Filters(complevel=level, shuffle=True, complib="zlib")} if level else {}


def create(peer, file, name, data, chunks=None, level=0):
    """An array or a table; without chunks and level as each stores it by default."""
    filters = filters_of(peer, level)
    if peer == "h5py":
        return file.create_dataset(name, data=data, chunks=chunks, **filters)
    if data.dtype.fields:
        return file.create_table("/", name, obj=data, chunkshape=chunks, expectedrows=len(data), **filters)
    if chunks or level:
        return file.create_carray("/", name, obj=data, chunkshape=chunks, **filters)
    return file.create_array("/", name, obj=data)


@cache
def names(prefix, count):
    return [f"{prefix}{i:06d}" for i in range(count)]


def files():
    def each_file(peer, mode, work=lambda file: None):
        def do(_, count):
            for name in names("file-", count):
                with open_file(peer, name, mode) as file:
                    work(file)
        return do

    def nothing(peer, count):
        return [io.BytesIO()]

    def created(peer, count):
        (create_h5py if peer == "h5py" else create_tables)(None, count)
        return nothing(peer, count)

    def task(work):
        return lambda count: {"work": work, "names": names(path("file-"), count), "path": ""}

    create_h5py = each_file("h5py", "w", lambda file: file.attrs.create(MARK, [1], dtype="u4"))
    create_tables = each_file("pytables", "w", lambda file: file.set_node_attr("/", MARK, np.uint32(1)))
    reason = "each open makes its own access list and asks for the file's name and root group: a file that is open is seen"
    common = "files", [10, 100, 1000], 1.15, [("*", reason)], task("files")
    Row("files and groups/create and close files", *common, nothing, create_h5py, create_tables)
    beside("an access list for each", 0, task=task("files, a list each"))
    Row("files and groups/open and close files", *common, created, each_file("h5py", "r"), each_file("pytables", "r"),
        file=task("files"))


@cache
def group_paths(levels):
    """Each group holds ten of the next level, so that most levels of a path are there, as in a tree of measurements."""
    def above(i):
        return "".join(f"group{i // 10 ** level}/" for level in range(levels - 1, 0, -1))
    return [f"{above(i)}leaf{i:06d}" for i in range(10000)]


def groups():
    def create_all(peer, file, levels):
        for name in group_paths(levels):
            create_group(peer, file, name)

    Row("files and groups/create 10,000 groups", "levels =", [1, 2, 3, 4, 5, 6], 1.15,
        [("*", "each group is an object with its own name and pointers that the file knows of")],
        lambda levels: {"work": "create groups", "names": group_paths(levels)}, new, *of_both(create_all))


# Small objects in the root group.

def child_task(work, kind=""):
    return lambda count: {"work": work, "names": names("child", count), "kind": kind}


def for_each_child(work):
    def do(file, count):
        for name in names("child", count):
            work(file, name)
    return do


def children(make):
    """A file of what `make(peer, file, name)` makes."""
    return stored(lambda peer, file, count: [make(peer, file, name) for name in names("child", count)])


def shape(node):
    return node, node.dtype, node.shape


open_h5py = for_each_child(lambda file, name: shape(file[name]))
open_tables = for_each_child(lambda file, name: shape(file.get_node("/" + name)))


def small_arrays():
    def create_array(peer, file, name, numbers=np.arange(1, 9, dtype="f8")):
        create(peer, file, name, numbers, (8,))

    def create_table(peer, file, name, row=np.zeros(1, [("value", "f8"), ("number", "i4")])):
        create(peer, file, name, row, (1,))

    arrays = children(create_array), child_task("create arrays")
    some_tables = children(create_table), child_task("create tables")
    some_groups = children(create_group), child_task("create groups")

    def add(name, reason, task, there, *sides, target=1.15, who="*", **others):
        prepare, file = there
        Row("small arrays/" + name, "children", [1000, 10000, 50000], target, [(who, reason)], task, prepare, *sides, file=file,
            **others)

    def list_h5py(wants_tables):
        return lambda file, _: [shape(d) for d in file.values() if bool(d.dtype.fields) == wants_tables]

    def list_tables(kind):
        return lambda file, _: [shape(d) for d in file.list_nodes("/", kind)]

    def is_growing_array(file, name):
        return "/" + name in file and isinstance(file.get_node("/", name), tables.EArray)

    own_object = "each child becomes an object that stands for itself, with the types of its columns for tables"
    add("create arrays of 8 doubles", "a property list and a space are made for each array; a list that is kept keeps an id open",
        child_task("create arrays"), (new, None), *map(for_each_child, of_both(create_array)), target=1.10)
    add("open arrays, ask for type and shape", own_object, child_task("open"), arrays, open_h5py, open_tables)
    add("ask whether arrays are extensible", "the array is opened as an extensible one, which is refused in words",
        child_task("open"), arrays, for_each_child(lambda file, name: name in file and None in file[name].maxshape),
        for_each_child(is_growing_array), differ={"library": {"task": child_task("is extensible")}})
    add("ask whether arrays are there", "a path is walked level by level, so that a missing level is no error", child_task("has"),
        arrays, for_each_child(lambda file, name: name in file), for_each_child(lambda file, name: "/" + name in file))
    beside("opening them", 1.15, task=child_task("open"))
    for name, kind, there in (("list arrays", "arrays", arrays), ("list tables", "tables", some_tables),
                              ("list no arrays among tables", "arrays", some_tables),
                              ("list no tables among arrays", "tables", arrays)):
        add(name, own_object, child_task("list", kind), there, list_h5py(kind == "tables"), list_tables(kind[:-1].capitalize()))
    add("list groups", own_object, child_task("list", "groups"), some_groups,
        lambda file, _: [g for g in file.values() if isinstance(g, h5py.Group)], lambda file, _: file.list_nodes("/", "Group"))
    add("count groups", "PyTables reads all names when it opens the file, outside of what is measured", child_task("count groups"),
        some_groups, lambda file, _: sum(file.get(n, getclass=True) is h5py.Group for n in file),
        lambda file, _: len(file.root._v_groups), who="pytables")


# Arrays and tables. What is stored: so many elements of each kind.

READING = np.dtype([("time", "f8"), ("value", "f8"), ("error", "f8"), ("channel", "i4"), ("flags", "i4"), ("text", "S8")])
WHOLE = 1 << 60  # A chunk that holds all.


@cache
def counts(count):
    """What a converter of 10 bits gives, kept in doubles."""
    return np.random.default_rng(1).integers(0, 1024, count).astype("f8")


@cache
def walk(count):
    return np.random.default_rng(1).integers(-8, 9, count, "i4").cumsum(dtype="i4")


@cache
def sines(count):
    i = np.arange(count)
    return 3 * np.sin(i / 1000) + np.sin(i / 77) + np.sin(i / 13) / 10


@cache
def noisy_counts(count):
    """What a converter of 12 bits gives of a sine with noise, kept in shorts."""
    noise = np.random.default_rng(1).normal(0, 8, count)
    return np.clip(np.rint(2048 + 1500 * np.sin(np.arange(count) / 500) + noise), 0, 4095).astype("i2")


@cache
def measurements(count):
    """A time stamp, channels like those above and a short text."""
    random = np.random.default_rng(1)
    columns = (1.7e9 + np.arange(count) / 100, sines(count), random.normal(0, 8, count), walk(count), noisy_counts(count),
               random.choice([b"ok", b"ok", b"ok", b"low", b"high"], count))
    return np.rec.fromarrays(columns, READING).view(np.ndarray)


@cache
def repeated_rows(count):
    """Hardly more than a line number and texts that come again every thousand rows."""
    i = np.arange(count)
    columns = (i / 100, counts(count), 0 * i, i % 16, 0 * i, np.char.add(b"row ", (i % 1000).astype("S3")))
    return np.rec.fromarrays(columns, READING).view(np.ndarray)


@dataclass(frozen=True)
class Stored:
    """A data set of a kind of data, with so many elements or of as many bytes as a row's size says."""
    kind: object
    level: int = 0  # Of deflate, with shuffle.
    chunk: int = WHOLE  # Elements of a chunk of plain HDF5; 0: contiguous.
    count: int = 0
    peers_chunk: tuple = None  # None: as each does it by default.

    def data(self, size):
        return self.kind(self.count or size // self.kind(1).itemsize)

    def task(self, work, **fields):
        return lambda size: {"work": work, "data": self.data(size), "level": self.level, "chunk": self.chunk, **fields}

    def file(self):
        return self.task("write", side="plain")

    def write(self, peer, file, size):
        node = create(peer, file, "data", self.data(size), self.peers_chunk, self.level)
        if peer == "pytables":
            node.close()

    def there(self, mode="r"):
        return having(stored(self.write, mode), lambda peer, file, size: node_of(peer, file, "data"))


def whole(family, word, data, sizes, targets, reasons, one_chunk=None):
    """Writing and reading whole; targets hold for data that are worth the name.

    Arrays are read into memory that is there, which h5py and PyTables can't do for tables. The library's one chunk stands
    against a contiguous data set, and beside `one_chunk`.
    """
    def read_h5py(_, node, size):
        node[:] if family == "tables" else node.read_direct(data.data(size))

    def read_tables(_, node, size):
        node.read() if family == "tables" else node.read(out=data.data(size))

    Row(f"{family}/write{word}", "bytes", sizes, targets[0], reasons, data.task("write"), new, *of_both(data.write),
        target_from=8 * MIB)
    if one_chunk:
        beside("one chunk", 1.02, {"reasons": [FIXED_COST]}, task=one_chunk.task("write"))
    Row(f"{family}/read{word}", "bytes", sizes, targets[1], reasons + OTHER_FILE + HUGE_PAGES, data.task(f"read {family}"),
        data.there(), read_h5py, read_tables, file=data.file(), mode="r+", target_from=8 * MIB)
    if one_chunk:
        ROWS[-1].differ["library"] = {"file": one_chunk.file()}
        beside("one chunk", 1.02, {"reasons": [FIXED_COST]}, file=one_chunk.file())


def parts(family, element, kind):
    """Reading every so many elements of 16 MiB, and the first of them."""
    length = 16 * MIB // kind(1).itemsize

    def add(name, unit, sizes, target, reasons, data, read, fields, work="read a stride"):
        def task(work):
            return lambda size: data.task(f"{work} of {family}", **fields(size))(size)

        Row(f"{family}/{name}", unit, sizes, target, reasons, task("read a stride"), data.there(), read, read,
            file=data.file(), mode="r+", differ={"plain": {"task": task(work)}})

    def read_every(stride):
        def do(_, node, count):
            for _ in range(10):
                node[0:count * stride:stride]
        return do

    one_chunk = Stored(kind, 0, WHOLE, length, (length,))
    add(f"read every n-th {element} of 16 MiB", "n =", [16, 4, 2], 1.02,
        [("plain", "the program reads the whole array into memory of its own; the library takes 0.6 MiB")], one_chunk,
        lambda _, node, n: node[::n], lambda n: {"stride": n, "count": length // n}, "read all and pick")
    beside("HDF5's selection", 1.02, task=ROWS[-1].task)
    add(f"read a run of {element}s", "bytes", [16 * MIB], 1.02, [], one_chunk, lambda _, node, size: node[0:length],
        lambda size: {"count": length})
    for name, stride, sizes, data in (
            (f"500th {element} of a contiguous data set", 500, [16, 256, length // 512], Stored(kind, 0, 0, length)),
            (f"20th {element} in chunks of 1,024", 20, [256, 4096, length // 20], Stored(kind, 0, 1024, length, (1024,)))):
        add(f"read every {name}, 10 times", element + "s", sizes, 1.05,
            [("*", "a fixed cost of each handle: it is asked whether its chunks are large", 256)], data, read_every(stride),
            lambda count, stride=stride: {"stride": stride, "count": count, "times": 10})


FIXED_COST = "*", "a fixed cost of each call, which larger data hide", 512 * KIB
CHUNK = "*", "HDF5 copies a chunk of up to 1 MiB through its cache, and each call has a fixed cost", 512 * KIB
HUGE_PAGES = [(who, "numpy's buffers lie on huge pages, which takes a tenth off a large read") for who in ("h5py", "pytables")]
OTHER_FILE = [(who, "the bytes of another file, whose pages lie elsewhere: from run to run the ratio is 0.85 to 1.17")
              for who in ("plain", "cpp")]
SMALL_CHUNKS = "its chunks fit the processor's cache, the library stores one chunk"
DEFLATE = "*", ("what libdeflate gains depends on the data: least for noise, and for long repeats, which zlib skips; from level 5 on "
                "the effort is the one that makes nothing larger than zlib does")
TABLE_SIZES = [512 * KIB, 8 * MIB, 64 * MIB]
FAMILIES = (("arrays", "element", [8 * KIB, *TABLE_SIZES, 512 * MIB],
             {"random walk of ints": walk, "sines in doubles": sines, "noisy 12-bit counts in shorts": noisy_counts,
              "counts in doubles": counts}),
            ("tables", "row", TABLE_SIZES, {"measurements": measurements, "rows that repeat": repeated_rows}))


def data_sets():
    for family, element, sizes, kinds in FAMILIES:
        *_, main_kind = kinds.values()
        whole(family, "", Stored(main_kind, chunk=0), sizes, [1.10, 1.05], [CHUNK], Stored(main_kind))
        for name, kind in kinds.items():
            for level, target in (1, 0.50), (6, 0.65):
                whole(family, f" with shuffle and deflate {level}, {name}", Stored(kind, level),
                      sizes if kind is main_kind else [256 * KIB, 2 * MIB, 16 * MIB], [target, 0.55],
                      [("h5py", SMALL_CHUNKS), ("pytables", SMALL_CHUNKS), FIXED_COST, DEFLATE])
        parts(family, element, main_kind)
    texts_of = Stored(repeated_rows)
    Row("tables/read a column of texts", "bytes", TABLE_SIZES, 1.10,
        [("*", "each text is tested for what has to be converted to UTF-8")], texts_of.task("read texts"), texts_of.there(),
        lambda _, node, size: [s.decode() for s in node["text"]], lambda _, node, size: [s.decode() for s in node.col("text")],
        file=texts_of.file(), mode="r+")
    for word, pick in ("sorted", in_order), ("shuffled", shuffled), ("each four times", repeated):
        selections(word, pick)


@cache
def in_order(count):
    """Not quite every n-th row, which would be a stride."""
    i, distance = np.arange(count), MILLION // count
    return i * distance + i % 7 % distance


@cache
def shuffled(count):
    return np.random.default_rng(1).permutation(in_order(count))


@cache
def repeated(count):
    return np.tile(shuffled(count // 4), 4)


def selections(word, pick):
    million = Stored(repeated_rows, count=MILLION)
    buffer = repeated_rows(MILLION).copy()

    def pick_h5py(_, node, count):
        # A mask is h5py's fastest way, and gives rows in ascending order and each once: numpy puts them in place.
        mask = np.zeros(MILLION, bool)
        mask[pick(count)] = True
        _, back = np.unique(pick(count), return_inverse=True)
        node[mask][back]

    def scatter(_, node, count):
        buffer[pick(count)] = node[100:100 + count]

    def collect_h5py(_, node, count):
        node[100:100 + count] = buffer[pick(count)]

    def collect_tables(_, node, count):
        node.modify_rows(100, 100 + count, rows=buffer[pick(count)])
        node.flush()

    def add(name, reason, work, *sides):
        Row(f"tables/{name}, {word}", "rows", [1000, 10000, 100000], 1.05, [("*", reason)],
            lambda count: million.task(work, rows=pick(count))(count), million.there("r+"), *sides,
            file=million.file(), mode="r+")

    of_a_run = ("the caller's type is compared with the stored one, each place is tested against the buffer's end, and the first "
                "read of a handle asks how the table lies in the file")
    add("read selected rows of a million", "each place is tested against the table's end", "read selected", pick_h5py,
        lambda _, node, count: node.read_coordinates(pick(count)))
    add("read a run to selected rows of a buffer", of_a_run, "scatter", scatter, scatter)
    add("write selected rows of a buffer to a run", of_a_run, "collect", collect_h5py, collect_tables)


COLUMNS = 16


@cache
def numbers(*shape):
    return np.arange(np.prod(shape), dtype="f8").reshape(shape) % 100


def create_extensible(peer, file, name, shape=(0, COLUMNS), chunk_rows=1024, level=0):
    chunks, filters = (chunk_rows, COLUMNS), filters_of(peer, level)
    if peer == "h5py":
        return file.create_dataset(name, shape, "f8", maxshape=(None, None), chunks=chunks, **filters)
    return file.create_earray("/", name, tables.Float64Atom(), shape, chunkshape=chunks, **filters)


def extensible_arrays(word, chunk_rows, level, literal_sizes):
    def create_filled(peer, file, count):
        rows = np.repeat(numbers(count), COLUMNS).reshape(count, COLUMNS)
        if peer == "h5py":
            create_extensible(peer, file, "rows", rows.shape, chunk_rows, level)[...] = rows
        else:
            create_extensible(peer, file, "rows", (0, COLUMNS), chunk_rows, level).append(rows)

    there = having(stored(create_filled), lambda peer, file, count: node_of(peer, file, "rows"))

    def add(verb, lines, kind, is_by_rows, step):
        """Appends or reads all rows, some of them at once, or the 16 columns."""
        def end(count):
            return count if is_by_rows else COLUMNS

        def block(count):
            return numbers(step, COLUMNS) if is_by_rows else numbers(count, 1)

        def task(work):
            return lambda count: {
                "work": work, "chunk": chunk_rows, "level": level, "data": block(count), "block": block(count).shape,
                "shape": shape(count), "distance": (step, 0) if is_by_rows else (0, 1), "count": end(count) // step}

        def place(at):
            return (at if step == 1 else np.s_[at:at + step]) if is_by_rows else np.s_[:, at]

        def shape(count):
            return (0, COLUMNS) if is_by_rows else (count, 0)

        empty = having(new, lambda peer, file, count: create_extensible(peer, file, "rows", shape(count), chunk_rows, level))

        def append_h5py(_, node, count):
            data = block(count).squeeze()
            for at in range(0, end(count), step):
                node.resize(at + step, axis=0 if is_by_rows else 1)
                node[place(at)] = data
            node.flush()

        def append_tables(_, node, count):
            data = block(count)
            for _ in range(end(count) // step):
                node.append(data)
            node.flush()

        def read(_, node, count):
            for at in range(0, end(count), step):
                node[place(at)]

        is_append, by_library = verb == "append", task(f"{verb} {kind}")
        what = "extent is asked for at each append" if is_append else "space is asked for at each call"
        reason = f"the {what}, because another handle may have extended the array"
        if step > 1 and not is_append and chunk_rows > 1024:
            reason = "the cache holds what a column goes through, so that the first row or column reads a chunk whole"
        sides = (empty, append_h5py, append_tables) if is_append else (there, read, read)
        Row(f"extensible arrays/{verb} {lines}{' and flush' if is_append else ''}, {word}", "rows",
            [100 if step == 1 else 1000, 10000, 100000], 1.10, [("*", reason)], task("move blocks"), *sides,
            file=None if is_append else made_by_columns, differ={"library": {"task": by_library}})
        beside("the literal calls", 0.90 if step == 1 else 0, {"sizes": literal_sizes if step == 1 else [1000, 10000]},
               task=task("move blocks literally"))
        return by_library

    made_by_columns = add("append", "16 columns", "a column", False, 1)
    add("read", "16 columns", "a column", False, 1)
    for lines, kind, step in ("rows", "a row", 1), ("rows in blocks of 1,000", "rows", 1000):
        add("append", lines, kind, True, step)
        add("read", lines, kind, True, step)


def opened_extensible_arrays():
    Row("extensible arrays/open, ask for type and shape", "arrays", [100, 1000, 10000], 1.20,
        [("*", "HDF5 tells the chunks only by a copy of the whole creation list, and opening settles the cache for them")],
        child_task("open"), children(create_extensible), open_h5py, open_tables, file=child_task("create extensible arrays"),
        differ={"library": {"task": child_task("open extensible")}})
    beside("the literal calls", 1.20, task=child_task("open literally"))


@cache
def texts(count):
    return [f"channel {i}, Grad Celsius" for i in range(count)]


def attributes(word, objects_for, sizes):
    def objects(make_or_find):
        return lambda peer, file, count: [make_or_find(peer, file, name) for name in names("object", objects_for(count))]

    def fill(peer, file, count):
        (set_h5py if peer == "h5py" else set_tables)(file, objects(create_group)(peer, file, count), count)

    def for_each(work):
        def do(_, nodes, count):
            each = count // len(nodes)
            for node in nodes:
                for key, text in zip(names("attribute", each), texts(each)):
                    work(node, key, text)
        return do

    @for_each
    def set_h5py(node, key, text):
        encoded = text.encode()
        node.attrs.create(key, [encoded], dtype=h5py.string_dtype("utf-8", len(encoded)))

    @for_each
    def set_tables(node, key, text):
        node._v_attrs[key] = text

    def task(work):
        return lambda count: {"work": work, "groups": names("object", objects_for(count)),
                              "names": names("attribute", count // objects_for(count)), "texts": texts(count // objects_for(count))}

    def add(name, work, reasons, *sides, **others):
        Row(f"attributes/{name} {word}", "attributes", sizes, 1.10, reasons, task(work), *sides, **others)

    there = having(stored(fill, "r+"), objects(node_of))
    each = "*", "each call opens and closes the attribute and tests its type"
    made_before = {"file": task("set texts"), "mode": "r+"}
    add("get texts of", "get texts", [each], there, for_each(lambda node, key, _: node.attrs[key]),
        for_each(lambda node, key, _: node._v_attrs[key]), **made_before)
    add("list names of", "list attributes",
        [("pytables", "PyTables reads all names when it opens a group, outside of what is measured"), each], there,
        lambda _, nodes, count: [list(n.attrs) for n in nodes],
        lambda _, nodes, count: [list(n._v_attrs._v_attrnames) for n in nodes], **made_before)
    add("set texts on", "set texts",
        [("*", "an attribute is replaced, so it is asked for first, and each call makes its own space and type")],
        having(new, objects(create_group)), set_h5py, set_tables, differ={"plain": {"task": task("set texts, all made once")}})
    beside("a space and a type for each", 0, task=task("set texts"))


def typed():
    """Calls with C++ values beside the calls that they are made of. Up to 1 MiB a call may cost a tenth more, above a fiftieth."""
    overhead = "*", "a fixed cost of each call: element type and length come from the vector, and are compared with the stored", 1024
    search = "*", "each text is searched for NUL bytes, at which it would end in the file, and the plain calls don't search"
    look_up = "*", "the first read of a handle looks up every column; later reads, opening or larger data hide that", 13107
    same = "*", "both make the same call"
    for name, element_bytes, reason, work, maker in (
            ("store a vector of doubles, beside CreateArrayFromBuffer", 8, overhead, "store numbers", None),
            ("store a vector of texts, beside CreateArrayFromBuffer", 12, search, "store texts", None),
            ("store a table, beside CreateTableFromBuffer", READING.itemsize, overhead, "store readings", None),
            ("append rows of 16 doubles at once, beside AppendRowsFromBuffer", 8, overhead, "append numbers", None),
            ("read a vector of doubles, beside GetToBuffer", 8, overhead, "read numbers", "store numbers"),
            ("read a vector of texts, beside ReadStringDataSet", 12, same, "read text values", "store texts"),
            ("read a table for the first time, beside GetToBuffer", READING.itemsize, look_up, "read readings", "store readings"),
            ("read a table by its name, beside GetTable and GetToBuffer", READING.itemsize, look_up, "read readings by name",
             "store readings")):
        for size in 8 * KIB, 512 * KIB, 8 * MIB, 64 * MIB:
            Row(f"typed/{name}", "elements", [size // element_bytes], 1.02 if size > MIB else 1.10, [reason],
                lambda size, work=work: {"work": work}, differ={"cpp": None},
                file=maker and (lambda size, maker=maker: {"work": maker}))


groups()
files()
small_arrays()
data_sets()
opened_extensible_arrays()
extensible_arrays("128 KiB chunks", 1024, 0, [100, 100000])
extensible_arrays("2 MiB chunks", 16384, 0, [100, 100000])
extensible_arrays("deflated 2 MiB chunks", 16384, 1, [100])
attributes("many objects, 5 each", lambda count: count // 5, [500, 2500, 10000])
attributes("one object", lambda count: 1, [10, 100, 1000])
typed()
