"""What the library does with a step of random use, carried out by h5py on a file in memory.

An operation is a method; its parameters are the arguments of a step. Where HDF5 refuses what a method does, the library
must fail too; a Refused holds words of its own.
"""
import contextlib

import h5py
import numpy as np
from h5py import h5a, h5d, h5s, h5t

from foreign_files import create, string
from predict import NUMBERS, TEXT, UNLIMITED, child, is_told, values_of

MANY = 1 << 18  # Values in the caller's buffer.
# A table's types of row, as HDF5 and as numpy describe them.
ROWS = {'H5T_COMPOUND {%s}' % ''.join(f' H5T_IEEE_F{8 * size}LE "{name}";' for name in names):
        np.dtype([(name, f'f{size}') for name in names])
        for names, size in (('ab', 8), ('a', 4), ('abcdefghijklmnopqrst', 8))}

GROUP, ARRAY, EXTENSIBLE, TABLE = range(4)  # The classes of what child() tells, in its order.
OPENS = {'node': (GROUP, ARRAY), 'array': (ARRAY,), 'extensible': (EXTENSIBLE,), 'table': (TABLE,)}


class Refused(Exception):
    """The library fails with these words."""


def refuse_if(condition, words):
    if condition:
        raise Refused(words)


def filled(contents):
    """The caller's buffer with a text, or with numbers that count up."""
    if not isinstance(contents, bytes):
        return np.arange(float(MANY)) + contents
    buffer = filled(0)
    buffer.view('u1')[:len(contents)] = [*contents]
    return buffer


def store(at, name, t, dims, chunk, level, limits=None):
    settings = {'set_chunk': (chunk,)} if all(chunk) else {}
    if level > 0:
        settings.update(set_shuffle=(), set_deflate=(level,))
    return create(at.id, name, t, h5s.create_simple(dims, limits), **settings)


def places(extent, rows):
    """A selection of these rows."""
    space = h5s.create_simple((extent,))
    space.select_elements(np.array(rows, 'u8').reshape(-1, 1))
    return space


def slab(space, start, stride, count):
    space.select_hyperslab(start, count, stride)
    return space


def ends_inside(space):
    """Some versions of HDF5 let the place behind the end pass."""
    if space is h5s.ALL or not space.get_select_npoints():
        return True
    return all(last < extent for last, extent in zip(space.get_select_bounds()[1], space.shape))


def move(transfer, memory, in_file, buffer, t):
    refuse_if(not (ends_inside(memory) and ends_inside(in_file)), b'')
    transfer(memory, in_file, buffer, t)


class Model:
    """A file, the caller's buffer, and the object of the step."""

    def __init__(self, row):
        self.file = h5py.File('model.h5', 'w', driver='core', libver=('earliest', 'latest'))
        self.file.attrs.create('__vorl_api_version', [1], dtype='u4')
        self.root, self.row_type = self.file['/'], h5t.py_create(ROWS[row])
        self.file_Reopen(0)

    def play(self, step):
        """Plays a step and gives what is told of it: how it failed, what it read and what is at the name."""
        operation, path, *arguments, name = step
        kind, _, self.action = operation.partition('.')
        self.base = self.buffer = filled(0)
        return [self.words_of(kind, path, arguments), self.changes(), child(self.root.id, name)]

    def words_of(self, kind, path, arguments):
        """Those of a failure; where HDF5 fails they are left open."""
        method = getattr(self, f'{kind}_{self.action}')
        try:
            self.open(kind, path)
            for given, parameter in zip(arguments, parameters_of(method)):
                if parameter == 'buffer':
                    self.base, self.buffer = filled(0 if isinstance(given, bytes) else given), filled(given)
            method(*arguments)
        except Refused as refused:
            return b'!' + refused.args[0]
        except (KeyError, OSError, RuntimeError, ValueError):
            return b'!'
        return None

    def open(self, kind, path):
        self.path = path
        if kind == 'group':
            self.at = self.file[path or '/']
        elif kind == 'extensible' and path == self.kept[0]:  # Whatever was done to the object at that name.
            self.d = self.kept[1]
        elif kind in OPENS:
            self.old = self.opened(child(self.root.id, path), OPENS[kind])
            self.d = self.file[path].id
            self.kept = (path, self.d) if kind == 'extensible' else self.kept

    @staticmethod
    def opened(told, classes):
        for one in classes:
            if is_told(told[one]):
                return told[one]
        raise Refused(told[classes[-1]][1:])

    def replaced(self, name, one):
        """What is told of the data set that a factory replaces, None for no data set."""
        told = child(self.at.id, name)
        return self.opened(told, (one,)) if any(map(is_told, told[1:])) else None

    def changes(self):
        changed = np.flatnonzero(self.buffer != self.base)
        return values_of(self.buffer[:changed[-1] + 1] if changed.size else self.buffer[:0])

    # Files, groups, attributes.

    def file_Reopen(self, plain_level):
        self.level, self.charset, self.kept = plain_level, h5t.CSET_UTF8, (None, None)

    def file_SetEncoding(self, charset):
        self.charset = charset

    def group_CreateGroup(self, name):
        at = self.at
        for part in filter(None, name.split(b'/')):
            if part == b'.':
                raise KeyError
            at = at[part] if at.id.links.exists(part) else at.create_group(part)
            refuse_if(not isinstance(at, h5py.Group), b"could not create group '%s'" % part)

    def group_DelGroup(self, name):
        del self.at[name]

    def node_SetAttr(self, attribute, text):
        if h5a.exists(self.d, attribute):
            h5a.delete(self.d, attribute)
        t = string(len(text) or 1, self.charset, h5t.STR_NULLTERM)
        a = h5a.create(self.d, attribute, t, h5s.create_simple((1,)))
        a.write(np.frombuffer(text or b'\0', 'u1'), t)

    def node_DelAttr(self, attribute):
        h5a.delete(self.d, attribute)

    # Arrays of rows x columns elements. An old one is told as (attributes, type, rows, columns, ...).

    def group_CreateArray(self, name, number_type):
        if any(map(is_told, child(self.at.id, name)[1:])):
            del self.at[name]
        h5d.create(self.at.id, name, NUMBERS[number_type - 1], h5s.create(h5s.NULL))

    def group_CreateArrayFromBuffer(self, name, buffer, element_type, length, components):
        self.store_array(self.at, name, self.replaced(name, ARRAY), element_type, length, components)

    def array_SetFromBuffer(self, buffer, element_type, length, components):
        self.store_array(self.root, self.path, self.old, element_type, length, components)

    def store_array(self, at, name, old, element_type, length, components):
        """An array of the same type and shape is written in place, any other one is replaced without compression."""
        t, dims = string(components, self.charset) if element_type == TEXT else NUMBERS[element_type - 1], (length,)
        if element_type != TEXT and components != 1:
            dims = (length, components)
        if old and old[1:4] == (element_type, length, components):
            d = at[name].id
            is_other_charset = element_type == TEXT and d.get_type().get_cset() != self.charset
            refuse_if(is_other_charset, b'error writing to dataset')
        else:
            if old:
                del at[name]
            d = store(at, name, t, dims, dims, 0 if old else self.level)
        d.write(h5s.ALL, h5s.ALL, self.buffer, t)

    # Extensible arrays; axis 0 is rows, 1 is columns.

    def group_CreateExtensibleArray2D(self, name, number_type, rows, columns, chunk_rows, chunk_columns, level):
        with contextlib.suppress(ValueError):  # A name that is taken isn't told.
            store(self.at, name, NUMBERS[number_type - 1], (rows, columns), (chunk_rows, chunk_columns),
                  self.level_of(level), (UNLIMITED, UNLIMITED))

    def extensible_Resize(self, rows, columns):
        self.d.set_extent((rows, columns))

    def extensible_AppendRows(self, count, buffer):
        shape = [*self.d.shape]
        index = shape[self.axis()]
        shape[self.axis()] += count
        self.d.set_extent(tuple(shape))
        self.move_lines(index, count)

    def extensible_AppendRow(self, buffer):
        self.extensible_AppendRows(1, buffer)

    def extensible_ReadRows(self, index, count, buffer):
        kind, lines = (b'row', b'column')[self.axis()], self.d.shape[self.axis()]
        refuse_if(index + count > lines, b'Invalid %s index: %d (%d rows x %d columns)' % (
            kind, max(index, lines), *self.d.shape))
        self.move_lines(index, count)

    extensible_AppendColumns, extensible_AppendColumn = extensible_AppendRows, extensible_AppendRow
    extensible_ReadColumns = extensible_WriteRows = extensible_WriteColumns = extensible_ReadRows

    def axis(self):
        return int('Column' in self.action)

    def move_lines(self, index, count):
        start, shape = [0, 0], [*self.d.shape]
        start[self.axis()], shape[self.axis()] = index, count
        cells = shape[0] * shape[1]
        if cells:
            space = slab(self.d.get_space(), tuple(start), (1, 1), tuple(shape))
            transfer = self.d.read if 'Read' in self.action else self.d.write
            move(transfer, h5s.create_simple((cells,)), space, self.buffer, h5t.NATIVE_DOUBLE)

    # Tables. An old one is told as (attributes, rows, columns).

    def level_of(self, level):
        """A group's factories take a level below 0 for the group's own."""
        return self.level if level < 0 else level

    def store_table(self, at, name, old, rows, chunk, level):
        if old:
            del at[name]
        return store(at, name, self.row_type, (rows,), (chunk,), level)

    def group_CreateEmptyTable(self, name):
        self.refuse_existing(name)
        h5d.create(self.at.id, name, self.row_type, h5s.create(h5s.NULL))

    def group_CreateTable(self, name, rows, level):
        self.refuse_existing(name)
        self.store_table(self.at, name, None, rows, rows, self.level_of(level))

    def refuse_existing(self, name):
        is_there = any(map(is_told, child(self.at.id, name)[1:]))
        refuse_if(is_there, b'Fail to create an already existing table: ' + name)

    def group_CreateTableFromBuffer(self, name, buffer, rows, level, chunk):
        old = self.replaced(name, TABLE)
        d = self.store_table(self.at, name, old, rows, chunk if chunk and not old else rows, self.level_of(level))
        d.write(h5s.ALL, h5s.ALL, self.buffer, self.row_type)

    def group_CreateTableFromSelection(self, name, buffer, memory_rows, sources, level):
        old = self.replaced(name, TABLE)
        self.store_selection(self.at, name, old, memory_rows, sources, self.level_of(level))

    def table_SetFromBuffer(self, buffer, rows, memory_type, plain_level):
        """A table of as many rows of its own type is written in place."""
        is_in_place = self.old[1] == rows and memory_type != 1
        d = self.d if is_in_place else self.store_table(self.root, self.path, self.old, rows, rows, plain_level)
        d.write(h5s.ALL, h5s.ALL, self.buffer, self.row_type)

    def table_SetFromSelection(self, buffer, rows, sources, memory_type, plain_level):
        if self.old[1] == rows and memory_type != 1:  # In place the selection plays no part.
            self.d.write(h5s.ALL, h5s.ALL, self.buffer, self.row_type)
        else:
            self.store_selection(self.root, self.path, self.old, rows, sources, plain_level)

    def store_selection(self, at, name, old, rows, sources, level):
        """The old table is gone before its successor is refused, which is made before the write is refused."""
        if old:
            del at[name]
        memory = places(rows, sources)
        d = self.store_table(at, name, None, len(sources), len(sources), level)
        move(d.write, memory, h5s.ALL, self.buffer, self.row_type)

    def table_GetToBuffer(self, buffer, memory_type):
        self.read_rows(h5s.ALL, h5s.ALL)

    def table_GetToSelection(self, buffer, memory_rows, memory_type, targets):
        self.read_rows(places(memory_rows, targets), h5s.ALL)

    def table_GetFromHyperslab(self, buffer, start, stride, count):
        space = slab(self.d.get_space(), (start,), (stride,), (count,))
        self.read_rows(h5s.create_simple((count,)), space)

    def table_GetFromSelection(self, buffer, memory_type, sources):
        self.read_rows(h5s.create_simple((len(sources),)), places(self.old[1], sources))

    def table_SetToHyperslabFromSelection(self, buffer, memory_rows, start, sources):
        space = slab(self.d.get_space(), (start,), (1,), (len(sources),))
        move(self.d.write, places(memory_rows, sources), space, self.buffer, self.row_type)

    def read_rows(self, memory, rows):
        move(self.d.read, memory, rows, self.buffer, self.row_type)


def parameters_of(method):
    """Those behind self."""
    code = method.__code__
    return code.co_varnames[1:code.co_argcount]
