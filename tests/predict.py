"""What the library must tell of any file: its rules, carried out with h5py. The documents are those of Tell.h."""
import io
import itertools
import subprocess
import zlib

import h5py
import msgpack
import numpy as np
from h5py import h5, h5a, h5d, h5g, h5o, h5s, h5t

UNLIMITED = h5s.UNLIMITED
TEXT, TEXTS_OF_ANY_LENGTH = 17, 18
# The types of numbers by the values of the library's element types, from 1 on; some values never come back.
NUMBERS = (h5t.NATIVE_INT8, h5t.NATIVE_UINT8, h5t.NATIVE_INT16, h5t.NATIVE_UINT16, h5t.NATIVE_INT32, h5t.NATIVE_UINT32,
           h5t.STD_I64LE, h5t.STD_U64LE, None, None, None, None, h5t.NATIVE_FLOAT, h5t.NATIVE_DOUBLE)


def is_text(t):
    return t.get_class() == h5t.STRING


def is_sequence_of_texts(t):
    return t.get_class() == h5t.VLEN and t.get_super().get_class() == h5t.STRING


def value_of(t):
    """The element type of an HDF5 type, 0 for none."""
    for value, number in enumerate(NUMBERS, 1):
        if number and t.equal(number):
            return value
    if is_text(t):
        return TEXT
    return TEXTS_OF_ANY_LENGTH if is_sequence_of_texts(t) else 0


def as_utf8(text, t):
    return text.decode('latin-1').encode() if t.get_cset() == h5t.CSET_ASCII else text


def row_of(members):
    """The packed compound type of these members."""
    compound = h5t.create(h5t.COMPOUND, sum(t.get_size() for t in members.values()))
    offset = 0
    for name, t in members.items():
        compound.insert(name, offset, t)
        offset += t.get_size()
    return compound


# Attributes.

def text_of_fixed_length(stored, t):
    """One NUL at the end goes; what counts as Latin-1 ends at its first."""
    text = stored[:-1] if stored[-1:] == b'\0' else stored
    if t.get_cset() == h5t.CSET_ASCII:
        text = as_utf8(text.split(b'\0')[0], t)
    return text


def text_of_attribute(a, t, name):
    count = a.get_space().get_simple_extent_npoints()
    if not is_text(t):
        return b'!could not detect charset for attribute: ' + name
    if count != 1:
        return b'!could not read attribute: ' + name if count > 1 else b''
    if t.is_variable_str():
        values = np.zeros(a.shape, a.dtype)
        a.read(values)
        return bytes(values.flat[0])
    values = np.zeros(a.shape, f'V{t.get_size()}')
    a.read(values, mtype=t)
    return text_of_fixed_length(bytes(values.flat[0]), t)


def attribute(oid, index):
    a = h5a.open(oid, index=index, index_type=h5.INDEX_CRT_ORDER, order=h5.ITER_INC)
    t = a.get_type()
    return a.name, value_of(t) or b'!invalid HDF type', text_of_attribute(a, t, a.name)


def attributes(oid):
    told = [attribute(oid, i) for i in range(h5a.get_num_attrs(oid))]
    listed = [a[0] for a in told if not a[0].startswith(b'__vorl_')]
    return told, listed


# Values of data sets.

def texts(d, t, count, column=None):
    """The texts of a data set, or of a column of a table."""
    if not is_text(t):
        return b'!could not detect charset from dataset'
    item = t.dtype if t.is_variable_str() else f'V{t.get_size()}'
    item = np.dtype([(column.decode(), item)] if column else item)
    if t.is_variable_str():
        mtype = h5t.py_create(item)
    else:
        mtype = row_of({column: t}) if column else t
    try:
        stored = np.zeros(d.get_space().get_simple_extent_npoints(), item)
        d.read(h5s.ALL, h5s.ALL, stored, mtype)
    except (OSError, ValueError):  # Python has no room for the largest either.
        return b'!error reading string buffer from dataset'
    strings = [as_utf8(bytes(text[0] if column else text).split(b'\0')[0], t) for text in stored]
    return (strings + [b''] * count)[:count]


def size_of(value, count):
    return count * NUMBERS[value - 1].get_size() if value < TEXT else b'!unknown datatype!'


def values_of(values):
    """Each value, or of many a checksum."""
    return values.tolist() if len(values) < 1000 else zlib.crc32(values)


def numbers(d, value, count, words, mtype=h5t.NATIVE_DOUBLE):
    """The values, or the words with which reading them fails."""
    if count >= 1 << 20:
        return None
    values = np.zeros(max(count, 1))
    try:
        if not 0 < value < TEXT:
            raise OSError
        d.read(h5s.ALL, h5s.ALL, values, mtype)
    except OSError:
        return words
    return values_of(values)


def read_failed(name):
    return b"!Error -1 while reading from dataset '%s'" % name


# A data set as each of the three classes.

def array(d, t, dims, limits, name):
    value = value_of(t)
    if t.get_class() == h5t.COMPOUND:
        return b'!H5T_COMPOUND is not a valid Array'
    if not value:
        return b'!invalid HDF type'
    if len(dims) > 2:
        return b"!there's no support for arrays with more than 2 dimensions"
    if value == TEXTS_OF_ANY_LENGTH and len(dims) == 2:
        return b"!there's no support for variable length strings with more than 1 dimension"
    if limits == (UNLIMITED, UNLIMITED):
        return b'!not a valid Array'
    length, width = (*dims, 1, 1)[:2] if dims else (0, 0)
    if value == TEXT and dims:
        width = t.get_size()
    size = length * width
    cells = numbers(d, value, size, read_failed(name)) if value < TEXT else texts(d, t, length)
    return attributes(d), value, length, width, size % 2 ** 64, size_of(value, size), cells


def extensible(d, t, dims, limits, name):
    value = value_of(t)
    is_compound = t.get_class() == h5t.COMPOUND
    if not value and not is_compound:
        return b'!invalid HDF type'
    if is_compound or (len(dims) == 2 and UNLIMITED not in limits):
        return b'!not an ExtensibleArray2D'
    if len(dims) != 2:
        return b'!dimension for ExtensibleArray did not return 2 as expected.'
    rows, columns = dims
    cells = numbers(d, value, rows * columns, b'!error during io operation for ExtensibleArray2D dataset')
    return attributes(d), value, rows, columns, size_of(value, rows * columns), cells


def column_of(d, t, i, rows, name):
    member, column = t.get_member_type(i), t.get_member_name(i)
    value = value_of(member)
    strings = texts(d, member, rows, column) if value == TEXT else b'!not a string array'
    cells = numbers(d, value, rows, read_failed(name), row_of({column: h5t.NATIVE_DOUBLE}))
    return column, value, strings, cells


def table(d, t, dims, limits, name):
    if t.get_class() not in (h5t.COMPOUND, h5t.VLEN) or len(dims) > 1:
        return b"!could not open Table '%s'" % name
    columns = t.get_nmembers() if t.get_class() == h5t.COMPOUND else 0
    for i in range(columns):
        member = t.get_member_type(i)
        if not value_of(member) and member.get_class() not in (h5t.ARRAY, h5t.COMPOUND, h5t.VLEN):
            return b'!invalid HDF type'
    rows = dims[0] if dims else 0
    return attributes(d), rows, [column_of(d, t, i, rows, name) for i in range(columns)]


# Groups.

def is_told(document):
    """Instead of the words of a failure."""
    return not isinstance(document, bytes)


def open_object(gid, name):
    """None if the library finds nothing there."""
    if b'.' in name.split(b'/'):  # HDF5 passes over it when it opens, but there is no link of that name.
        return None
    try:
        return h5o.open(gid, name)
    except (KeyError, OSError, RuntimeError, ValueError):
        return None


def child(gid, name):
    """How a name opens as each of the four classes."""
    told = [b'!%s does not exist' % kind for kind in (b'Group', b'Array', b'ExtensibleArray', b'Array')]
    o = open_object(gid, name)
    if isinstance(o, h5g.GroupID):
        told[0] = group(o)
    elif isinstance(o, h5d.DatasetID):
        s = o.get_space()
        has_extent = s.get_simple_extent_ndims() > 0
        dims = s.get_simple_extent_dims() if has_extent else ()
        limits = s.get_simple_extent_dims(True) if has_extent else ()
        told[1:] = [tell(o, o.get_type(), dims, limits, name) for tell in (array, extensible, table)]
    return told


def kind(gid, name):
    """A link is a link, wherever it leads."""
    link = gid.links.get_info(name).type
    if link == h5py.h5l.TYPE_HARD:
        return h5o.get_info(gid, name).type
    return 3 if link == h5py.h5l.TYPE_SOFT else 4


def group(gid):
    kinds = [kind(gid, name) for name in gid]
    return attributes(gid), len(kinds), kinds.count(0), 1 in kinds


def listings(gid, names):
    """Groups, arrays, extensible arrays and tables."""
    listed = ([], [], [], [])
    for name in names:
        if kind(gid, name) < 2:
            for names_of_kind, told in zip(listed, child(gid, name)):
                if is_told(told):
                    names_of_kind.append(name)
    return listed


def walk(gid, path, seen):
    address = h5o.get_info(gid).addr
    if address in seen:
        return
    seen.add(address)
    names = sorted(gid)
    yield path, group(gid), *listings(gid, names)
    for name in names:
        yield path + b'/' + name, kind(gid, name), child(gid, name)
        if kind(gid, name) == 0:
            yield from walk(h5g.open(gid, name), path + b'/' + name, seen)


def predict(path):
    """All documents of a file."""
    try:
        with h5py.File(path, 'r') as f:
            mark = np.asarray(f.attrs.get('__vorl_api_version', 0))
            if mark.size != 1 or mark.dtype.kind not in 'iuf':
                return ['!could not read attribute: __vorl_api_version']
            return [*walk(h5g.open(f.id, b'/'), b'', set()), int(mark.flat[0])]
    except OSError:
        return ['!Failed to obtain a valid file handle for filename: ' + path]


# The walker's documents and the comparison.

def unpacked(told):
    return [*msgpack.Unpacker(io.BytesIO(told), raw=True)]


def plain(told):
    """As it is after a way through MessagePack."""
    return unpacked(b''.join(map(msgpack.packb, told)))


def compare(walker, path):
    """Walks a file with the library; gives the number of documents, all of which are as predicted."""
    run = subprocess.run([walker, path], check=True, capture_output=True)
    assert not run.stderr, run.stderr.decode()
    told, predicted = unpacked(run.stdout), plain(predict(path))
    different = [f'{path}: told\n {a}\npredicted\n {b}' for a, b in itertools.zip_longest(told, predicted)
                 if str(a) != str(b)]  # No NaN is equal to another.
    assert not different, f'{len(different)} lines differ; ' + different[0]
    return len(told)
