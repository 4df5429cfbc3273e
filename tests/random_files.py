"""Random use of the library, compared after each step with what random_model.py makes of the same operations.

What is varied, by the seed: the operations, their order and names, the shapes, types, levels and values; moves of many
rows and elements, by blocks and by HDF5's own way; whether the file ends by a close or by a kill behind a flush.
What is held fixed: the kinds of operation (ACTIONS) and, for a seed, the type of a table's rows.
What is compared: after each operation how it failed, the caller's buffer and what is at the name; at the end the whole
file, by the rules of predict.py, and what h5dump says of both files. No id may stay open.

A failing seed prints itself and a shortened sequence; `random_files.py WALKER 1 OPERATIONS SEED` runs it alone.
TARNWICKHDF_LONG_TESTS in the environment runs 60 seeds.

Usage: random_files.py WALKER SEEDS OPERATIONS [FIRST SEED]
"""
import itertools
import os
import random
import subprocess
import sys
import tempfile
import types

import msgpack

from predict import compare, plain, unpacked
from random_model import ARRAY, BLOCKS, EXTENSIBLE, GROUP, MAKES, OPENS, ROWS, TABLE, Model

# How often each operation is made; the last two have eight and three ways.
ACTIONS = {'reopen': 1, 'group': 6, 'array': 12, 'texts': 3, 'extend': 4, 'row': 8, 'column': 6, 'resize': 5,
           'table': 6, 'empty table': 1, 'blank table': 1, 'turned table': 2, 'delete': 7, 'mark': 10, 'unmark': 5,
           'put row': 3, 'put column': 3, 'rows': 4, 'columns': 4, 'put rows': 3, 'put columns': 3, 'get rows': 3,
           'get columns': 3, 'encode': 2, 'new array': 4, 'set': 3, 'set table': 4, 'move': 30, 'slab': 20}
WAYS = {'move': 8, 'slab': 3}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99,
         b'__vorl_', b'a/b', b'a//"/', b'./a', b'/']
TEXTS = [b'', b'\0', b'a', b'ab\0\0', b'a\0b', b'Z\xfcrich', 'Zürich'.encode(), b'x' * 60000, b'x' * 70000]
SIZES = (0, 1, 1, 2, 3, 5, 12)
# What an operation mostly finds at its name: each class has three of the first twelve names.
KINDS = {**OPENS, **MAKES, 'group': (GROUP,), 'new array': (ARRAY,), 'extend': (EXTENSIBLE,), 'empty table': (TABLE,),
         'blank table': (TABLE,)}
MOST_VALUES = 1 << 18  # In the caller's buffer.


def random_name(r, action):
    kind = r.choice(KINDS.get(action, range(4)))
    names = NAMES[kind:12:4] + (NAMES[12:] if kind == GROUP else [])
    return r.choice(names if r.random() < .9 else NAMES)


def random_sizes(r, action):
    is_large = r.random() < .004
    one, two = r.choice(((70000, 1), (300, 200), (1, 9000))) if is_large else r.choices(SIZES, k=2)
    if 'table' in action:
        one = min(one, 13000)  # So many of the widest rows fit the buffer.
    if action == 'texts':
        two = max(two, 1)
    elif 'array' in action:
        two = r.choice((1, two))
    return one, two


def operation(r):
    """Any operation; what is in its fields stands in walk.cpp."""
    action = r.choices([*ACTIONS], ACTIONS.values())[0]
    one, two = random_sizes(r, action)
    name = random_name(r, action)
    o = types.SimpleNamespace(
        action=action, name=name, mark=r.choice(NAMES[::r.choice((1, 5, 5, 5))]),
        text=r.choice(TEXTS[:r.choice((7, 7, 7, 9))]), type=r.randrange(1, 17), one=one, two=two,
        first=r.randrange(50), level=r.choice((0, 0, 4) if action == 'reopen' else (0, 0, 4, -1)),
        start=r.choice((0, 0, 1, 3)), stride=r.choice((0, 1, 1, 2)), steps=r.choice((0, 1, 2, 3, 5)),
        below=int(r.random() < .3 and action != 'reopen' and b'/' not in name))
    if action == 'texts':
        o.text = bytes(r.choices(b'a\0Z\xfc ', k=one * two))
    elif action == 'table':
        o.start = r.choice((0, one, 1)) if one else 0  # The rows of a chunk.
    elif action in BLOCKS:
        o.steps = min(o.steps, 3)  # The longest columns fit the buffer so many times.
    elif action == 'slab':
        o.start, o.stride, o.steps = (r.choices((n, -n, -2), (14, 1, 1))[0] for n in (o.start, o.stride, o.steps))
    elif action == 'move':
        places, number = range(r.choice((2, 4, 12))), r.choice((o.steps, o.steps, one))
        o.text = bytes(r.choices(places, k=number))
        o.mark = bytes(r.sample(places, min(number, len(places))))
        o.one = r.choice((one, 13))
    return o


def with_fields(o, **fields):
    vars(o).update(fields)
    return o


def many(seed):
    """Moves many rows, in one block and in several, and elements at many strides; every second time past the end."""
    r, row = random.Random(seed), [*ROWS.values()][seed % 3]
    rows = 1600000 // row.itemsize
    chunk, level = ((rows, 0), (2048, 4))[seed // 2 % 2]
    steps = [dict(action='table', start=chunk, level=level, one=rows)]
    for way, is_beyond in itertools.product(range(8), (False, True)):
        places = {1: rows, 6: rows - 60}.get(way, rows // 20)
        first = r.randrange(rows)
        selected = [(first + 77777 * i) % rows for i in range(places)]
        if is_beyond:
            selected[7] = rows
        steps.append(dict(action='move', type=way, stride=19, steps=rows // 20, one=rows, text=selected,
                          mark=selected))
    steps.append(dict(action='delete'))
    steps.append(dict(action='array', type=r.choice((5, 14, 14)), one=MOST_VALUES, two=1))
    for way, stride, is_beyond in itertools.product((0, 1, 2), (2, 511, 600), (False, True)):
        if way != 1 or not is_beyond:
            count = (MOST_VALUES - 2) // stride + 1 + is_beyond
            steps.append(dict(action='slab', type=way, stride=stride, steps=count, two=1))
    steps.append(dict(action='delete'))
    some_places = dict(text=[*range(8)], mark=[*range(8)], start=1)
    return [with_fields(operation(r), **{**some_places, **fields}, name=b'many', below=0) for fields in steps]


def sequence(seed, length):
    """The operations of a seed; every second one ends by a kill."""
    r = random.Random(seed)
    first = with_fields(operation(r), action='open', level=0, below=0, row=[*ROWS][seed % 3])
    last = with_fields(operation(r), action='kill' if seed % 2 else 'reopen', level=0, below=0)
    return [first, *(operation(r) for _ in range(length)), last]


# Running a sequence.

def tidy(told):
    """Sorts the attributes of each node: their order depends on which of them were read anew from the file."""
    if isinstance(told, list) and len(told) == 2 and str(told).startswith("[[[b'"):
        return [*map(sorted, told)]
    return [*map(tidy, told)] if isinstance(told, list) else told


def expected_of(operations):
    """Pairs of an operation and a document that it must lead to. Makes model.h5."""
    model, expected = Model(), []
    for o in operations:
        answers = model.act(o) if o.action != 'kill' else []
        expected += [(o, str(tidy(answer))) for answer in plain(answers)]
    model.file.close()
    return expected


def script_of(operations):
    script = b''
    for o in operations:
        way = f' {o.type % WAYS[o.action]}' if o.action in WAYS else ''
        fields = {**vars(o), 'action': o.action + way, 'text': [*o.text], 'mark': [*o.mark]}
        script += msgpack.packb(fields, use_bin_type=False)
    return script


def first_difference_of_dumps():
    dumps = [subprocess.run(['h5dump', '-p', name], check=True, capture_output=True).stdout.splitlines()[1:]
             for name in ('random.h5', 'model.h5')]
    # Where a data set lies, and how small deflate makes it, isn't HDF5's to say.
    for dumped, wanted in itertools.zip_longest(*dumps):
        if dumped != wanted and b'OFFSET' not in dumped and b':1 COMPRESSION' not in dumped:
            return f'h5dump says {dumped}\n expected    {wanted}'
    return None


def failure(walker, operations):
    """Plays a sequence; None, or what was different first."""
    expected = expected_of(operations)
    run = subprocess.run([walker, 'random.h5', 'play'], input=script_of(operations), capture_output=True)
    told = [str(tidy(answer)) for answer in unpacked(run.stdout)]
    for answer, (o, wanted) in itertools.zip_longest(told, expected, fillvalue=(None, None)):
        if answer != wanted:
            return f'at {o!s:.300}\n told     {answer!s:.900}\n expected {wanted!s:.900}\n {run.stderr.decode()}'
    if run.stderr or run.returncode != (-9 if operations[-1].action == 'kill' else 0):
        return f'status {run.returncode} {run.stderr.decode()}'
    try:
        compare(walker, 'random.h5')
    except AssertionError as difference:
        return str(difference)
    return first_difference_of_dumps()


def shorten(walker, operations):
    """Leaves out runs of operations, long ones first, as long as what is left fails."""
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


def main(walker, seeds, length, first_seed=0):
    if os.environ.get('TARNWICKHDF_LONG_TESTS'):
        seeds = 60
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for seed in range(first_seed, first_seed + seeds):
            operations = sequence(seed, length)
            operations[1:1] = many(seed)
            if failure(walker, operations):
                operations = shorten(walker, operations)
                sys.exit(f'seed {seed} fails {failure(walker, operations)}\n' + '\n'.join(map(str, operations)))
        print(f'{seeds} seeds of {len(operations)} operations are as the model')


if __name__ == '__main__':
    main(sys.argv[1], *map(int, sys.argv[2:]))
