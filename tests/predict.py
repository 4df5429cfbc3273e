"""What the library must tell of any file: its rules, carried out with h5py. The documents are those of Tell.h."""
import io
import itertools
import subprocess

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


def value_of(t):
    """The element type of an HDF5 type, 0 for none."""
    for value, number in enumerate(NUMBERS, 1):
        if number and t.equal(number):
            return value
    if t.get_class() == h5t.VLEN and is_text(t.get_super()):
        return TEXTS_OF_ANY_LENGTH
    return TEXT if is_text(t) else 0


def row_of(members):
    """The packed compound type of these members."""
    compound = h5t.create(h5t.COMPOUND, sum(t.get_size() for t in members.values()))
    offset = 0
    for name, t in members.items():
        compound.insert(name, offset, t)
        offset += t.get_size()
    return compound


# Texts.

def in_memory(t):
    """The types of a text in memory, numpy's and HDF5's: a pointer, or what is stored."""
    if t.is_variable_str():
        return t.dtype, h5t.py_create(t.dtype)
    return np.dtype(f'V{t.get_size()}'), t


def as_utf8(text, t):
    return text.decode('latin-1').encode() if t.get_cset() == h5t.CSET_ASCII else text


def until_nul(text, t):
    return as_utf8(bytes(text).split(b'\0')[0], t)


# Attributes.

def text_of_attribute(a, t):
    """Of a fixed length, one NUL at the end goes, and what counts as Latin-1 ends at its first."""
    item, mtype = in_memory(t)
    values = np.zeros(a.shape, item)
    a.read(values, mtype=mtype)
    text = bytes(values.flat[0])
    if t.is_variable_str():
        return text
    text = text[:-1] if text[-1:] == b'\0' else text
    return until_nul(text, t) if t.get_cset() == h5t.CSET_ASCII else text


def attribute(oid, index):
    a = h5a.open(oid, index=index, index_type=h5.INDEX_CRT_ORDER, order=h5.ITER_INC)
    t, count = a.get_type(), a.get_space().get_simple_extent_npoints()
    if not is_text(t):
        text = b'!could not detect charset for attribute: ' + a.name
    elif count > 1:
        text = b'!could not read attribute: ' + a.name
    else:
        text = text_of_attribute(a, t) if count else b''
    return a.name, value_of(t) or b'!invalid HDF type', text


def attributes(oid):
    told = [attribute(oid, i) for i in range(h5a.get_num_attrs(oid))]
    return told, [name for name, *_ in told if not name.startswith(b'__vorl_')]


# Values of data sets.

def texts(d, t, count, column=None):
    """The texts of a data set, or of a column of a table."""
    if not is_text(t):
        return b'!could not detect charset from dataset'
    item, mtype = in_memory(t)
    if column:
        item = np.dtype([('column', item)])
        mtype = row_of({column: mtype})
    try:
        stored = np.zeros(d.get_space().get_simple_extent_npoints(), item)
        d.read(h5s.ALL, h5s.ALL, stored, mtype)
    except (OSError, ValueError):  # Python has no room for the largest either.
        return b'!error reading string buffer from dataset'
    strings = [until_nul(text, t) for text in (stored['column'] if column else stored)]
    return (strings + [b''] * count)[:count]


def size_of(value, count):
    return count * NUMBERS[value - 1].get_size() if value < TEXT else b'!unknown datatype!'


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
    return values.tolist()


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

def child(gid, name):
    """How a name opens as each of the four classes."""
    told = [b'!%s does not exist' % kind for kind in (b'Group', b'Array', b'ExtensibleArray', b'Array')]
    try:
        o = h5o.open(gid, name)
    except (KeyError, RuntimeError):  # Links that lead nowhere, and in a circle.
        return told
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


def walk(gid, path, seen):
    address = h5o.get_info(gid).addr
    if address in seen:
        return
    seen.add(address)
    children = [(name, kind(gid, name), child(gid, name)) for name in sorted(gid)]
    # Listed as one of the four classes is what isn't a link and opens: the words of a failure are bytes.
    yield path, group(gid), *([name for name, which, told in children if which < 2 and not isinstance(told[i], bytes)]
                              for i in range(4))
    for name, which, told in children:
        yield path + b'/' + name, which, told
        if which == 0:
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

def unpacked(documents):
    return [*msgpack.Unpacker(io.BytesIO(documents), raw=True)]


def compare(walker, path):
    """Walks a file with the library; gives the number of documents, all of which are as predicted."""
    run = subprocess.run([walker, path], check=True, capture_output=True)
    assert not run.stderr, run.stderr.decode()
    told = unpacked(run.stdout)
    predicted = unpacked(b''.join(map(msgpack.packb, predict(path))))
    different = [f'{path}: told\n {a}\npredicted\n {b}' for a, b in itertools.zip_longest(told, predicted)
                 if str(a) != str(b)]  # No NaN is equal to another.
    assert not different, f'{len(different)} lines differ; ' + different[0]
    return len(told)
