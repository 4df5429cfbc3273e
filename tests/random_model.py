"""What the library does with an operation of random use, carried out by h5py on a file in memory."""
import h5py
import numpy as np
from h5py import h5a, h5d, h5p, h5s, h5t

from foreign_files import string
from predict import NUMBERS, TEXT, UNLIMITED, child, values_of, walk

READS_BACK_AS = {9: 7, 10: 8, 11: 7, 12: 8, 15: 13, 16: 14}  # Element types that equal a lower one.
# A table's types of row, as HDF5 and as numpy describe them.
ROWS = {'H5T_COMPOUND {%s}' % ''.join(f' H5T_IEEE_F{8 * size}LE "{name}";' for name in names):
        np.dtype([(name, f'f{size}') for name in names])
        for names, size in (('ab', 8), ('a', 4), ('abcdefghijklmnopqrst', 8))}

# The classes of what child() tells, in its order.
GROUP, ARRAY, EXTENSIBLE, TABLE = range(4)
BLOCKS = ('rows', 'columns', 'put rows', 'put columns', 'get rows', 'get columns')
LINES = ('row', 'column', 'resize', 'put row', 'put column', *BLOCKS)
# The classes that an operation opens its name as; makers do so if a data set is there.
OPENS = {'mark': (GROUP, ARRAY), 'unmark': (GROUP, ARRAY), 'set': (ARRAY,), 'slab': (ARRAY,), 'set table': (TABLE,),
         'move': (TABLE,), **dict.fromkeys(LINES, (EXTENSIBLE,))}
MAKES = {'array': (ARRAY,), 'texts': (ARRAY,), 'table': (TABLE,), 'turned table': (TABLE,)}

NO_FILE_SELECTION = b'Error while selecting elements from file data set'
NO_MEMORY_SELECTION = b'Error while selecting elements from memory data set'
READ_TO_SELECTION_FAILED = b'Error reading data set to a memory selection!'
SLAB_FAILED = b'Error reading from dataset to a memory hyperslab!'
WRITE_FAILED = b'error writing to dataset'
LINE_FAILED = b'error during io operation for ExtensibleArray2D dataset'
# The library's words for what h5py refuses too.
FAILURES = {'delete': b"!could not remove group '%s'", 'mark': b'!fail to create attribute: %s',
            'unmark': b'!could not delete attribute %s', 'extend': None}  # That isn't checked.


class Refused(Exception):
    """The library fails with these words."""


def refuse_if(condition, words):
    if condition:
        raise Refused(words)


def create(at, name, t, dims, chunk, level, limits=None):
    p = h5p.create(h5p.DATASET_CREATE)
    if all(chunk):
        p.set_chunk(chunk)
    if level > 0:
        p.set_shuffle()
        p.set_deflate(level)
    return h5d.create(at.id, name, t, h5s.create_simple(dims, limits), p)


def group_at(at, name):
    return at[name] if at.id.links.exists(name) else at.create_group(name)


def shape_of(o):
    """An array of one component has one dimension."""
    return (o.one,) if o.two == 1 else (o.one, o.two)


class Model:
    """A file, the caller's buffer, and two handles of extensible arrays, which count their lines by themselves."""

    def __init__(self):
        self.file = self.level = self.charset = self.row = self.buffer = None
        self.handles = {}

    def act(self, o):
        """Plays an operation and gives what the library must tell: how it failed, what it read, what is at the name."""
        before = []
        if o.action == 'open':
            self.file = h5py.File('model.h5', 'w', driver='core', libver=('earliest', 'latest'))
            self.file.attrs.create('__vorl_api_version', [1], dtype='u4')
            self.row = ROWS[o.row]
        elif o.action == 'reopen':  # The file is walked while it is closed.
            before = [*walk(self.file['/'].id, b'', set()), 1]
        at = self.file['/']
        if o.below:
            at = group_at(at.require_group('below'), o.name)
        self.buffer = np.arange(1 << 18) + float(o.first)
        words = self.words_of(at, o)
        return [*before, [words, values_of(self.buffer), child(at.id, o.name)]]

    def words_of(self, at, o):
        try:
            self.change(at, o)
        except Refused as refused:
            return b'!%s' % refused.args
        except (KeyError, OSError, RuntimeError, ValueError):
            words = FAILURES.get(o.action, b'!could not create dataset')
            return words and words.replace(b'%s', o.mark if 'mark' in o.action else o.name)
        return None

    def change(self, at, o):
        if o.action in LINES:
            self.change_lines(at, o)
            return
        old = self.opened(at, o)
        actions = {'open': self.set_defaults, 'reopen': self.set_defaults, 'encode': self.encode,
                   'group': self.make_group, 'delete': self.delete, 'mark': self.mark, 'unmark': self.unmark,
                   'array': self.store_array, 'set': self.set_array, 'new array': self.fill_empty_array,
                   'texts': self.store_texts, 'slab': self.read_slab, 'extend': self.make_extensible,
                   'empty table': self.make_empty_table, 'blank table': self.make_blank_table,
                   'table': self.store_table, 'turned table': self.store_turned_table, 'set table': self.set_table,
                   'move': self.move_rows}
        actions[o.action](at, o, old)

    def opened(self, at, o):
        """What is told of the object that the operation opens; refuses what doesn't open. None for no object."""
        told = child(at.id, o.name)
        is_data_set = any(not isinstance(one, bytes) for one in told[1:])
        classes = OPENS.get(o.action) or (MAKES.get(o.action) if is_data_set else None) or ()
        for one in (told[i] for i in classes):
            if not isinstance(one, bytes):
                return one
        refuse_if(classes, classes and told[classes[-1]][1:])
        return None

    def has_data_set(self, at, o):
        return any(not isinstance(one, bytes) for one in child(at.id, o.name)[1:])

    def level_of(self, o):
        """A group's factories take a level below 0 for the group's own."""
        return self.level if o.level < 0 else o.level

    # Files, groups, attributes.

    def set_defaults(self, at, o, old):
        self.level, self.charset, self.handles = o.level, h5t.CSET_UTF8, {}

    def encode(self, at, o, old):
        self.charset = h5t.CSET_ASCII if o.type % 2 else h5t.CSET_UTF8

    def make_group(self, at, o, old):
        for part in filter(None, o.name.split(b'/')):
            at = None if part == b'.' else group_at(at, part)
            refuse_if(not isinstance(at, h5py.Group), b"could not create group '%s'" % part)

    def delete(self, at, o, old):
        del at[o.name]

    def mark(self, at, o, old):
        node = at[o.name].id
        if h5a.exists(node, o.mark):
            h5a.delete(node, o.mark)
        t = string(len(o.text) or 1, self.charset, h5t.STR_NULLTERM)
        a = h5a.create(node, o.mark, t, h5s.create_simple((1,)))
        a.write(np.frombuffer(o.text or b'\0', 'u1'), t)

    def unmark(self, at, o, old):
        h5a.delete(at[o.name].id, o.mark)

    # Arrays of `one` x `two` elements. An old one is told as (attributes, type, length, width, ...).

    def number_type(self, o):
        return NUMBERS[READS_BACK_AS.get(o.type, o.type) - 1]

    def write_array(self, at, o, old, t, value, dims, values):
        if old and old[1:4] == (value, o.one, o.two):
            d = at[o.name].id
            refuse_if(value == TEXT and d.get_type().get_cset() != self.charset, WRITE_FAILED)
        else:
            if old:
                del at[o.name]
            d = create(at, o.name, t, dims, dims, 0 if old else self.level)
        d.write(h5s.ALL, h5s.ALL, values, t if value == TEXT else h5t.NATIVE_DOUBLE)

    def write_numbers(self, at, o, old):
        self.write_array(at, o, old, self.number_type(o), o.type, shape_of(o), self.buffer)

    def read_back(self, at, o):
        at[o.name].id.read(h5s.ALL, h5s.ALL, self.buffer, h5t.NATIVE_DOUBLE)

    def store_array(self, at, o, old):
        self.write_numbers(at, o, old)
        self.read_back(at, o)

    def set_array(self, at, o, old):
        self.write_numbers(at, o, old)
        self.reopen_array(o)
        self.read_back(at, o)

    def fill_empty_array(self, at, o, old):
        if self.has_data_set(at, o):
            del at[o.name]
        if not o.one and not o.two and o.type not in READS_BACK_AS:  # Its own shape and type: in place.
            h5d.create(at.id, o.name, self.number_type(o), h5s.create(h5s.NULL))
            return
        self.set_array(at, o, old)

    @staticmethod
    def reopen_array(o):
        """A replaced array is opened again by its name, in which a dot is no link."""
        refuse_if(o.name == b'./a', b'Array does not exist')

    def store_texts(self, at, o, old):
        t = string(o.two, self.charset)
        self.write_array(at, o, old, t, TEXT, (o.one,), np.frombuffer(o.text, 'u1'))
        self.buffer.view('u1')[:len(o.text)] = [*o.text]

    def read_slab(self, at, o, old):
        """Reads elements from all over an array (ways 0 and 2), or to all over a buffer (way 1)."""
        d, (value, length, width) = at[o.name], old[1:4]
        way, dimensions = o.type % 3, 1 + o.type // 3 % 3
        columns = o.two if way == 2 else 1
        is_null = d.shape is None
        rank = (1, 1, dimensions)[way] if is_null else d.ndim
        refuse_if(way == 1 and (not o.stride or o.stride * o.steps == -1),
                  b'Error creating memory data space hyperslab!')
        refuse_if((width, rank, 1)[way] != 1, b'Error reading hyperslab from a multidimensional array!')
        refuse_if(way == 2 and dimensions > 2,
                  b"Error reading hyperslab: there's no support for arrays with more than 2 dimensions!")
        refuse_if(way == 2 and dimensions < rank,
                  b"Error reading hyperslab: the number of dimensions doesn't match the array!")
        refuse_if(is_null and way == 1, b'Error creating file data space hyperslab!')
        refuse_if(is_null or not o.stride, b'Error creating array space hyperslab!')
        places, count = [*range(o.start, o.start + o.stride * o.steps, o.stride)], o.steps * columns
        if way == 1:  # To a buffer a stride may run backwards, in a chunk of the file it may not.
            fits_buffer = o.start < o.stride or min(places, default=0) >= 0 > o.stride
            is_inside = fits_buffer and o.steps <= length
        else:
            runs_forwards = o.stride > 0 or o.steps < 2
            is_inside = runs_forwards and max(places, default=0) < length and columns <= width
        is_inside = is_inside and o.start >= 0 and o.steps >= 0
        refuse_if(value == TEXT or (count and not is_inside) or (d.ndim == 1 and count != o.steps), SLAB_FAILED)
        cells = d[()].reshape(length, width)
        if way == 1:
            self.buffer[places] = cells[:count].ravel()
        elif count:
            self.buffer[:count] = cells[places, :columns].ravel()

    # Tables of `one` rows. An old one is told as (attributes, rows, columns).

    def rows(self):
        """The buffer as rows."""
        return np.frombuffer(self.buffer, self.row, self.buffer.nbytes // self.row.itemsize)

    def row_type(self):
        return h5t.py_create(self.row)

    def create_table(self, at, o, old, count, chunk, level):
        if old:
            del at[o.name]
        return create(at, o.name, self.row_type(), (count,), (chunk,), level)

    def write_rows(self, d, rows):
        d.write(h5s.ALL, h5s.ALL, np.ascontiguousarray(rows), self.row_type())

    def read_rows_back(self, at, o):
        at[o.name].id.read(h5s.ALL, h5s.ALL, self.rows(), self.row_type())

    def refuse_taken_name(self, at, o):
        refuse_if(self.has_data_set(at, o), b'Fail to create an already existing table: ' + o.name)

    def make_empty_table(self, at, o, old):
        self.refuse_taken_name(at, o)
        h5d.create(at.id, o.name, self.row_type(), h5s.create(h5s.NULL))

    def make_blank_table(self, at, o, old):
        self.refuse_taken_name(at, o)
        self.create_table(at, o, None, o.one, o.one, self.level_of(o))
        self.read_rows_back(at, o)

    def store_table(self, at, o, old):
        chunk = o.start if o.start and not old else o.one
        self.write_rows(self.create_table(at, o, old, o.one, chunk, self.level_of(o)), self.rows()[:o.one])
        self.read_rows_back(at, o)

    def store_turned_table(self, at, o, old):
        turned = self.rows()[:o.one][::-1]
        refuse_if(not o.one and not old, NO_MEMORY_SELECTION)
        self.replace_by_selection(at, o, old, turned, self.level_of(o))
        self.read_rows_back(at, o)

    def replace_by_selection(self, at, o, old, rows, level):
        if old and not len(rows):  # The old one is gone before the selection is refused.
            del at[o.name]
        refuse_if(not len(rows), NO_MEMORY_SELECTION)
        self.write_rows(self.create_table(at, o, old, len(rows), len(rows), level), rows)

    def set_table(self, at, o, old):
        is_other_type = o.start == 1
        if old[1] == o.one and not is_other_type:
            self.write_rows(at[o.name].id, self.rows())
        else:
            self.write_rows(self.create_table(at, o, old, o.one, o.one, o.level), self.rows()[:o.one])
        self.read_rows_back(at, o)

    def move_rows(self, at, o, old):
        """Moves rows between a table and a buffer of `one` rows, in eight ways."""
        way, d, buffer = o.type % 8, at[o.name].id, self.rows()
        if way == 7:
            self.set_from_selection(at, o, old)
            return
        in_file, in_memory = self.selections(o, old[1])
        self.refuse_selections(o, old[1], d, in_file, in_memory)
        rows = np.zeros(old[1], self.row)
        if len(rows):
            d.read(h5s.ALL, h5s.ALL, rows, self.row_type())
        if way == 6:
            rows[in_file] = buffer[in_memory]
            self.write_rows(d, rows)
        else:
            buffer[in_memory] = rows[in_file]

    def set_from_selection(self, at, o, old):
        if old[1] == o.one:  # In place the selection plays no part.
            self.write_rows(at[o.name].id, self.rows())
            return
        if any(place >= o.one for place in o.text):  # A table is made before the write is refused.
            self.create_table(at, o, old, len(o.text), len(o.text), o.level)
            refuse_if(True, WRITE_FAILED)
        self.replace_by_selection(at, o, old, self.rows()[[*o.text]], o.level)

    @staticmethod
    def selections(o, end):
        """The rows of the table and of the buffer, by the way that they move."""
        every = range(o.start, o.start + max(o.stride, 1) * o.steps, o.stride or 1)
        in_memory = (range(end), o.mark, range(o.steps), range(len(o.text)), o.mark, o.mark, o.text)[o.type % 8]
        run = range(o.start, o.start + len(in_memory))
        in_file = (range(end), range(end), every, o.text, o.text, run, run)[o.type % 8]
        return [*in_file], [*in_memory]

    @staticmethod
    def refuse_selections(o, end, d, in_file, in_memory):
        way = o.type % 8
        has_file_side = way > 1
        is_null = d.get_space().get_simple_extent_type() == h5s.NULL
        refuse_if(has_file_side and is_null, NO_FILE_SELECTION)
        refuse_if(way == 2 and not o.stride, NO_FILE_SELECTION)
        selects_in_memory = way in (1, 4, 5, 6)
        refuse_if(way in (3, 4) and not in_file, NO_FILE_SELECTION)
        refuse_if(selects_in_memory and not in_memory, NO_MEMORY_SELECTION)
        words = {2: b'Error reading data set hyperslab.', 3: b"Error -1 while reading from dataset '%s'" % o.name,
                 6: WRITE_FAILED}.get(way, READ_TO_SELECTION_FAILED)
        refuse_if(len(in_file) != len(in_memory), words)
        refuse_if(selects_in_memory and max(in_memory) >= o.one, words)
        refuse_if(in_file and max(in_file) >= end, words)

    # Extensible arrays. An old one is told as (attributes, type, rows, columns, ...).

    def make_extensible(self, at, o, old):
        create(at, o.name, self.number_type(o), (o.one, o.two), (3, 2), self.level_of(o), (UNLIMITED, UNLIMITED))

    def change_lines(self, at, o):
        """From a start of 2 on, the handle is one that hasn't seen what others did since it was opened."""
        place = o.start % 2
        if o.start < 2 or place not in self.handles:
            old = self.opened(at, o)
            self.handles[place] = Lines(at[o.name], *old[2:4])
        lines = self.handles[place]
        kind = o.action.split()[-1]
        if kind == 'resize':
            lines.resize(o.one, o.two)
            self.buffer[:2] = o.one, o.two
            return
        axis, index = (0, o.one) if kind.startswith('row') else (1, o.two)
        count = o.steps if o.action in BLOCKS else 1
        if 'put' in o.action or 'get' in o.action:
            lines.check(axis, index, count)
        else:
            index = lines.extend(axis, count)
        lines.move(axis, index, count, self.buffer, is_read='get' in o.action)


class Lines:
    """An extensible array through a handle; axis 0 is rows, 1 is columns."""

    def __init__(self, d, rows, columns):
        self.d, self.counts = d, [rows, columns]

    def resize(self, rows, columns):
        self.d.resize((rows, columns))
        self.counts = [rows, columns]

    def width(self, axis):
        return self.counts[1 - axis]

    def check(self, axis, index, count):
        kind = (b'row', b'column')[axis]
        refuse_if(index + count > self.counts[axis],
                  b'Invalid %s index: %d (%d rows x %d columns)' % (kind, max(index, self.counts[axis]), *self.counts))
        is_outside = index + count > self.d.shape[axis] or self.width(axis) > self.d.shape[1 - axis]
        refuse_if(self.width(axis) and count and is_outside, LINE_FAILED)

    def extend(self, axis, count):
        """The file says where the new lines begin, the handle how wide they are at least."""
        index = self.d.shape[axis]
        shape = [max(self.d.shape[1 - axis], self.width(axis))] * 2
        shape[axis] = index + count
        self.counts[axis] += count
        self.d.resize(tuple(shape))
        return index

    def move(self, axis, index, count, buffer, is_read):
        shape = (count, self.width(axis)) if axis == 0 else (self.width(axis), count)
        block = (slice(index, index + count), slice(self.width(axis)))
        block = block if axis == 0 else block[::-1]
        cells = buffer[:count * self.width(axis)].reshape(shape)
        if cells.size and is_read:
            cells[...] = self.d[block]
        elif cells.size:
            self.d[block] = cells
