"""Files by other writers: made here, walked by the library, and told anew with h5py by the rules of the library.
Usage: foreign_files.py WALKER"""
import glob, io, itertools, os, pathlib, subprocess, sys, tempfile, zlib
import h5py, msgpack, numpy as np, tables
from h5py import h5, h5a, h5d, h5g, h5o, h5p, h5s, h5t, h5z

INF = h5s.UNLIMITED
NUMBERS = (h5t.NATIVE_INT8, h5t.NATIVE_UINT8, h5t.NATIVE_INT16, h5t.NATIVE_UINT16, h5t.NATIVE_INT32, h5t.NATIVE_UINT32,
           h5t.STD_I64LE, h5t.STD_U64LE, None, None, None, None, h5t.NATIVE_FLOAT, h5t.NATIVE_DOUBLE)


def value_of(t):  # The element type, 0 for none.
    sequence = t.get_super() if t.get_class() == h5t.VLEN else None
    return next((i for i, known in enumerate(NUMBERS, 1) if known and t.equal(known)),
                17 if t.get_class() == h5t.STRING else 18 if sequence and sequence.get_class() == h5t.STRING else 0)


def as_utf8(text, t):
    return text.decode('latin-1').encode() if t.get_cset() == h5t.CSET_ASCII else text


def row_of(members):
    sizes = [t.get_size() for t in members.values()]
    compound = h5t.create(h5t.COMPOUND, sum(sizes))
    for i, (name, t) in enumerate(members.items()):
        compound.insert(name, sum(sizes[:i]), t)
    return compound


def attribute(oid, index):
    a = h5a.open(oid, index=index, index_type=h5.INDEX_CRT_ORDER, order=h5.ITER_INC)
    t, n, name = a.get_type(), a.get_space().get_simple_extent_npoints(), a.name[:511]
    if name != a.name:
        return name, *[b'!invalid attribute name: ' + name] * 2
    if t.get_class() != h5t.STRING or n != 1:
        text = b'!could not detect charset for attribute: ' + name if t.get_class() != h5t.STRING else \
            b'!could not read attribute: ' + name if n > 1 else b''
    else:
        values = np.zeros(a.shape, a.dtype if t.is_variable_str() else f'V{t.get_size()}')
        a.read(values, mtype=None if t.is_variable_str() else t)
        text = bytes(values.flat[0])
        if not t.is_variable_str():
            text = text[:-1] if text[-1:] == b'\0' else text
            text = as_utf8(text.split(b'\0')[0], t) if t.get_cset() == h5t.CSET_ASCII else text
    return name, value_of(t) or b'!invalid HDF type', text


def attributes(oid):
    told = [attribute(oid, i) for i in range(h5a.get_num_attrs(oid))]
    return told, [a[0] for a in told if not a[0].startswith(b'__vorl_')]


def read(d, values, mtype):  # The walker has none of the filters that Python packages register.
    filters = d.get_create_plist()
    if d.get_storage_size() and any(filters.get_filter(i)[0] >= 256 for i in range(filters.get_nfilters())):
        raise OSError
    d.read(h5s.ALL, h5s.ALL, values, mtype)
    return values


def texts(d, t, count, column=None):
    if t.get_class() != h5t.STRING:
        return b'!could not detect charset from dataset'
    item = t.dtype if t.is_variable_str() else f'V{t.get_size()}'
    item = np.dtype([(column.decode(), item)] if column else item)
    mtype = h5t.py_create(item) if t.is_variable_str() else row_of({column: t}) if column else t
    try:
        strings = read(d, np.zeros(d.get_space().get_simple_extent_npoints(), item), mtype)
    except (OSError, ValueError):  # Python has no room for the largest either.
        return b'!error reading string buffer from dataset'
    strings = [bytes(text[0] if column else text).split(b'\0')[0] for text in strings]
    return ([as_utf8(text, t) for text in strings] + [b''] * count)[:count]


def size_of(value, count):
    return count * NUMBERS[value - 1].get_size() if value < 17 else b'!unknown datatype!'


def values_of(values):  # Each value, or of many a checksum.
    return values.tolist() if len(values) < 1000 else zlib.crc32(values)


def numbers(d, value, name, count, tell=values_of, mtype=h5t.NATIVE_DOUBLE):
    if count >= 1 << 20:
        return None
    try:
        if not 0 < value < 17:
            raise OSError
        return tell(read(d, np.zeros(max(count, 1)), mtype))
    except OSError: return b"!Error -1 while reading from dataset '%s'" % name


def array(d, t, dims, limits, name):
    value = value_of(t)
    if not value:
        return b'!H5T_COMPOUND is not a valid Array' if t.get_class() == h5t.COMPOUND else b'!invalid HDF type'
    if len(dims) > 2:
        return b"!there's no support for arrays with more than 2 dimensions"
    if value == 18 and len(dims) == 2:
        return b"!there's no support for variable length strings with more than 1 dimension"
    if limits == (INF, INF):
        return b'!not a valid Array'
    length, width = (*dims, 1, 1)[:2] if dims else (0, 0)
    width = t.get_size() if value == 17 and dims else width
    return attributes(d), value, length, width, length * width % 2 ** 64, size_of(value, length * width), \
        texts(d, t, length) if value > 16 else numbers(d, value, name, length * width)


def extensible(d, t, dims, limits, name):
    value = value_of(t)
    if not value and t.get_class() != h5t.COMPOUND:
        return b'!invalid HDF type'
    if not value or (len(dims) == 2 and INF not in limits):
        return b'!not an ExtensibleArray2D'
    if len(dims) != 2:
        return b'!dimension for ExtensibleArray did not return 2 as expected.'
    rows, columns = dims
    cells = numbers(d, value, name, rows * columns, lambda values: values[:rows * columns].reshape(dims))

    def line(axis, index):
        if index == dims[axis]:
            return b'!Invalid %s index: %d (%d rows x %d columns)' % ((b'row', b'column')[axis], index, *dims)
        if isinstance(cells, bytes):
            return b'!error during io operation for ExtensibleArray2D dataset'
        return values_of(cells.take(index, axis)) if cells.size else [0.0]

    return attributes(d), value, rows, columns, size_of(value, rows * columns), \
        [line(0, i) for i in range(min(rows, 9) + 1)], [line(1, i) for i in range(min(columns, 2) + 1)]


def table(d, t, dims, limits, name):
    if t.get_class() not in (h5t.COMPOUND, h5t.VLEN) or len(dims) > 1:
        return b"!could not open Table '%s'" % name
    rows, columns = dims[0] if dims else 0, []
    for i in range(t.get_nmembers() if t.get_class() == h5t.COMPOUND else 0):
        member, column = t.get_member_type(i), t.get_member_name(i)
        if not value_of(member) and member.get_class() not in (h5t.ARRAY, h5t.COMPOUND, h5t.VLEN):
            return b'!invalid HDF type'
        columns.append((column, value_of(member),
                        texts(d, member, rows, column) if value_of(member) == 17 else b'!not a string array',
                        numbers(d, value_of(member), name, rows, mtype=row_of({column: h5t.NATIVE_DOUBLE}))))
    return attributes(d), rows, columns


def child(gid, name):
    told = [b'!%s does not exist' % kind for kind in (b'Group', b'Array', b'ExtensibleArray', b'Array')]
    try:
        o = None if b'.' in name.split(b'/') else h5o.open(gid, name)  # There is no link of that name.
    except (KeyError, OSError, RuntimeError, ValueError):
        return told
    if isinstance(o, h5g.GroupID):
        told[0] = group(o)
    elif isinstance(o, h5d.DatasetID):
        s = o.get_space()
        dims = () if s.get_simple_extent_ndims() == 0 else s.get_simple_extent_dims()
        limits = () if dims == () else s.get_simple_extent_dims(True)
        told[1:] = [tell(o, o.get_type(), dims, limits, name) for tell in (array, extensible, table)]
    return told


def kind(gid, name):
    link = gid.links.get_info(name).type
    return 3 if link == 1 else 4 if link else h5o.get_info(gid, name).type


def group(gid):
    kinds = [kind(gid, name) for name in gid]
    return attributes(gid), len(kinds), kinds.count(0), 1 in kinds


def walk(gid, path, seen):
    address = h5o.get_info(gid).addr
    if address in seen:
        return
    seen.add(address)
    names, listed = sorted(gid), ([], [], [], [])
    for name in names:
        if kind(gid, name) < 2:
            for names_of_kind, told in zip(listed, child(gid, name[:511])):
                isinstance(told, bytes) or names_of_kind.append(name[:511])
    too_long = any(len(name) > 511 and kind(gid, name) == 0 for name in names)
    yield path, group(gid), b'!Group does not exist' if too_long else listed[0], *listed[1:]
    for name in names:
        cut = name[:511]
        yield path + b'/' + cut, kind(gid, name), child(gid, cut)
        if kind(gid, name) == 0 and cut == name:
            yield from walk(h5g.open(gid, name), path + b'/' + name, seen)


def predict(path):
    try:
        with h5py.File(path, 'r') as f:
            mark = np.asarray(f.attrs.get('__vorl_api_version', 0))
            if mark.size != 1 or mark.dtype.kind not in 'iuf': return ['!could not read attribute: __vorl_api_version']
            return [*walk(h5g.open(f.id, b'/'), b'', set()), int(mark.flat[0])]
    except OSError: return ['!Failed to obtain a valid file handle for filename: ' + path]


def string(size, cset=0, pad=1):
    t = h5t.C_S1.copy()
    t.set_size(size), t.set_cset(cset), t.set_strpad(pad)
    return t


INT, ROW = h5t.STD_I32LE, [('a', 'i4'), ('b', 'S6'), ('c', 'f8')]
ALL = [('a', ROW), ('b', 'i4', (2,)), ('c', h5py.vlen_dtype('i4')), ('d', h5py.string_dtype()), ('e', 'u1')]
NUMPY = {**{d: d for d in 'i1 u1 i2 u2 i4 u4 i8 u8 f4 f8 >i2 >i8 >f4 >f8 f2 g c8 2i4 V5 ?'.split()}, 'row': ROW,
         'row of all': ALL, 'row of flags': [('a', '?')], 'row BE': [('a', '>i4')],
         'utf8': h5py.string_dtype(), 'latin': h5py.string_dtype('ascii'), 'sequence': h5py.vlen_dtype('i4')}
TYPES = {**{name: h5t.py_create(np.dtype(d), True) for name, d in NUMPY.items()},
         **{f'text {kind}': string(*kind) for kind in itertools.product((1, 6), (0, 1), (0, 1, 2))},
         'vtexts': h5t.vlen_create(string(6)), 'texts': h5t.array_create(string(6), (2,)), 'bits': h5t.STD_B8LE,
         'object': h5t.STD_REF_OBJ, 'region': h5t.STD_REF_DSETREG, 'time': h5t.UNIX_D32LE, 'char BE': h5t.STD_I8BE}
TYPES['row of texts'] = row_of({name.encode(): t for name, t in TYPES.items() if name.startswith('text ')})
TYPES['row of vtexts'] = row_of({b'utf8': TYPES['utf8'], b'number': INT, b'latin': TYPES['latin']})
FIXED = ((0,), (1,), (3,), (2, 3), (2, 0), (1, 1, 1))
SPACES = [((), ()), (None, None), *zip(FIXED, FIXED), ((3,), (INF,)), ((2, 3), (INF, 3)), ((2, 3), (2, INF)),
          ((12, 1), (INF, INF)), ((0, 0), (INF, INF)), ((2, 0), (INF, INF)), ((2, 3, 1), (INF,) * 3)]
CHUNKS = {'set_chunk': ((2, 2),)}
LAYOUTS = {'compact': {'set_layout': (h5d.COMPACT,)}, 'chunks': CHUNKS, 'lzf': {**CHUNKS, 'set_filter': (32000, 1)},
           'deflate': {**CHUNKS, 'set_shuffle': (), 'set_deflate': (6,), 'set_fletcher32': ()},
           'szip': {**CHUNKS, 'set_szip': (h5z.SZIP_NN_OPTION_MASK, 4)},
           'late': {'set_alloc_time': (h5d.ALLOC_TIME_LATE,)},
           'scaled': {**CHUNKS, 'set_scaleoffset': (h5z.SO_INT, 0)},
           'outside': {'set_external': (b'outside.raw', 0, 48)}}
LINKS = {'soft': h5py.SoftLink('/compact'), 'to group': h5py.SoftLink('group/up/group'),
         'dangling': h5py.SoftLink('/none/x'), 'loop': h5py.SoftLink('loop'), 'into data': h5py.SoftLink('compact/x'),
         'outer': h5py.ExternalLink('other.h5', 'i4'), 'outer group': h5py.ExternalLink('other.h5', '/'),
         'no file': h5py.ExternalLink('none.h5', '/'), 'type': np.dtype('i4')}
REPACKS = ('-L',), ('-f', 'GZIP=6'), ('-l', 'CONTI'), ('-S', 'PAGE', '-G', '4096')
SHIPPED = os.path.dirname(tables.__file__) + '/tests'


def put(make, name, t, dims, limits):
    s = h5s.create(h5s.NULL if dims is None else h5s.SCALAR) if not dims else h5s.create_simple(dims, limits)
    made, mtype, n = make(name.encode(), t, s), t, s.get_simple_extent_npoints()
    values = np.resize(np.frombuffer(b'ab\0 Z\xfcrich\xc3\xa9  \0\0c ', 'u1'), n * t.get_size())
    if t.get_class() == h5t.STRING and t.is_variable_str():
        mtype, values = h5t.py_create(t.dtype), np.resize(np.array([b'Z\xfc', b'', b'ab'], t.dtype), dims or ())
    elif name.startswith('row of vtexts'):
        mtype, values = h5t.py_create(t.dtype), np.resize(np.array([(b'Z\xfc', 1, b'Z\xfc')], t.dtype), dims or ())
    elif name.split(' (')[0] in ('sequence', 'vtexts', 'object', 'region', 'row of all'):
        return  # Null pointers and references.
    n and made.write(*([] if isinstance(made, h5a.AttrID) else [h5s.ALL] * 2), values, mtype)


def data_set(gid, name, t, s, **settings):
    p = h5p.create(h5p.DATASET_CREATE)
    for setting, arguments in settings.items():
        getattr(p, setting)(*arguments)
    if s.get_simple_extent_ndims() and INF in s.get_simple_extent_dims(True):
        p.set_chunk(tuple(max(1, d) for d in s.get_simple_extent_dims()))
    return h5d.create(gid, name, t, s, p)


def everything(f, step):
    g = f.create_group('group', track_order=True)
    marked = h5d.create(f.id, b'marked', INT, h5s.create_simple((3,)))
    for (name, t), (i, space) in itertools.islice(itertools.product(TYPES.items(), enumerate(SPACES)), 0, None, step):
        put(lambda *a: data_set(f.id, *a), f'{name} {space[0]}{space[1]}', t, *space)
        i < 6 and put(lambda *a: h5a.create(marked, *a), f'{name} {space[0]}', t, *space)
    h5a.create(marked, b'null', TYPES['utf8'], h5s.create(h5s.SCALAR))
    for name, settings in LAYOUTS.items():
        put(lambda *a: data_set(f.id, *a, **settings), name, INT, (3, 4), (3, 4))
    data_set(f.id, b'lost', INT, h5s.create_simple((3,)), set_external=(b'none.raw', 0, 12))
    for name, source in ('virtual', f.filename), ('virtual of nothing', 'none.h5'):
        layout = h5py.VirtualLayout((3, 5), 'i4')
        layout[:, 1:] = h5py.VirtualSource(source, 'deflate', (3, 4))
        f.create_virtual_dataset(name, layout, fillvalue=7)
    g['up'], g['same'], f['again'], f['shared'] = f['/'], g, g, f['compact']
    for name, link in LINKS.items():
        f[name] = link
    for name in ('x' * 511, 'y' * 512, 'z' * 600):
        f[f'long/data/{name}'], f[f'long/{name[0]}/{name}'], f['long'].attrs[name] = 1, g, 1
    for i, name in enumerate(('__vorl_', '__vorl_x', '__vorl', 'Z\xfc', 'z', 'y')): g.attrs[name] = i


def make(step=1):  # Every step-th of the pairs of types and spaces.
    for low in 'earliest', 'v108', 'latest':
        with h5py.File(low + '.h5', 'w', libver=(low, 'latest'), userblock_size=512) as f:
            everything(f, step)
    linked = pathlib.Path('earliest.h5').read_bytes().replace(b'\x40\1\7no file', b'\x41\1\7no file')
    pathlib.Path('user link.h5').write_bytes(linked)  # A link of the user's in place of another.
    with h5py.File('huge.h5', 'w') as f:
        data_set(f.id, b'huge', string(8), h5s.create_simple((1 << 61,)), set_chunk=((8,),))
    for i, mark in enumerate((7, [7, 8], 'text', 7.5)):
        with h5py.File(f'mark {i}.h5', 'w') as f:
            f.attrs['__vorl_api_version'] = mark
    for name, (i, change) in itertools.product(('oldflavor_numeric', 'ex-noattr'), enumerate(REPACKS)):
        subprocess.run(['h5repack', *change, f'{SHIPPED}/{name}.h5', f'{name} {i}.h5'], check=True)
    pathlib.Path('numbers.txt').write_text('1 2 3 4 5 6')
    subprocess.run('h5import numbers.txt -d 2,3 -p a/numbers -t TEXTIN -s 32 -o other.h5'.split(), check=True)
    pathlib.Path('empty.h5').touch()


def unpacked(told):
    return [*msgpack.Unpacker(io.BytesIO(told), raw=True)]


def plain(told):  # As it is after a way through MessagePack.
    return unpacked(b''.join(map(msgpack.packb, told)))


def compare(walker, path):
    run = subprocess.run([walker, path], check=True, capture_output=True)
    assert not run.stderr, run.stderr.decode()
    told, predicted = unpacked(run.stdout), plain(predict(path))
    different = [f'{path}: told\n {a}\npredicted\n {b}' for a, b in itertools.zip_longest(told, predicted)
                 if str(a) != str(b)]  # No NaN is equal to another.
    assert not different, f'{len(different)} lines differ; ' + different[0]
    return len(told)


if __name__ == '__main__':
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        make()
        shipped = glob.glob(SHIPPED + '/*.h5')
        counts = [compare(sys.argv[1], path) for path in sorted(glob.glob('*.h5') + shipped)]
        print(f'{len(counts)} files ({len(shipped)} shipped with PyTables), {sum(counts)} lines are as predicted')
