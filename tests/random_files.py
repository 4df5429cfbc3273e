"""Random use of the library against a model in memory, compared after each step and at the end with h5py.
Usage: random_files.py WALKER SEEDS; a failing seed prints itself and a shortened sequence."""
import itertools, json, os, random, subprocess, sys, tempfile
import numpy as np
from foreign_files import compare, plain

ACTIONS = 'open reopen group array texts extend row column resize table delete mark unmark'.split()
OFTEN = [0, 1, 2, 12, 5, 4, 8, 6, 5, 8, 3, 10, 2]
FITS = {'group': 'none group', 'array': 'none array', 'texts': 'none array', 'table': 'none table', 'row': 'extensible',
        'column': 'extensible', 'resize': 'extensible', 'delete': 'group array extensible table', 'mark': 'group array',
        'unmark': 'group array'}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99, b'__vorl_']
TEXTS = [b'', b'\0', b'a', b'ab\0\0', b'a\0b', b'Z\xfcrich', 'Zürich'.encode(), b'x' * 60000, b'x' * 70000]
VERSION = b'__vorl_api_version'
SAME = {9: 7, 10: 8, 11: 7, 12: 8, 15: 13, 16: 14}  # Types that read back as another.
SIZES = (0, 1, 1, 2, 3, 5, 12)
KINDS = ['group', 'array', 'extensible', 'table']


class Node:
    def __init__(self, kind, type=0, dims=(0, 0), values=()):
        self.kind, self.type, self.dims, self.values = kind, SAME.get(type, type), dims, values
        self.marks, self.children = {}, {}

    def told(self):
        marks = [sorted([mark, 6 if mark == VERSION else 17, text] for mark, text in self.marks.items()),
                 sorted(mark for mark in self.marks if not mark.startswith(b'__vorl_'))]
        if self.kind == 'group':
            kinds = [child.kind for child in self.children.values()]
            return 0, [marks, len(kinds), kinds.count('group'), kinds.count('group') < len(kinds)]
        if self.kind == 'array':
            return 1, [marks, self.type, *self.dims, list(self.values) or ([] if self.type == 17 else [0.])]
        if self.kind == 'extensible':
            past = b'!Invalid row index: %d (%d rows x %d columns)' % (self.dims[0], *self.dims)
            return 2, [marks, self.type, *self.dims, ([row.tolist() or [0.] for row in self.values] + [past])[:10]]
        return 3, [marks, self.dims[0], [
            (name, 14, b'!not a string array', self.values[i::2].tolist() or [0.]) for i, name in enumerate((b'a', b'b'))]]

    def walk(self, path=b''):
        yield path, self.told()[1], *[sorted(n for n, c in self.children.items() if c.kind == kind) for kind in KINDS]
        for name, child in sorted(self.children.items()):
            yield path + b'/' + name, int(child.kind != 'group'), child.told()
            yield from child.walk(path + b'/' + name) if child.kind == 'group' else ()


class Model:
    def act(self, action, name, mark, text, n, values):
        """Plays an operation and gives what the library must tell then: whether it failed, and what is at the name."""
        if action == 'open':
            self.root = Node('group')
            self.root.marks[VERSION] = b'!could not detect charset for attribute: ' + VERSION
        walk, at = [*self.root.walk(), 1] if action == 'reopen' else [], self.root
        for step in (b'below', name) if n[4] else (): at = at.children.setdefault(step, Node('group'))
        failed = self.change(at.children, action, name, mark, text, *n[:4], values)
        return [*walk, [bool(failed), at.children[name].told() if name in at.children else None]]

    def change(self, children, action, name, mark, text, type, one, two, level, values):
        """Gives whether the operation must fail."""
        old = children.get(name)
        kind = old.kind if old else 'none'
        if kind not in FITS.get(action, kind): return True
        if action in ('open', 'reopen'): self.level = level
        elif action == 'group': children.setdefault(name, Node('group'))
        elif action == 'delete': del children[name]
        elif action == 'mark':
            old.marks.pop(mark, 0)
            if len(text) > 65000: return True
            old.marks[mark] = text[:-1] if text[-1:] == b'\0' else text
        elif action == 'unmark': return old.marks.pop(mark, None) is None
        elif action == 'extend': children.setdefault(name, Node('extensible', type, (one, two), np.zeros((one, two))))
        elif action == 'table':
            children.pop(name, 0)
            if not one and level: return True
            children[name] = Node('table', 0, (one,), np.array(values[:2 * one]))
        elif action in ('array', 'texts'):
            type = 17 if action == 'texts' else type
            if not old or (type, one, two) != (old.type, *old.dims):
                if not old and self.level and not one * two: return True
                children[name] = Node('array', type, (one, two))
            children[name].values = values[:one * two] if type != 17 else [
                text[i * two:(i + 1) * two].split(b'\0')[0] for i in range(one)]
        else:
            (rows, columns), kept = old.dims, old.values
            old.dims = {'row': (rows + 1, columns), 'column': (rows, columns + 1)}.get(action, (one, two))
            old.values = np.zeros(old.dims)
            old.values[:rows, :columns] = kept[:old.dims[0], :old.dims[1]]
            if action == 'row': old.values[rows] = values[:columns]
            elif action == 'column': old.values[:, columns] = values[:rows]


def operation(r):
    action, first = r.choices(ACTIONS, OFTEN)[0], r.randrange(50)
    one, two = (r.choice(SIZES), r.choice(SIZES)) if r.random() < .996 else r.choice(((70000, 1), (300, 200), (1, 9000)))
    one, two = (min(one, 40), min(two * 3, 40)) if action == 'resize' else (one, two)
    one, two = 1 if action == 'reopen' else one, max(two, 1) if action == 'texts' else two
    count = 400 if action in ('row', 'column') else max(one * two, 2 * one, 1)
    text = bytes(r.choices(b'a\0Z\xfc ', k=one * two)) if action == 'texts' else r.choice(TEXTS[:r.choice((7, 7, 7, 9))])
    below = int(r.random() < .3 and action != 'reopen')
    return (action, r.choice(NAMES), r.choice(NAMES), text, (r.randrange(1, 17), one, two, r.choice((0, 0, 4)), below),
            [float((first + i) % 101) for i in range(count)])


def tidy(line):  # Leaves out what the model doesn't know: words of failures, the order of attributes, other classes.
    def of_kind(child):
        return next(([kind, [[*map(sorted, told[0])], *told[1:]]] for kind, told in enumerate(child) if told[0] != '!'), None)
    if isinstance(line, int) or len(line) == 6:
        return line if isinstance(line, int) else [line[0], of_kind([line[1]])[1], *line[2:]]
    return [bool(line[0]), of_kind(line[1])] if len(line) == 2 else [*line[:2], of_kind(line[2])]


def failure(walker, operations):
    model, expected = Model(), []
    for o in operations: expected += [(o, json.loads(json.dumps(plain(answer)))) for answer in model.act(*o)]
    script = '\n'.join(json.dumps([ACTIONS.index(a), *map(list, texts), n, v]) for a, *texts, n, v in operations)
    run = subprocess.run([walker, 'random.h5', 'play'], input=script.encode(), capture_output=True)
    told = [tidy(json.loads(line)) for line in run.stdout.splitlines()[:len(expected)]]
    for answer, (o, wanted) in itertools.zip_longest(told, expected):
        if answer != wanted:
            return f'at {str(o)[:300]}\n told     {str(answer)[:900]}\n expected {str(wanted)[:900]}\n {run.stderr.decode()}'
    try: compare(walker, 'random.h5')
    except AssertionError as difference: return str(difference)


def shorten(walker, operations):
    size = len(operations) // 2
    while size:
        for start in range(1, len(operations), size):
            shorter = operations[:start] + operations[start + size:]
            if failure(walker, shorter):
                operations = shorter
                break
        else: size //= 2
    return operations


def sequence(seed, length):
    r = random.Random(seed)
    return [('open', b'a', b'', b'', (1, 0, 0, 0, 0), []), *(operation(r) for _ in range(length)),
            ('reopen', b'a', b'', b'', (1, 1, 0, 0, 0), [])]


if __name__ == '__main__':
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        seeds = range(60 if os.environ.get('TARNWICKHDF_LONG_TESTS') else int(sys.argv[2]))
        for seed in seeds:
            operations = sequence(seed, 1500)
            if failure(sys.argv[1], operations):
                operations = shorten(sys.argv[1], operations)
                sys.exit(f'seed {seed} fails {failure(sys.argv[1], operations)}\n' + '\n'.join(map(str, operations)))
        print(f'{len(seeds)} seeds of {len(operations)} operations are as the model')
