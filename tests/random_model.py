"""What the library does with a step of random use, carried out by h5py on a file in memory."""
import h5py
import numpy as np
from h5py import h5a, h5d, h5s, h5t

from foreign_files import create, string
from predict import NUMBERS, TEXT, UNLIMITED, child, is_told, values_of, walk

MANY = 1 << 18  # Values in the caller's buffer.
BASE = np.arange(float(MANY))
READS_BACK_AS = {9: 7, 10: 8, 11: 7, 12: 8, 15: 13, 16: 14}  # Element types that equal a lower one.
# A table's types of row, as HDF5 and as numpy describe them.
ROWS = {'H5T_COMPOUND {%s}' % ''.join(f' H5T_IEEE_F{8 * size}LE "{name}";' for name in names):
        np.dtype([(name, f'f{size}') for name in names])
        for names, size in (('ab', 8), ('a', 4), ('abcdefghijklmnopqrst', 8))}

# The classes of what child() tells, in its order. By action, or by all before its dot, which of them the name is.
GROUP, ARRAY, EXTENSIBLE, TABLE = range(4)
OPENS = {'node': (GROUP, ARRAY), 'array': (ARRAY,), 'extensible': (EXTENSIBLE,), 'table': (TABLE,)}
REPLACES = {'group.CreateArrayFromBuffer': (ARRAY,), 'group.CreateTableFromBuffer': (TABLE,),
            'group.CreateTableFromSelection': (TABLE,)}
NAMED = {**OPENS, **REPLACES, 'group.CreateGroup': (GROUP,), 'group.CreateArrayAndSet': (ARRAY,),
         'group.CreateExtensibleArray2D': (EXTENSIBLE,), 'group.CreateEmptyTable': (TABLE,),
         'group.CreateTable': (TABLE,)}

NO_FILE_SELECTION = b'Error while selecting elements from file data set'
NO_MEMORY_SELECTION = b'Error while selecting elements from memory data set'
SLAB_FAILED = b'Error reading from dataset to a memory hyperslab!'
WRITE_FAILED = b'error writing to dataset'
LINE_FAILED = b'error during io operation for ExtensibleArray2D dataset'
# What a move between unequal selections fails with.
MOVE_FAILED = {'table.GetFromHyperslab': b'Error reading data set hyperslab.',
               'table.GetFromSelection': b"Error -1 while reading from dataset '%s'",
               'table.SetToHyperslabFromSelection': WRITE_FAILED}
# The library's words for what h5py refuses too.
FAILURES = {'group.DelGroup': b"!could not remove group '%s'", 'node.SetAttr': b'!fail to create attribute: %s',
            'node.DelAttr': b'!could not delete attribute %s', 'group.CreateExtensibleArray2D': None}  # Isn't checked.


class Refused(Exception):
    """The library fails with these words."""


def refuse_if(condition, words):
    if condition:
        raise Refused(words)


def store(at, name, t, dims, chunk, level, limits=None):
    settings = {'set_chunk': (chunk,)} if all(chunk) else {}
    if level > 0:
        settings.update(set_shuffle=(), set_deflate=(level,))
    return create(at.id, name, t, h5s.create_simple(dims, limits), **settings)


def group_at(at, name):
    return at[name] if at.id.links.exists(name) else at.create_group(name)


class Model:
    """A file, the caller's buffer, and two handles of extensible arrays, which count their lines by themselves."""

    def __init__(self, row):
        self.file = h5py.File('model.h5', 'w', driver='core', libver=('earliest', 'latest'))
        self.file.attrs.create('__vorl_api_version', [1], dtype='u4')
        self.row = ROWS[row]
        self.buffer = BASE
        self.reopen(0)

    def reopen(self, level):
        self.level, self.charset, self.handles = level, h5t.CSET_UTF8, {}

    def act(self, s):
        """Plays a step and gives what the library must tell: how it failed, what it read, what is at the name."""
        if s.action in ('reopen', 'kill'):  # The file is walked while it is closed.
            self.reopen(s.level)
            return [*walk(self.file['/'].id, b'', set()), 1] if s.action == 'reopen' else []
        at = self.file['/']
        if s.at:
            at = group_at(at.require_group('below'), s.name)
        before = BASE + s.first
        self.buffer = before.copy()
        words = self.words_of(at, s)
        changed = np.flatnonzero(self.buffer != before)
        end = changed[-1] + 1 if changed.size else 0
        return [[words, values_of(self.buffer[:end]), child(at.id, s.name)]]

    def words_of(self, at, s):
        kind, _, name = s.action.partition('.')
        method = self.move_lines if kind == 'extensible' else getattr(self, kind + '_' + name, self.move_rows)
        try:
            old = None if kind == 'extensible' else self.opened(at, s)
            method(at, s, old)
            if s.stored:
                self.read_back(at, s)
        except Refused as refused:
            return b'!%s' % refused.args
        except (KeyError, OSError, RuntimeError, ValueError):
            words = FAILURES.get(s.action, b'!could not create dataset')
            return words and words.replace(b'%s', s.attribute if kind == 'node' else s.name)
        return None

    def opened(self, at, s):
        """What is told of the object that the step opens; refuses what doesn't open. None for no object."""
        told = child(at.id, s.name)
        replaced = REPLACES.get(s.action, ()) if any(map(is_told, told[1:])) else ()
        classes = OPENS.get(s.action.split('.')[0], replaced)
        for one in classes:
            if is_told(told[one]):
                return told[one]
        refuse_if(classes, classes and told[classes[-1]][1:])
        return None

    def has_data_set(self, at, s):
        return any(map(is_told, child(at.id, s.name)[1:]))

    def level_of(self, s):
        """A group's factories take a level below 0 for the group's own."""
        return self.level if s.level < 0 else s.level

    def read_back(self, at, s):
        d = at[s.name].id
        if s.stored == 'texts':
            self.buffer.view('u1')[:len(s.text)] = [*s.text]
        elif s.stored == 'table':
            d.read(h5s.ALL, h5s.ALL, self.rows(), self.row_type())
        else:
            d.read(h5s.ALL, h5s.ALL, self.buffer, h5t.NATIVE_DOUBLE)

    # Files, groups, attributes.

    def file_SetEncoding(self, at, s, old):
        self.charset = s.type

    def group_CreateGroup(self, at, s, old):
        for part in filter(None, s.name.split(b'/')):
            at = None if part == b'.' else group_at(at, part)
            refuse_if(not isinstance(at, h5py.Group), b"could not create group '%s'" % part)

    def group_DelGroup(self, at, s, old):
        del at[s.name]

    def node_SetAttr(self, at, s, old):
        node = at[s.name].id
        if h5a.exists(node, s.attribute):
            h5a.delete(node, s.attribute)
        t = string(len(s.text) or 1, self.charset, h5t.STR_NULLTERM)
        a = h5a.create(node, s.attribute, t, h5s.create_simple((1,)))
        a.write(np.frombuffer(s.text or b'\0', 'u1'), t)

    def node_DelAttr(self, at, s, old):
        h5a.delete(at[s.name].id, s.attribute)

    # Arrays of rows x columns elements. An old one is told as (attributes, type, length, width, ...).

    def group_CreateArrayFromBuffer(self, at, s, old):
        if s.type == TEXT:
            t, dims, values, mtype = string(s.columns, self.charset), (s.rows,), np.frombuffer(s.text, 'u1'), None
        else:
            t, mtype = NUMBERS[READS_BACK_AS.get(s.type, s.type) - 1], h5t.NATIVE_DOUBLE
            dims, values = (s.rows,) if s.columns == 1 else (s.rows, s.columns), self.buffer
        if old and old[1:4] == (s.type, s.rows, s.columns):
            d = at[s.name].id
            refuse_if(s.type == TEXT and d.get_type().get_cset() != self.charset, WRITE_FAILED)
        else:
            if old:
                del at[s.name]
            d = store(at, s.name, t, dims, dims, 0 if old else self.level)
        d.write(h5s.ALL, h5s.ALL, values, mtype or t)

    def array_SetFromBuffer(self, at, s, old):
        self.group_CreateArrayFromBuffer(at, s, old)
        refuse_if(s.name == b'./a', b'Array does not exist')  # It is opened again by its name; a dot is no link.

    def group_CreateArrayAndSet(self, at, s, old):
        if self.has_data_set(at, s):
            del at[s.name]
        if not s.rows and not s.columns and s.type not in READS_BACK_AS:  # Its own shape and type: in place.
            h5d.create(at.id, s.name, NUMBERS[s.type - 1], h5s.create(h5s.NULL))
        else:
            self.array_SetFromBuffer(at, s, None)

    def read_slab(self, at, s, old):
        """Reads elements from all over an array, or spreads them over the buffer."""
        d, (value, length, width) = at[s.name], old[1:4]
        has_dimensions, spreads = s.action.endswith('OfDimensions'), 'Memory' in s.action
        columns = s.columns if has_dimensions else 1
        is_null = d.shape is None
        self.refuse_slab(s, is_null, has_dimensions, spreads, width, 1 if is_null else d.ndim)
        places, count = [*range(s.start, s.start + s.stride * s.count, s.stride)], s.count * columns
        if spreads:  # Over a buffer a stride may run backwards, in a chunk of the file it may not.
            fits_buffer = s.start < s.stride or min(places, default=0) >= 0 > s.stride
            is_inside = fits_buffer and s.count <= length
        else:
            runs_forwards = s.stride > 0 or s.count < 2
            is_inside = runs_forwards and max(places, default=0) < length and columns <= width
        is_inside = is_inside and s.start >= 0 and s.count >= 0
        refuse_if(value == TEXT or (count and not is_inside) or (d.ndim == 1 and count != s.count), SLAB_FAILED)
        cells = d[()].reshape(length, width)
        if spreads:
            self.buffer[places] = cells[:count].ravel()
        elif count:
            self.buffer[:count] = cells[places, :columns].ravel()

    array_GetFromHyperslab = array_GetFromHyperslabOfDimensions = array_GetToMemoryHyperslab = read_slab

    @staticmethod
    def refuse_slab(s, is_null, has_dimensions, spreads, width, rank):
        refuse_if(spreads and (not s.stride or s.stride * s.count == -1),
                  b'Error creating memory data space hyperslab!')
        refuse_if((rank if spreads else width) != 1 and not has_dimensions,
                  b'Error reading hyperslab from a multidimensional array!')
        refuse_if(has_dimensions and s.dimensions > 2,
                  b"Error reading hyperslab: there's no support for arrays with more than 2 dimensions!")
        refuse_if(has_dimensions and not is_null and s.dimensions < rank,
                  b"Error reading hyperslab: the number of dimensions doesn't match the array!")
        refuse_if(is_null and spreads, b'Error creating file data space hyperslab!')
        refuse_if(is_null or not s.stride, b'Error creating array space hyperslab!')

    # Tables. An old one is told as (attributes, rows, columns).

    def rows(self):
        """The buffer as rows."""
        return np.frombuffer(self.buffer, self.row, self.buffer.nbytes // self.row.itemsize)

    def row_type(self):
        return h5t.py_create(self.row)

    def write_rows(self, d, rows):
        d.write(h5s.ALL, h5s.ALL, np.ascontiguousarray(rows), self.row_type())

    def store_table(self, at, s, old, count, chunk, level):
        if old:
            del at[s.name]
        return store(at, s.name, self.row_type(), (count,), (chunk,), level)

    def group_CreateEmptyTable(self, at, s, old):
        refuse_if(self.has_data_set(at, s), b'Fail to create an already existing table: ' + s.name)
        h5d.create(at.id, s.name, self.row_type(), h5s.create(h5s.NULL))

    def group_CreateTable(self, at, s, old):
        refuse_if(self.has_data_set(at, s), b'Fail to create an already existing table: ' + s.name)
        self.store_table(at, s, None, s.rows, s.rows, self.level_of(s))

    def group_CreateTableFromBuffer(self, at, s, old):
        chunk = s.chunk if s.chunk and not old else s.rows
        self.write_rows(self.store_table(at, s, old, s.rows, chunk, self.level_of(s)), self.rows()[:s.rows])

    def group_CreateTableFromSelection(self, at, s, old):
        self.replace_by_selection(at, s, old, self.level_of(s))

    def table_SetFromBuffer(self, at, s, old):
        if old[1] == s.rows and s.type != 1:
            self.write_rows(at[s.name].id, self.rows())
        else:
            self.write_rows(self.store_table(at, s, old, s.rows, s.rows, s.level), self.rows()[:s.rows])

    def table_SetFromSelection(self, at, s, old):
        if old[1] == s.rows and s.type != 1:  # In place the selection plays no part.
            self.write_rows(at[s.name].id, self.rows())
        else:
            self.replace_by_selection(at, s, old, s.level)

    def replace_by_selection(self, at, s, old, level):
        """The old table is gone before its successor is refused, which is made before the write is refused."""
        if old and not s.sources:
            del at[s.name]
        refuse_if(not s.sources, NO_MEMORY_SELECTION)
        d = self.store_table(at, s, old, len(s.sources), len(s.sources), level)
        refuse_if(max(s.sources) >= s.rows, WRITE_FAILED)
        self.write_rows(d, self.rows()[s.sources])

    def move_rows(self, at, s, old):
        """Moves rows between a table and a buffer of s.rows rows."""
        d, buffer, end = at[s.name].id, self.rows(), old[1]
        in_file, in_memory = self.selections(s, end)
        self.refuse_selections(s, end, d, in_file, in_memory)
        rows = np.zeros(end, self.row)
        if end:
            d.read(h5s.ALL, h5s.ALL, rows, self.row_type())
        if 'Set' in s.action:
            rows[in_file] = buffer[in_memory]
            self.write_rows(d, rows)
        else:
            buffer[in_memory] = rows[in_file]

    @staticmethod
    def selections(s, end):
        """The rows of the table and of the buffer, by the way that they move."""
        whole, stride = [*range(end)], s.stride or 1
        if s.action == 'table.GetFromHyperslab':
            return [*range(s.start, s.start + stride * s.count, stride)], [*range(s.count)]
        in_memory = {'table.GetToBuffer': whole, 'table.GetFromSelection': [*range(len(s.sources))],
                     'table.SetToHyperslabFromSelection': s.sources}.get(s.action, s.targets)
        run = [*range(s.start, s.start + len(in_memory))]
        in_file = {'table.GetToBuffer': whole, 'table.GetToSelection': whole, 'table.GetFromSelection': s.sources,
                   'table.GetFromToSelection': s.sources}.get(s.action, run)
        return in_file, in_memory

    @staticmethod
    def refuse_selections(s, end, d, in_file, in_memory):
        selects_places = s.action in ('table.GetFromSelection', 'table.GetFromToSelection')
        selects_in_file = selects_places or 'Hyperslab' in s.action
        selects_in_memory = s.action not in ('table.GetToBuffer', 'table.GetFromSelection', 'table.GetFromHyperslab')
        is_null = d.get_space().get_simple_extent_type() == h5s.NULL
        refuse_if(selects_in_file and is_null, NO_FILE_SELECTION)
        refuse_if(s.action == 'table.GetFromHyperslab' and not s.stride, NO_FILE_SELECTION)
        refuse_if(selects_places and not in_file, NO_FILE_SELECTION)
        refuse_if(selects_in_memory and not in_memory, NO_MEMORY_SELECTION)
        is_behind_the_buffer = selects_in_memory and max(in_memory) >= s.rows
        is_behind_the_table = in_file and max(in_file) >= end
        refuse_if(len(in_file) != len(in_memory) or is_behind_the_buffer or is_behind_the_table,
                  MOVE_FAILED.get(s.action, b'Error reading data set to a memory selection!').replace(b'%s', s.name))

    # Extensible arrays. An old one is told as (attributes, type, rows, columns, ...).

    def group_CreateExtensibleArray2D(self, at, s, old):
        t = NUMBERS[READS_BACK_AS.get(s.type, s.type) - 1]
        store(at, s.name, t, (s.rows, s.columns), (s.chunk, s.chunk_columns), self.level_of(s), (UNLIMITED, UNLIMITED))

    def move_lines(self, at, s, old):
        if not (s.kept and s.handle in self.handles):
            opened = self.opened(at, s)
            self.handles[s.handle] = Lines(at[s.name], *opened[2:4])
        lines = self.handles[s.handle]
        if s.action == 'extensible.Resize':
            lines.resize(s.rows, s.columns)
            self.buffer[:2] = s.rows, s.columns
            return
        axis = int('Column' in s.action)
        index, count = s.index, s.count if s.action.endswith('s') else 1
        if 'Append' in s.action:
            index = lines.extend(axis, count)
        else:
            lines.check(axis, index, count)
        lines.move(axis, index, count, self.buffer, 'Read' in s.action)


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
        block = (slice(index, index + count), slice(self.width(axis)))
        block = block if axis == 0 else block[::-1]
        shape = (count, self.width(axis)) if axis == 0 else (self.width(axis), count)
        cells = buffer[:count * self.width(axis)].reshape(shape)
        if cells.size and is_read:
            cells[...] = self.d[block]
        elif cells.size:
            self.d[block] = cells
