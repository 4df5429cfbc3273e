"""Files by other writers, walked by the library and compared with what predict.py tells of them.

What is varied: the type and the space of data sets and attributes (each pair of them), the layout and the filters of
data sets, links of each kind, names up to the longest, the file format's version, the version mark, and the files that
PyTables ships. What is held fixed: the bytes that the values are made of.
One file again: `foreign_files.py WALKER FILE` compares a file that is there.

Usage: foreign_files.py WALKER [FILE]
"""
import glob
import importlib.util
import itertools
import os
import pathlib
import sys
import tempfile

import h5py
import numpy as np
from h5py import h5a, h5d, h5p, h5s, h5t

from predict import UNLIMITED, compare, row_of

# PyTables itself isn't imported, because it brings filters that the walker hasn't.
SHIPPED = importlib.util.find_spec('tables').submodule_search_locations[0] + '/tests'


def string(size, cset, pad):
    t = h5t.C_S1.copy()
    t.set_size(size)
    t.set_cset(cset)
    t.set_strpad(pad)
    return t


def types():
    """Each type by a name that says what it is."""
    row = [('a', 'i4'), ('b', 'S6'), ('c', 'f8')]
    row_of_all = [('a', row), ('b', 'i4', (2,)), ('c', h5py.vlen_dtype('i4')), ('d', h5py.string_dtype()), ('e', 'u1')]
    row_of_vtexts = [('utf8', h5py.string_dtype()), ('number', 'i4'), ('latin', h5py.string_dtype('ascii'))]
    numpy_types = {name: name for name in 'i1 u1 i2 u2 i4 u4 i8 u8 f4 f8 >i2 >i8 >f4 >f8 f2 g c8 2i4 V5 ?'.split()}
    numpy_types.update({'row': row, 'row of all': row_of_all, 'row of flags': [('a', '?')], 'row BE': [('a', '>i4')],
                        'row of vtexts': row_of_vtexts, 'utf8': h5py.string_dtype(),
                        'latin': h5py.string_dtype('ascii'), 'sequence': h5py.vlen_dtype('i4')})
    texts = {f'text {kind}': string(*kind) for kind in itertools.product((1, 6), (0, 1), (0, 1, 2))}
    return {**{name: h5t.py_create(np.dtype(d), True) for name, d in numpy_types.items()}, **texts,
            'row of texts': row_of({name.encode(): t for name, t in texts.items()}),
            'vtexts': h5t.vlen_create(h5t.C_S1), 'texts': h5t.array_create(h5t.C_S1, (2,)), 'bits': h5t.STD_B8LE,
            'object': h5t.STD_REF_OBJ, 'region': h5t.STD_REF_DSETREG, 'time': h5t.UNIX_D32LE, 'char BE': h5t.STD_I8BE}


TYPES = types()
SOME_BYTES = np.frombuffer(b'ab\0 Z\xfcrich\xc3\xa9  \0\0c ', 'u1')
# Instead of these bytes, what holds pointers and references gets such values, or none.
TEXTS = [b'Z\xfc', b'', b'ab']
VALUES = {'utf8': TEXTS, 'latin': TEXTS, 'row of vtexts': [(b'Z\xfc', 1, b'Z\xfc')],
          'sequence': [], 'vtexts': [], 'object': [], 'region': [], 'row of all': []}
FIXED = ((0,), (1,), (3,), (2, 3), (2, 0), (1, 1, 1))
# Extents and their limits; () is a scalar, None is null.
SPACES = [((), ()), (None, None), *zip(FIXED, FIXED), ((3,), (UNLIMITED,)), ((2, 3), (UNLIMITED, 3)),
          ((2, 3), (2, UNLIMITED)), ((12, 1), (UNLIMITED, UNLIMITED)), ((0, 0), (UNLIMITED, UNLIMITED)),
          ((2, 0), (UNLIMITED, UNLIMITED)), ((2, 3, 1), (UNLIMITED,) * 3)]
ATTRIBUTE_SPACES = 6  # So many of them are for attributes too.

CHUNKS = {'chunks': (2, 2)}
LAYOUTS = {'chunks': CHUNKS, 'deflate': {**CHUNKS, 'shuffle': True, 'compression': 6, 'fletcher32': True},
           'szip': {**CHUNKS, 'compression': 'szip', 'compression_opts': ('nn', 4)},
           'scaled': {**CHUNKS, 'scaleoffset': 0}, 'outside': {'external': [('outside.raw', 0, 48)]}}
LINKS = {'soft': h5py.SoftLink('/compact'), 'to group': h5py.SoftLink('group/up/group'),
         'dangling': h5py.SoftLink('/none/x'), 'loop': h5py.SoftLink('loop'), 'into data': h5py.SoftLink('compact/x'),
         'outer': h5py.ExternalLink('huge.h5', 'none'), 'outer group': h5py.ExternalLink('mark 0.h5', '/'),
         'no file': h5py.ExternalLink('none.h5', '/'), 'type': np.dtype('i4')}


def space_of(dims, limits):
    if dims is None:
        return h5s.create(h5s.NULL)
    return h5s.create_simple(dims, limits) if dims else h5s.create(h5s.SCALAR)


def write(o, where, name, t):
    count = o.get_space().get_simple_extent_npoints()
    if count == 0 or VALUES.get(name) == []:
        return
    if name in VALUES:
        o.write(*where, np.resize(np.array(VALUES[name], t.dtype), o.shape), h5t.py_create(t.dtype))
    else:
        o.write(*where, np.resize(SOME_BYTES, count * t.get_size()), t)


def put_pairs(f, step):
    """Data sets and attributes of every step-th pair of a type and a space."""
    marked = f.create_dataset('marked', (3,), 'i4').id
    pairs = itertools.product(TYPES.items(), enumerate(SPACES))
    for (name, t), (i, (dims, limits)) in itertools.islice(pairs, 0, None, step):
        p = h5p.create(h5p.DATASET_CREATE)
        if UNLIMITED in (limits or ()):
            p.set_chunk(tuple(max(1, d) for d in dims))
        d = h5d.create(f.id, f'{name} {dims}{limits}'.encode(), t, space_of(dims, limits), p)
        write(d, (h5s.ALL, h5s.ALL), name, t)
        if i < ATTRIBUTE_SPACES:
            write(h5a.create(marked, f'{name} {dims}'.encode(), t, space_of(dims, limits)), (), name, t)
    h5a.create(marked, b'null', TYPES['utf8'], h5s.create(h5s.SCALAR))


def put_layouts(f):
    compact = h5p.create(h5p.DATASET_CREATE)
    compact.set_layout(h5d.COMPACT)
    for name, settings in ('compact', {'dcpl': compact}), *LAYOUTS.items():
        f.create_dataset(name, data=np.arange(12, dtype='i4').reshape(3, 4), **settings)
    f.create_dataset('lost', (3,), 'i4', external=[('none.raw', 0, 12)])
    for name, source in ('virtual', f.filename), ('virtual of nothing', 'none.h5'):
        layout = h5py.VirtualLayout((3, 5), 'i4')
        layout[:, 1:] = h5py.VirtualSource(source, 'deflate', (3, 4))
        f.create_virtual_dataset(name, layout, fillvalue=7)


def put_links_and_names(f):
    g = f['group']
    g['up'], g['same'], f['again'], f['shared'] = f['/'], g, g, f['compact']
    for name, link in LINKS.items():
        f[name] = link
    for name in ('x' * 511, 'y' * 511):
        f[f'long/data/{name}'] = 1
        f[f'long/{name[0]}/{name}'] = g
        f['long'].attrs[name] = 1
    for i, name in enumerate(('__vorl_', '__vorl_x', '__vorl', 'Z\xfc', 'z', 'y')):
        g.attrs[name] = i


def make(step=1):
    """Makes all files here, with every step-th of the pairs of types and spaces."""
    for low in 'earliest', 'v108', 'latest':
        with h5py.File(low + '.h5', 'w', libver=(low, 'latest'), userblock_size=512) as f:
            f.create_group('group', track_order=True)
            put_pairs(f, step)
            put_layouts(f)
            put_links_and_names(f)
    with h5py.File('huge.h5', 'w') as f:
        f.create_dataset('huge', (1 << 61,), 'S8', chunks=(8,))
    for i, mark in enumerate((7, [7, 8], 'text', 7.5)):
        with h5py.File(f'mark {i}.h5', 'w') as f:
            f.attrs['__vorl_api_version'] = mark
    pathlib.Path('empty.h5').touch()


def main(walker, *files):
    if files:
        print(f'{compare(walker, files[0])} lines are as predicted')
        return
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        make()
        shipped = glob.glob(SHIPPED + '/*.h5')
        counts = [compare(walker, path) for path in sorted(glob.glob('*.h5') + shipped)]
        print(f'{len(counts)} files ({len(shipped)} shipped with PyTables), {sum(counts)} lines are as predicted')


if __name__ == '__main__':
    main(*sys.argv[1:])
