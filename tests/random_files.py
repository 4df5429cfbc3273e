"""Random use of the library, compared after each step with what h5py makes of the same operations on a file in memory,
and the two files at the end; a failing seed prints itself and a shortened sequence.
Usage: random_files.py WALKER SEEDS OPERATIONS"""
import itertools, os, random, subprocess, sys, tempfile, types
import h5py, msgpack, numpy as np
from h5py import h5a, h5d, h5p, h5s, h5t
from foreign_files import string
from predict import NUMBERS, UNLIMITED as INF, child, compare, plain, unpacked, values_of, walk

# How often each operation is made; the last two have eight and three ways.
ACTIONS = {'reopen': 1, 'group': 6, 'array': 12, 'texts': 3, 'extend': 4, 'row': 8, 'column': 6, 'resize': 5,
           'table': 6, 'empty table': 1, 'blank table': 1, 'turned table': 2, 'delete': 7, 'mark': 10, 'unmark': 5,
           'put row': 3, 'put column': 3, 'rows': 4, 'columns': 4, 'put rows': 3, 'put columns': 3, 'get rows': 3,
           'get columns': 3, 'encode': 2, 'new array': 4, 'set': 3, 'set table': 4, 'move': 30, 'slab': 20}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99,
         b'__vorl_', b'a/b', b'a//"/', b'./a', b'/']
TEXTS = [b'', b'\0', b'a', b'ab\0\0', b'a\0b', b'Z\xfcrich', 'Zürich'.encode(), b'x' * 60000, b'x' * 70000]
SAME = {9: 7, 10: 8, 11: 7, 12: 8, 15: 13, 16: 14}  # Types that read back as another.
SIZES = (0, 1, 1, 2, 3, 5, 12)
ROWS = {'H5T_COMPOUND {%s}' % ''.join(f' H5T_IEEE_F{8 * size}LE "{name}";' for name in names):
        np.dtype([(name, f'f{size}') for name in names])
        for names, size in (('ab', 8), ('a', 4), ('abcdefghijklmnopqrst', 8))}
# The classes, by their places in what is told, that an operation opens its name as; makers do if a data set is there.
BLOCKS = 'rows', 'columns', 'put rows', 'put columns', 'get rows', 'get columns'
LINES = 'row', 'column', 'resize', 'put row', 'put column', *BLOCKS
OPENS = {'mark': (0, 1), 'unmark': (0, 1), 'set': (1,), 'slab': (1,), 'set table': (3,), 'move': (3,),
         **dict.fromkeys(LINES, (2,))}
MAKES = {'array': (1,), 'texts': (1,), 'table': (3,), 'turned table': (3,)}
# What an operation mostly finds at its name: groups, arrays, extensible arrays and tables have three names each.
KINDS = {**OPENS, **MAKES, 'group': (0,), 'new array': (1,), 'extend': (2,), 'empty table': (3,), 'blank table': (3,)}
NO_ROWS = b'Error while selecting elements from memory data set'
# The library's words for what h5py refuses too.
FAILURES = {'delete': b"!could not remove group '%s'", 'mark': b'!fail to create attribute: %s',
            'unmark': b'!could not delete attribute %s', 'extend': b''}  # That isn't checked.


class Refused(Exception):
    pass


def refuse(condition, words):
    if condition:
        raise Refused(words)


def create(at, name, t, dims, chunk, level, limits=None):
    p = h5p.create(h5p.DATASET_CREATE)
    all(chunk) and p.set_chunk(chunk)
    level > 0 and (p.set_shuffle(), p.set_deflate(level))
    return h5d.create(at.id, name, t, h5s.create_simple(dims, limits), p)


def group_at(at, name):
    return at[name] if at.id.links.exists(name) else at.create_group(name)


class Model:
    def act(self, o):
        """Plays an operation and gives what the library must tell: how it failed, what it read, what is at the name."""
        if o.action == 'open':
            self.file, self.kept, self.row = h5py.File('model.h5', 'w', driver='core'), {}, ROWS[o.row]
            self.file.attrs.create('__vorl_api_version', [1], dtype='u4')
        at, lines = self.file['/'], []
        if o.action == 'reopen':
            self.kept, lines = {}, [*walk(at.id, b'', set()), 1]
        if o.below:
            at = group_at(at.require_group('below'), o.name)
        self.buffer = np.arange(1 << 18) + float(o.first)
        words = None
        try:
            self.change(at, o, child(at.id, o.name))
        except Refused as refused:
            words = b'!%s' % refused.args
        except (KeyError, RuntimeError, ValueError):
            words = FAILURES.get(o.action, b'!could not create dataset').replace(
                b'%s', o.mark if 'mark' in o.action else o.name) or None
        return [*lines, [words, values_of(self.buffer), child(at.id, o.name)]]

    def change(self, at, o, told):
        place = o.start % 2
        if o.action in LINES and o.start > 1 and place in self.kept:
            return self.extend(o, self.kept[place])
        there = any(not isinstance(one, bytes) for one in told[1:])
        opened = [told[i] for i in OPENS.get(o.action) or there and MAKES.get(o.action) or ()]
        old = next((one for one in opened if not isinstance(one, bytes)), None)
        refuse(opened and not old, opened and opened[-1][1:])
        refuse(there and o.action in ('empty table', 'blank table'),
               b'Fail to create an already existing table: ' + o.name)
        level = self.level if o.level < 0 and o.action not in ('set table', 'move') else o.level
        t, d = NUMBERS[SAME.get(o.type, o.type) - 1], old and at[o.name].id
        if o.action in ('open', 'reopen'):
            self.level, self.charset = level, h5t.CSET_UTF8
        elif o.action == 'encode':
            self.charset = h5t.CSET_ASCII if o.type % 2 else h5t.CSET_UTF8
        elif o.action == 'group':
            for part in filter(None, o.name.split(b'/')):
                at = None if part == b'.' else group_at(at, part)
                refuse(not isinstance(at, h5py.Group), b"could not create group '%s'" % part)
        elif o.action == 'delete':
            del at[o.name]
        elif o.action == 'mark':
            h5a.exists(d, o.mark) and h5a.delete(d, o.mark)
            a = h5a.create(d, o.mark, string(len(o.text) or 1, self.charset, 0), h5s.create_simple((1,)))
            a.write(np.frombuffer(o.text or b'\0', 'u1'), a.get_type())
        elif o.action == 'unmark':
            h5a.delete(d, o.mark)
        elif o.action == 'extend':
            create(at, o.name, t, (o.one, o.two), (3, 2), level, (INF, INF))
        elif o.action == 'texts':
            self.set_array(at, o, old, string(o.two, self.charset), 17, (o.one,), np.frombuffer(o.text, 'u1'))
            self.buffer.view('u1')[:len(o.text)] = [*o.text]
        elif o.action in ('array', 'set', 'new array'):
            if o.action == 'new array' and there:
                del at[o.name]
            if o.action == 'new array' and not o.one and not o.two and o.type not in SAME:
                return h5d.create(at.id, o.name, t, h5s.create(h5s.NULL))
            self.set_array(at, o, old, t, o.type, (o.one, o.two)[:1 if o.two == 1 else 2], self.buffer)
            refuse(o.name == b'./a' and o.action != 'array', b'Array does not exist')  # To be opened again.
            at[o.name].id.read(h5s.ALL, h5s.ALL, self.buffer, h5t.NATIVE_DOUBLE)
        elif o.action == 'empty table':
            h5d.create(at.id, o.name, h5t.py_create(self.row), h5s.create(h5s.NULL))
        elif 'table' in o.action:
            rows = self.rows()[:o.one][::-1 if o.action == 'turned table' else 1]
            self.set_table(at, o, old, rows, o.start if o.action == 'table' and not old and o.start else o.one, level)
            at[o.name].id.read(h5s.ALL, h5s.ALL, self.rows(), h5t.py_create(self.row))
        elif o.action == 'move':
            self.move(at, o, old, d)
        elif o.action == 'slab':
            self.slab(at[o.name], o, *old[1:4])
        else:
            self.kept[place] = [at[o.name], *old[2:4]]
            self.extend(o, self.kept[place])

    def rows(self):
        return np.frombuffer(self.buffer, self.row, self.buffer.nbytes // self.row.itemsize)

    def set_array(self, at, o, old, t, value, dims, values):
        if not old or old[1:4] != (value, o.one, o.two):
            if old:
                del at[o.name]
            d = create(at, o.name, t, dims, dims, 0 if old else self.level)
        else:
            d = at[o.name].id
            refuse(value == 17 and d.get_type().get_cset() != self.charset, b'error writing to dataset')
        d.write(h5s.ALL, h5s.ALL, values, t if value == 17 else h5t.NATIVE_DOUBLE)

    def set_table(self, at, o, old, rows, chunk, level):
        t = h5t.py_create(self.row)
        if o.action in ('set table', 'move') and old[1] == o.one and (o.action == 'move' or o.start != 1):
            d, rows = at[o.name].id, self.rows()
        else:
            if old:
                del at[o.name]
            refuse(o.action in ('turned table', 'move') and not len(rows), NO_ROWS)
            d = create(at, o.name, t, (len(rows),), (chunk,), level)
        o.action != 'blank table' and d.write(h5s.ALL, h5s.ALL, np.ascontiguousarray(rows), t)

    def move(self, at, o, old, d):
        """Moves rows between a table and a buffer of `one` rows."""
        way, end, some, others, buffer = o.type % 8, old[1], o.text, o.mark, self.rows()
        if way == 7:
            places = [*some] if some and max(some) < o.one else []
            return self.set_table(at, o, old, buffer[places], len(places), o.level)
        every = range(o.start, o.start + max(o.stride, 1) * o.steps, o.stride or 1)
        in_memory = (range(end), others, range(o.steps), range(len(some)), others, others, some)[way]
        run = range(o.start, o.start + len(in_memory))
        in_file = (range(end), range(end), every, some, some, run, run)[way]
        is_null = d.get_space().get_simple_extent_type() == h5s.NULL
        refuse(way > 1 and is_null or way == 2 and not o.stride or way in (3, 4) and not (some and max(some) < end),
               b'Error while selecting elements from file data set')
        refuse(way in (1, 4, 5, 6) and not (in_memory and max(in_memory) < o.one), NO_ROWS)
        refuse(len(in_file) != len(in_memory) or in_file and max(in_file) >= end,
               {2: b'Error reading data set hyperslab.', 6: b'error writing to dataset'}.get(
                   way, b'Error reading data set to a memory selection!'))
        rows = np.zeros(end, self.row)
        end and d.read(h5s.ALL, h5s.ALL, rows, h5t.py_create(self.row))
        if way == 6:
            rows[[*in_file]] = buffer[[*in_memory]]
            d.write(h5s.ALL, h5s.ALL, rows, h5t.py_create(self.row))
        else:
            buffer[[*in_memory]] = rows[[*in_file]]

    def slab(self, d, o, value, length, width):
        """Reads elements from all over an array, or to all over a buffer."""
        way, dimensions, columns = o.type % 3, 1 + o.type // 3 % 3, o.two if o.type % 3 == 2 else 1
        is_null = d.shape is None
        rank = (1, 1, dimensions)[way] if is_null else d.ndim
        refuse(way == 1 and (o.stride < 1 or o.steps < 0), b'Error creating memory data space hyperslab!')
        refuse((width, rank, 1)[way] != 1, b'Error reading hyperslab from a multidimensional array!')
        refuse(way == 2 and dimensions > 2,
               b"Error reading hyperslab: there's no support for arrays with more than 2 dimensions!")
        refuse(way == 2 and dimensions != rank,
               b"Error reading hyperslab: the number of dimensions doesn't match the array!")
        refuse(is_null and way == 1, b'Error creating file data space hyperslab!')
        refuse(is_null or o.stride < 1 or o.steps < 0, b'Error creating array space hyperslab!')
        places, count = [*range(o.start, o.start + o.stride * o.steps, o.stride)], o.steps * columns
        inside = o.start < o.stride and o.steps <= length if way == 1 else \
            o.start + o.stride * (o.steps - 1) < length and columns <= width
        refuse(value == 17 or count and not (inside and o.start >= 0) or d.ndim == 1 and count != o.steps,
               b'Error reading from dataset to a memory hyperslab!')
        cells = d[()].reshape(length, width)
        if way == 1:
            self.buffer[places] = cells[:count].ravel()
        elif count:
            self.buffer[:count] = cells[places, :columns].ravel()

    def extend(self, o, kept):
        """Changes an extensible array through a handle, which counts its rows and columns by itself."""
        d, rows, columns = kept
        line, ends = o.action.encode().split()[-1], d.shape
        if line == b'resize':
            d.resize((o.one, o.two))
            kept[1:] = self.buffer[:2] = o.one, o.two
            return
        count, line = o.steps if o.action in BLOCKS else 1, line.rstrip(b's')
        axis, index, width = (0, o.one, columns) if line == b'row' else (1, o.two, rows)
        if 'put' in o.action or 'get' in o.action:
            refuse(index + count > kept[1 + axis],
                   b'Invalid %s index: %d (%d rows x %d columns)' % (line, max(index, kept[1 + axis]), rows, columns))
            refuse(width and count and (index + count > ends[axis] or width > ends[1 - axis]),
                   b'error during io operation for ExtensibleArray2D dataset')
        else:
            index, kept[1 + axis] = ends[axis], kept[1 + axis] + count
            end = index + count
            d.resize((end, max(ends[1], width)) if axis == 0 else (max(ends[0], width), end))
        cells = self.buffer[:width * count].reshape((count, width)[::1 - 2 * axis])
        block = (slice(index, index + count), slice(width))[::1 - 2 * axis]
        if cells.size and 'get' in o.action:
            cells[...] = d[block]
        elif cells.size:
            d[block] = cells


def operation(r):
    action, first = r.choices([*ACTIONS], ACTIONS.values())[0], r.randrange(50)
    one, two = r.choice(((70000, 1), (300, 200), (1, 9000))) if r.random() < .004 else r.choices(SIZES, k=2)
    one = min(one, 13000) if 'table' in action else one  # So many of the widest rows fit the buffer.
    two = max(two, 1) if action == 'texts' else r.choice((1, two)) if 'array' in action else two
    text, mark = r.choice(TEXTS[:r.choice((7, 7, 7, 9))]), r.choice(NAMES[::r.choice((1, 5, 5, 5))])
    start, stride, steps = r.choice((0, 0, 1, 3)), r.choice((0, 1, 1, 2)), r.choice((0, 1, 2, 3, 5))
    if action == 'texts':
        text = bytes(r.choices(b'a\0Z\xfc ', k=one * two))
    elif action == 'table':
        start = r.choice((0, one, 1)) if one else 0  # The rows of a chunk.
    elif action in BLOCKS:
        steps = min(steps, 3)  # The longest columns fit the buffer so many times.
    elif action == 'slab':
        start, stride, steps = (r.choices((n, -n, -2), (14, 1, 1))[0] for n in (start, stride, steps))
    elif action == 'move':
        places, number = range(r.choice((2, 4, 12))), r.choice((steps, steps, one))
        text, mark = bytes(r.choices(places, k=number)), bytes(r.sample(places, min(number, len(places))))
        one = r.choice((one, 13))
    kind = r.choice(KINDS.get(action, range(4)))
    name = r.choice(NAMES[kind:12:4] + NAMES[12:] * (kind == 0) if r.random() < .9 else NAMES)
    return types.SimpleNamespace(
        action=action, name=name, mark=mark, text=text, type=r.randrange(1, 17), one=one, two=two, first=first,
        level=r.choice((0, 0, 4) if action == 'reopen' else (0, 0, 4, -1)), start=start, stride=stride, steps=steps,
        below=int(r.random() < .3 and action != 'reopen' and b'/' not in name))


def tidy(told):  # The order of a node's attributes depends on which of them were read anew from the file.
    if isinstance(told, list) and len(told) == 2 and str(told).startswith("[[[b'"):
        return [*map(sorted, told)]
    return [*map(tidy, told)] if isinstance(told, list) else told


def failure(walker, operations):
    model, expected = Model(), []
    for o in operations:
        expected += [(o, str(tidy(answer))) for answer in plain(model.act(o) if o.action != 'kill' else [])]
    model.file.close()
    ways = [{'move': f' {o.type % 8}', 'slab': f' {o.type % 3}'}.get(o.action, '') for o in operations]
    script = b''.join(msgpack.packb({**vars(o), 'action': o.action + way, 'text': [*o.text], 'mark': [*o.mark]},
                                    use_bin_type=False) for o, way in zip(operations, ways))
    run = subprocess.run([walker, 'random.h5', 'play'], input=script, capture_output=True)
    told = [str(tidy(answer)) for answer in unpacked(run.stdout)]
    for answer, (o, wanted) in itertools.zip_longest(told, expected):
        if answer != wanted:
            return f'at {o!s:.300}\n told     {answer!s:.900}\n expected {wanted!s:.900}\n {run.stderr.decode()}'
    if run.stderr or run.returncode != (-9 if operations[-1].action == 'kill' else 0):
        return f'status {run.returncode} {run.stderr.decode()}'
    try:
        compare(walker, 'random.h5')
    except AssertionError as difference:
        return str(difference)
    dumps = [subprocess.run(['h5dump', '-p', name], check=True, capture_output=True).stdout.splitlines()[1:]
             for name in ('random.h5', 'model.h5')]
    for dumped, wanted in itertools.zip_longest(*dumps):
        if dumped != wanted and b'OFFSET' not in dumped:
            return f'h5dump says {dumped}\n expected    {wanted}'


def shorten(walker, operations):
    size = len(operations) // 2
    while size:
        for start in range(1, len(operations), size):
            shorter = operations[:start] + operations[start + size:]
            if failure(walker, shorter):
                operations = shorter
                break
        else:
            size //= 2
    return operations


def sequence(seed, length):
    r = random.Random(seed)
    operations = [operation(r) for _ in range(length + 2)]
    vars(operations[0]).update(action='open', level=0, below=0, row=[*ROWS][seed % 3])
    vars(operations[-1]).update(action='kill' if seed % 2 else 'reopen', level=0, below=0)
    return operations


def many(seed):
    """Moves many rows, in one block and in several, and elements."""
    r, rows = random.Random(seed), 1600000 // [*ROWS.values()][seed % 3].itemsize
    moves = [dict(action='move', type=way, stride=19, steps=rows // 20, one=rows, beyond=beyond,
                  places={1: rows, 6: rows - 60}.get(way, rows // 20))
             for way, beyond in itertools.product(range(8), (0, 1))]
    slabs = [dict(action='slab', type=way, stride=stride, steps=((1 << 18) - 2) // stride + 1 + beyond, two=1)
             for way, stride, beyond in itertools.product((0, 1, 2), (2, 511, 600), (0, 1)) if not beyond or way != 1]
    chunk, level = ((rows, 0), (2048, 4))[seed // 2 % 2]
    for fields in (dict(action='table', start=chunk, level=level, one=rows), *moves, dict(action='delete'),
                   dict(action='array', type=r.choice((5, 14, 14)), one=1 << 18, two=1), *slabs, dict(action='delete')):
        o, first = operation(r), r.randrange(rows)
        places = [(first + 77777 * i) % rows for i in range(fields.get('places', 8))]
        places[7] = rows if fields.get('beyond') else places[7]
        vars(o).update({'text': places, 'mark': places, 'start': 1, **fields}, name=b'many', below=0)
        yield o


if __name__ == '__main__':
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        seeds = range(60 if os.environ.get('TARNWICKHDF_LONG_TESTS') else int(sys.argv[2]))
        for seed in seeds:
            operations = sequence(seed, int(sys.argv[3]))
            operations[1:1] = many(seed)
            if failure(sys.argv[1], operations):
                operations = shorten(sys.argv[1], operations)
                sys.exit(f'seed {seed} fails {failure(sys.argv[1], operations)}\n' + '\n'.join(map(str, operations)))
        print(f'{len(seeds)} seeds of {len(operations)} operations are as the model')
