"""Random use of the library, compared after each step with what random_model.py makes of the same steps.

What is varied, by the seed: the steps, their order and names, the shapes, types, levels and values; moves of many rows
and elements, by blocks and by HDF5's own way; whether the file ends by a close or by a kill behind a flush.
What is held fixed: the kinds of step (ACTIONS; fault_operations.json says what their fields are, Player.h carries them
out) and, for a seed, the type of a table's rows.
What is compared: after each step how it failed, what changed in the caller's buffer and what is at the name; at the end
the whole file, by the rules of predict.py, and what h5dump says of both files. No id may stay open.

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
import types

import msgpack

from predict import TEXT, compare, plain, unpacked
from random_model import MANY, NAMED, ROWS, Model

# How often each step is made.
ACTIONS = {
    'reopen': 1, 'file.SetEncoding': 2, 'node.SetAttr': 10, 'node.DelAttr': 5, 'group.CreateGroup': 6,
    'group.DelGroup': 7, 'group.CreateArrayFromBuffer': 15, 'group.CreateArrayAndSet': 4, 'array.SetFromBuffer': 3,
    'array.GetFromHyperslab': 7, 'array.GetFromHyperslabOfDimensions': 7, 'array.GetToMemoryHyperslab': 6,
    'group.CreateExtensibleArray2D': 4, 'extensible.Resize': 5, 'extensible.AppendRow': 8, 'extensible.AppendColumn': 6,
    'extensible.WriteRow': 3, 'extensible.WriteColumn': 3, 'extensible.AppendRows': 4, 'extensible.AppendColumns': 4,
    'extensible.WriteRows': 3, 'extensible.WriteColumns': 3, 'extensible.ReadRows': 3, 'extensible.ReadColumns': 3,
    'group.CreateEmptyTable': 1, 'group.CreateTable': 1, 'group.CreateTableFromBuffer': 6,
    'group.CreateTableFromSelection': 2, 'table.SetFromBuffer': 4, 'table.SetFromSelection': 4, 'table.GetToBuffer': 3,
    'table.GetToSelection': 4, 'table.GetFromHyperslab': 4, 'table.GetFromSelection': 4, 'table.GetFromToSelection': 4,
    'table.GetFromHyperslabToSelection': 4, 'table.SetToHyperslabFromSelection': 4}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99,
         b'__vorl_', b'a/b', b'a//"/', b'./a', b'/']
TEXTS = [b'', b'\0', b'a', b'ab\0\0', b'a\0b', b'Z\xfcrich', 'Zürich'.encode(), b'x' * 60000, b'x' * 70000]
SIZES = (0, 1, 1, 2, 3, 5, 12)
MOVES = ('table.Get', 'table.SetFromSelection', 'table.SetTo')


def random_name(r, action):
    """Each class has three of the first twelve names: mostly one that the step can work on."""
    kind = r.choice(NAMED.get(action) or NAMED.get(action.split('.')[0], range(4)))
    names = NAMES[kind:12:4] + (NAMES[12:] if kind == 0 else [])
    return r.choice(names if r.random() < .9 else NAMES)


def random_sizes(r, action):
    is_large = r.random() < .004
    rows, columns = r.choice(((70000, 1), (300, 200), (1, 9000))) if is_large else r.choices(SIZES, k=2)
    if 'able' in action:
        rows = min(rows, 13000)  # So many of the widest rows fit the buffer.
    elif 'Array' in action and 'Extensible' not in action or action == 'array.SetFromBuffer':
        columns = r.choice((1, columns))
    return rows, columns


def step(r):
    """Any step."""
    action = r.choices([*ACTIONS], ACTIONS.values())[0]
    rows, columns = random_sizes(r, action)
    name = random_name(r, action)
    handle, kept = r.choice(((0, False), (0, False), (1, False), (1, True)))
    is_below = r.random() < .3 and b'/' not in name
    s = types.SimpleNamespace(
        action=action, at=b'below/' + name if is_below else b'', name=name, handle=handle, kept=kept,
        attribute=r.choice(NAMES[::r.choice((1, 5, 5, 5))]), text=r.choice(TEXTS[:r.choice((7, 7, 7, 9))]),
        type=r.randrange(1, 17), level=r.choice((0, 0, 4, -1)), rows=rows, columns=columns, chunk=3, chunk_columns=2,
        index=r.choice(SIZES), start=r.choice((0, 0, 1, 3)), stride=r.choice((0, 1, 1, 2)),
        count=r.choice((0, 1, 2, 3, 5)), dimensions=r.randrange(1, 4), sources=[], targets=[], first=r.randrange(50),
        stored='')
    choose_what_depends_on_the_action(r, s)
    return s


def choose_what_depends_on_the_action(r, s):
    if s.action == 'reopen':
        s.level = r.choice((0, 0, 4))
    elif s.action == 'file.SetEncoding':
        s.type %= 2
    elif s.action == 'group.CreateArrayFromBuffer' and r.random() < .2:
        s.type, s.columns = TEXT, max(s.columns, 1)
        s.text = bytes(r.choices(b'a\0Z\xfc ', k=s.rows * s.columns))
    elif 'Hyperslab' in s.action and 'array' in s.action:
        s.start, s.stride, s.count = (r.choices((n, -n, -2), (14, 1, 1))[0] for n in (s.start, s.stride, s.count))
    elif s.action.startswith('extensible'):
        s.count = min(s.count, 3)  # The longest columns fit the buffer so many times.
    elif s.action == 'group.CreateTableFromBuffer':
        s.chunk = r.choice((0, s.rows, 1)) if s.rows else 0
    elif s.action == 'group.CreateTableFromSelection':
        s.sources = [*range(s.rows)][::-1]
    elif s.action.startswith(MOVES):
        places, number = range(r.choice((2, 4, 12))), r.choice((s.count, s.count, s.rows))
        s.sources, s.targets = r.choices(places, k=number), r.sample(places, min(number, len(places)))
        s.rows = r.choice((s.rows, 13))
    if s.action.startswith('table'):
        s.type = r.choice((1, 2) if 'Hyperslab' in s.action else (0, 0, 1, 2))
    if s.action.startswith('group.Create') and s.action.endswith(('FromBuffer', 'Set', 'Selection', 'Table')) \
            or s.action.endswith('.SetFromBuffer'):
        s.stored = 'table' if 'able' in s.action else 'texts' if s.type == TEXT else 'array'


def with_fields(s, **fields):
    vars(s).update(fields)
    return s


def many(seed):
    """Moves many rows, in one block and in several, and elements at many strides; every second time past the end."""
    r, row = random.Random(seed), [*ROWS.values()][seed % 3]
    rows = 1600000 // row.itemsize
    chunk, level = ((rows, 0), (2048, 4))[seed // 2 % 2]
    delete = dict(action='group.DelGroup')
    steps = [dict(action='group.CreateTableFromBuffer', chunk=chunk, level=level, rows=rows, stored='table')]
    for action, is_beyond in itertools.product([a for a in ACTIONS if a.startswith(MOVES)], (False, True)):
        places = {'table.GetToSelection': rows, 'table.SetToHyperslabFromSelection': rows - 60}.get(action, rows // 20)
        first = r.randrange(rows)
        selected = [(first + 77777 * i) % rows for i in range(places)]
        if is_beyond:
            selected[7] = rows
        steps.append(dict(action=action, type=int('Hyperslab' in action), stride=19, count=rows // 20, rows=rows,
                          sources=selected, targets=selected))
    steps += [delete, dict(action='group.CreateArrayFromBuffer', type=r.choice((5, 14, 14)), rows=MANY, columns=1,
                           stored='array')]
    for action, stride, is_beyond in itertools.product([a for a in ACTIONS if 'array.Get' in a], (2, 511, 600), (0, 1)):
        if 'Memory' not in action or not is_beyond:
            steps.append(dict(action=action, stride=stride, count=(MANY - 2) // stride + 1 + is_beyond, columns=1))
    steps.append(delete)
    usual = dict(name=b'many', at=b'', start=1, stored='')
    return [with_fields(step(r), **{**usual, **fields}) for fields in steps]


def sequence(seed, length):
    """The steps of a seed; every second one ends by a kill."""
    r = random.Random(seed)
    last = with_fields(step(r), action='kill' if seed % 2 else 'reopen', level=0)
    return [*(step(r) for _ in range(length)), last]


# Running a sequence.

def tidy(told):
    """Sorts the attributes of each node: their order depends on which of them were read anew from the file."""
    if isinstance(told, list) and len(told) == 2 and str(told).startswith("[[[b'"):
        return [*map(sorted, told)]
    return [*map(tidy, told)] if isinstance(told, list) else told


def expected_of(row, steps):
    """Pairs of a step and a document that it must lead to. Makes model.h5."""
    model = Model(row)
    expected = [(s, str(tidy(answer))) for s in steps for answer in plain(model.act(s))]
    model.file.close()
    return expected


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
    script = b''.join([msgpack.packb(vars(s), use_bin_type=False) for s in steps])
    run = subprocess.run([walker, 'random.h5', row], input=script, capture_output=True)
    told = [str(tidy(answer)) for answer in unpacked(run.stdout)]
    for answer, (s, wanted) in itertools.zip_longest(told, expected, fillvalue=(None, None)):
        if answer != wanted:
            return f'at {s!s:.600}\n told     {answer!s:.900}\n expected {wanted!s:.900}\n {run.stderr.decode()}'
    if run.stderr or run.returncode != (-9 if steps[-1].action == 'kill' else 0):
        return f'status {run.returncode} {run.stderr.decode()}'
    try:
        compare(walker, 'random.h5')
    except AssertionError as difference:
        return str(difference)
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
