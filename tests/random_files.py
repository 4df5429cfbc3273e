"""Random use of the library, compared after each step with what random_model.py makes of the same steps.

What is varied, by the seed: the steps, their order and names, the shapes, types, levels and values; moves of many rows,
by blocks and by HDF5's own way; whether the file ends by a close or by a kill behind a flush.
What is held fixed: the operations (the methods of random_model.py, which walk.cpp carries out too), from what their
arguments are chosen (ARGUMENTS) and, for a seed, the type of a table's rows.
What is compared: after each step how it failed, what changed in the caller's buffer and what is at the name; at the end
what h5dump says of both files. No id may stay open. What HDF5 refuses must fail, in whatever words.

A failing seed prints itself and a shortened sequence; `random_files.py WALKER 1 STEPS SEED` runs it alone.
TARNWICKHDF_LONG_TESTS in the environment runs 60 seeds.

Usage: random_files.py WALKER SEEDS STEPS [FIRST SEED]
"""
import itertools
import os
import random
import subprocess
import sys
import tempfile

import msgpack
from h5py import h5t

from predict import TEXT, plain, unpacked
from random_model import ARRAY, EXTENSIBLE, GROUP, ROWS, TABLE, Model, parameters_of

# How often each step is made, where that isn't 4 times.
OFTEN = {'file.Reopen': 1, 'group.CreateArray': 1, 'file.SetEncoding': 2, 'node.SetAttr': 12, 'group.CreateGroup': 8,
         'group.DelGroup': 6, 'group.CreateArrayFromBuffer': 16, 'group.CreateTableFromBuffer': 8,
         'extensible.AppendRow': 8}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99,
         b'__vorl_', b'a/b', b'a//"/', b'./a', b'/']
CLASSES = {'xtensible': EXTENSIBLE, 'able': TABLE, 'rray': ARRAY}  # By a part of an operation's name.
PREFIXES = ('file_', 'node_', 'group_', 'array_', 'extensible_', 'table_')
TEXTS = [b'', b'\0', b'a', b'ab\0\0', b'a\0b', b'Z\xfcrich', 'Zürich'.encode(), b'x' * 60000, b'x' * 70000]
SIZES = (0, 1, 1, 2, 3, 5, 12)
WIDTHS = (0, 1, 1, 1, 1, 2)
NUMBER_TYPES = (1, 2, 3, 4, 5, 6, 7, 8, 13, 14)


def some_rows(r):
    return r.sample(range(r.choice((2, 5, 13))), r.choice((0, 1, 1, 2, 2)))


# What the parameter of each name is chosen from; a function chooses by those that are chosen before.
ARGUMENTS = {
    'attribute': lambda r, _: r.choice(NAMES[::r.choice((1, 8, 8, 8))]),
    'text': lambda r, _: r.choice(TEXTS[:r.choice((7, 7, 7, 9))]),
    'charset': (h5t.CSET_ASCII, h5t.CSET_UTF8),
    'buffer': lambda r, _: r.choice((r.randrange(50), b'a\0Z\xfc ' * 12)),
    'number_type': NUMBER_TYPES,
    'element_type': (*NUMBER_TYPES, TEXT, TEXT),
    'level': (0, 0, 4, -1),
    'plain_level': (0, 0, 4),
    'length': lambda r, _: r.choice(SIZES) if r.random() < .99 else 70000,
    'components': lambda r, s: 1 if s['length'] == 70000 else 12 if s['element_type'] == TEXT else r.choice(WIDTHS),
    'rows': lambda r, _: r.choice(SIZES) if r.random() < .99 else 13000,
    'columns': SIZES,
    'chunk': lambda r, s: r.choice((0, 1, s['rows'])) if s['rows'] else 0,
    'chunk_rows': (3,),
    'chunk_columns': (2,),
    'memory_rows': (5, 13, 13),
    'memory_type': (0, 0, 1, 2),
    'sources': lambda r, _: some_rows(r),
    'targets': lambda r, _: some_rows(r),
    'index': SIZES,
    'start': (0, 0, 1, 3),
    'stride': (0, 1, 1, 2),
    'count': (0, 1, 2, 3)}
OPERATIONS = sorted(name.replace('_', '.', 1) for name in vars(Model) if name.startswith(PREFIXES))


def random_argument(r, parameter, chosen):
    choices = ARGUMENTS[parameter]
    return r.choice(choices) if isinstance(choices, tuple) else choices(r, chosen)


def random_name(r, operation):
    """Mostly one that the step can work on: each class has three of the first twelve."""
    kind = next((kind for word, kind in CLASSES.items() if word in operation), GROUP)
    if operation in ('node.SetAttr', 'node.DelAttr', 'group.DelGroup'):
        kind = r.randrange(2 if 'node' in operation else 4)
    names = NAMES[kind:12:4] + (NAMES[12:] if kind == GROUP else [])
    return r.choice(names[:r.choice((1, 1, 99))] if r.random() < .9 else NAMES[:12])


def random_step(r):
    operation = r.choices(OPERATIONS, [OFTEN.get(name, 4) for name in OPERATIONS])[0]
    kind = operation.split('.')[0]
    chosen = {}
    for parameter in parameters_of(getattr(Model, operation.replace('.', '_'))):
        if parameter != 'name':
            chosen[parameter] = random_argument(r, parameter, chosen)
        else:
            chosen['name'] = random_name(r, operation)
    name = chosen.get('name') or random_name(r, operation)
    below = r.choice((b'', b'', b'', b'below'))
    path = below + b'/' + name if below else name
    return [operation, below if kind == 'group' else path, *chosen.values(), path]


def many(seed):
    """Moves many rows, in one block and in several, every second time past the end."""
    r, rows = random.Random(seed), 1600000 // [*ROWS.values()][seed % 3].itemsize
    chunk, level = ((rows, 0), (2048, 4))[seed // 2 % 2]
    steps = [['group.CreateTableFromBuffer', b'', b'many', 0, rows, level, chunk]]
    for past in (0, 1):
        first = r.randrange(rows)
        every = [(first + 77777 * i) % rows for i in range(rows)]
        every[7] = rows if past else every[7]
        steps += [['table.GetToSelection', b'many', 1, rows, 0, every],
                  ['table.GetFromSelection', b'many', 1, 0, every[:rows // 20]],
                  ['table.GetFromHyperslab', b'many', 1, past, 19, rows // 19],
                  ['table.SetToHyperslabFromSelection', b'many', 1, rows, 1, every[:rows - 60]]]
    return [[*step, b'many'] for step in [*steps, ['group.DelGroup', b'', b'many']]]


def sequence(seed, length):
    """The steps of a seed; every second one ends by a kill."""
    r = random.Random(seed)
    steps = [random_step(r) for _ in range(length)]
    last = ['file.Kill', b'', b''] if seed % 2 else ['file.Reopen', b'', 0, b'a']
    return [['group.CreateGroup', b'', b'below', b'below'], *steps, last]


# Running a sequence.

def tidy(told):
    """Sorts the attributes of each node: their order depends on which of them were read anew from the file."""
    if isinstance(told, list) and len(told) == 2 and str(told).startswith("[[[b'"):
        return [*map(sorted, told)]
    return [*map(tidy, told)] if isinstance(told, list) else told


def expected_of(row, steps):
    """What must be told of each step. Makes model.h5."""
    model = Model(row)
    expected = plain([model.play(s) for s in steps if s[0] != 'file.Kill'])
    model.file.close()
    return expected


def is_as(told, expected):
    """The words of a failure of HDF5 are left open."""
    if told and told[0] and expected[0] == b'!' == told[0][:1]:
        told[0] = b'!'
    return str(tidy(told)) == str(tidy(expected))


def first_difference_of_dumps():
    dumps = [subprocess.run(['h5dump', '-p', name], check=True, capture_output=True).stdout.splitlines()[1:]
             for name in ('random.h5', 'model.h5')]
    # Where a data set lies, and how small deflate makes it, isn't HDF5's to say.
    for dumped, wanted in itertools.zip_longest(*dumps):
        if dumped != wanted and b'OFFSET' not in dumped and b':1 COMPRESSION' not in dumped:
            return f'h5dump says {dumped}\n expected    {wanted}'
    return None


def failure(walker, seed, steps):
    """Plays a sequence; None, or what was different first."""
    row = [*ROWS][seed % 3]
    expected = expected_of(row, steps)
    script = b''.join([msgpack.packb(step, use_bin_type=False) for step in steps])
    run = subprocess.run([walker, 'random.h5', row], input=script, capture_output=True)
    for step, told, wanted in itertools.zip_longest(steps, unpacked(run.stdout), expected):
        if wanted and not is_as(told, wanted):
            return f'at {step!s:.600}\n told     {told!s:.900}\n expected {wanted!s:.900}\n {run.stderr.decode()}'
    if run.stderr or run.returncode != (-9 if steps[-1][0] == 'file.Kill' else 0):
        return f'status {run.returncode} {run.stderr.decode()}'
    return first_difference_of_dumps()


def shorten(walker, seed, steps):
    """Leaves out runs of steps, long ones first, as long as what is left fails."""
    size = len(steps) // 2
    while size:
        tries = (steps[:start] + steps[start + size:] for start in range(0, len(steps), size))
        shorter = next((left for left in tries if left and failure(walker, seed, left)), None)
        steps, size = (shorter, size) if shorter else (steps, size // 2)
    return steps


def main(walker, seeds, length, first_seed=0):
    if os.environ.get('TARNWICKHDF_LONG_TESTS'):
        seeds = 60
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for seed in range(first_seed, first_seed + seeds):
            steps = many(seed) + sequence(seed, length)
            if failure(walker, seed, steps):
                steps = shorten(walker, seed, steps)
                sys.exit(f'seed {seed} fails {failure(walker, seed, steps)}\n' + '\n'.join(map(str, steps)))
        print(f'{seeds} seeds of {len(steps)} steps are as the model')


if __name__ == '__main__':
    main(sys.argv[1], *map(int, sys.argv[2:]))
