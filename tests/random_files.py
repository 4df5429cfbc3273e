"""Random use of the library against a model in memory, compared after each step and at the end with h5py.
Usage: random_files.py WALKER SEEDS; a failing seed prints itself and a shortened sequence."""
import itertools, json, os, random, subprocess, sys, tempfile
import numpy as np
from foreign_files import compare, plain

# How often each operation is made; the walker knows it by its place.
ACTIONS = {'open': 0, 'reopen': 1, 'group': 2, 'array': 12, 'texts': 5, 'extend': 4, 'row': 8, 'column': 6, 'resize': 5,
           'table': 6, 'empty table': 1, 'blank table': 1, 'turned table': 2, 'delete': 3, 'mark': 10, 'unmark': 2,
           'put row': 3, 'put column': 3, 'encode': 2, 'set': 3, 'set table': 3}
NAMES = [b'a', 'Zürich'.encode(), b'a b', b'"', b'\\', b'new\nline', b'..', b'\1', b'\xff\xfe', b'%s', b'x' * 99,
         b'__vorl_']
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
            past = [b'!Invalid %s index: %d (%d rows x %d columns)' % (line, end, *self.dims)
                    for line, end in zip((b'row', b'column'), self.dims)]
            rows, columns = ([line.tolist() or [0.] for line in lines] for lines in (self.values, self.values.T))
            return 2, [marks, self.type, *self.dims, (rows + past[:1])[:10], (columns + past[1:])[:3]]
        return 3, [marks, self.dims[0], [(name, 14, b'!not a string array', self.values[i::2].tolist() or [0.])
                                         for i, name in enumerate((b'a', b'b'))]]

    def walk(self, path=b''):
        yield path, self.told()[1], *[sorted(n for n, c in self.children.items() if c.kind == kind) for kind in KINDS]
        for name, child in sorted(self.children.items()):
            yield path + b'/' + name, int(child.kind != 'group'), child.told()
            yield from child.walk(path + b'/' + name) if child.kind == 'group' else ()


def refusal(action, old, one):
    """What the library says where there is nothing, or something of another kind, than the operation needs."""
    kind = old.kind if old else 'none'
    if action == 'delete':
        return b"could not remove group '%s'"
    if action == 'group':
        return b"could not create group '%s'" if kind != 'none' else None
    if action in ('row', 'column', 'resize', 'put row', 'put column'):
        flat = kind == 'array' and (old.type == 17 or old.dims[1] == 1)
        return None if kind == 'extensible' else b'ExtensibleArray does not exist' if kind in ('none', 'group') else \
            b'dimension for ExtensibleArray did not return 2 as expected.' if flat else b'not an ExtensibleArray2D'
    if action in (*TABLES, 'array', 'texts') and kind in ('none', 'group'):
        if action == 'turned table' and not one:
            return NO_ROWS
        return b'could not create dataset' if kind == 'group' else None
    if action in ('empty table', 'blank table'):
        return b'Fail to create an already existing table: %s'
    if action in (*TABLES, 'set table'):
        return b"could not open Table '%s'" if kind in ('array', 'extensible') else b'Array does not exist'
    return {'extensible': b'not a valid Array', 'table': b'H5T_COMPOUND is not a valid Array'}.get(
        kind, b'Array does not exist')


NO_ROWS = b'Error while selecting elements from memory data set'
TABLES = 'table', 'empty table', 'blank table', 'turned table'
NEEDS = {'group': ['group'], 'array': ['array'], 'texts': ['array'], 'table': ['table'], 'mark': ['group', 'array'],
         'unmark': ['group', 'array'], 'delete': KINDS, 'set': ['array'], 'set table': ['table'],
         'turned table': ['table'], 'empty table': [], 'blank table': [],
         **dict.fromkeys(('row', 'column', 'resize', 'put row', 'put column'), ['extensible'])}


class Model:
    def act(self, action, name, mark, text, n, values):
        """Plays an operation and gives what the library must tell then: how it failed, and what is at the name."""
        if action == 'open':
            self.root = Node('group')
            self.root.marks[VERSION] = b'!could not detect charset for attribute: ' + VERSION
        walk, at = [*self.root.walk(), 1] if action == 'reopen' else [], self.root
        for step in (b'below', name) if n[4] else ():
            at = at.children.setdefault(step, Node('group'))
        words = self.change(at.children, action, name, mark, text, *n[:4], values)
        words = words and b'!' + words
        return [*walk, [words, at.children[name].told() if name in at.children else None]]

    def stored(self, text):
        return text.split(b'\0')[0].decode('latin-1').encode() if self.ascii else text

    def change(self, children, action, name, mark, text, type, one, two, level, values):
        """Gives the words with which the operation must fail."""
        old = children.get(name)
        if action in NEEDS and (old.kind if old else 'none') not in NEEDS[action]:
            words = refusal(action, old, one)
            if words:
                return words.replace(b'%s', name)
        if action in ('open', 'reopen'):
            self.level, self.ascii = level, False
        elif action == 'encode':
            self.ascii = type % 2 == 1
        elif action == 'group':
            children.setdefault(name, Node('group'))
        elif action == 'delete':
            del children[name]
        elif action == 'mark':
            old.marks.pop(mark, 0)
            if len(text) > 65000:
                return b'fail to create attribute: ' + mark
            old.marks[mark] = self.stored(text[:-1] if text[-1:] == b'\0' else text)
        elif action == 'unmark':
            if old.marks.pop(mark, None) is None:
                return b'could not delete attribute ' + mark
        elif action == 'extend':
            children.setdefault(name, Node('extensible', type, (one, two), np.zeros((one, two))))
        elif action in (*TABLES, 'set table'):
            one = 0 if action == 'empty table' else one
            if action != 'set table' or one != old.dims[0]:
                children.pop(name, 0)
                if not one and action == 'turned table':
                    return NO_ROWS
                if not one and level and action != 'empty table':
                    return b'could not create dataset'
                children[name] = Node('table', 0, (one,))
            rows = np.array(values[:2 * one]).reshape(one, 2) * (action != 'blank table')
            children[name].values = rows[::-1 if action == 'turned table' else 1].ravel()
        elif action in ('array', 'texts', 'set'):
            type = 17 if action == 'texts' else type
            if not old or (type, one, two) != (old.type, *old.dims):
                if not old and self.level and not one * two:
                    return b'could not create dataset'
                children[name] = Node('array', type, (one, two))
                children[name].ascii = self.ascii
            elif type == 17 and old.ascii != self.ascii:
                return b'error writing to dataset'
            children[name].values = values[:one * two] if type != 17 else [
                self.stored(text[i * two:(i + 1) * two].split(b'\0')[0]) for i in range(one)]
        else:
            return self.extend(old, action, one, two, values)

    def extend(self, array, action, one, two, values):
        (rows, columns), kept = array.dims, array.values
        if action == 'put row' and one >= rows or action == 'put column' and two >= columns:
            return b'Invalid %s index: %d (%d rows x %d columns)' % (
                action[4:].encode(), one if action == 'put row' else two, rows, columns)
        if action == 'put row':
            kept[one] = values[:columns]
        elif action == 'put column':
            kept[:, two] = values[:rows]
        else:
            array.dims = {'row': (rows + 1, columns), 'column': (rows, columns + 1)}.get(action, (one, two))
            array.values = np.zeros(array.dims)
            array.values[:rows, :columns] = kept[:array.dims[0], :array.dims[1]]
            if action == 'row':
                array.values[rows] = values[:columns]
            elif action == 'column':
                array.values[:, columns] = values[:rows]


def operation(r):
    action, first = r.choices([*ACTIONS], ACTIONS.values())[0], r.randrange(50)
    one, two = r.choice(((70000, 1), (300, 200), (1, 9000))) if r.random() < .004 else r.choices(SIZES, k=2)
    if action in ('resize', 'extend'):  # A row or column fits the values that its operation gets.
        one, two = (min(one, 40), min(two * 3, 40)) if action == 'resize' else (min(one, 300), min(two, 300))
    one, two = 1 if action == 'reopen' else one, max(two, 1) if action == 'texts' else two
    count = 700 if action.split()[-1] in ('row', 'column') else max(one * two, 2 * one, 1)
    text = r.choice(TEXTS[:r.choice((7, 7, 7, 9))])
    text = bytes(r.choices(b'a\0Z\xfc ', k=one * two)) if action == 'texts' else text
    below = int(r.random() < .3 and action != 'reopen')
    return (action, r.choice(NAMES), r.choice(NAMES), text, (r.randrange(1, 17), one, two, r.choice((0, 0, 4)), below),
            [float((first + i) % 101) for i in range(count)])


def tidy(line):  # Leaves out what the model doesn't know: the order of attributes, what other classes say.
    def of_kind(child):
        told = [[kind, [[*map(sorted, told[0])], *told[1:]]] for kind, told in enumerate(child) if told[0] != '!']
        return told[0] if told else None
    if isinstance(line, int) or len(line) == 6:
        return line if isinstance(line, int) else [line[0], of_kind([line[1]])[1], *line[2:]]
    return [line[0], of_kind(line[1])] if len(line) == 2 else [*line[:2], of_kind(line[2])]


def failure(walker, operations):
    model, expected = Model(), []
    for o in operations:
        expected += [(o, json.loads(json.dumps(plain(answer)))) for answer in model.act(*o)]
    script = '\n'.join(json.dumps([[*ACTIONS].index(a), *map(list, texts), n, v]) for a, *texts, n, v in operations)
    run = subprocess.run([walker, 'random.h5', 'play'], input=script.encode(), capture_output=True)
    told = [tidy(json.loads(line)) for line in run.stdout.splitlines()[:len(expected)]]
    for answer, (o, wanted) in itertools.zip_longest(told, expected):
        if answer != wanted:
            return f'at {o!s:.300}\n told     {answer!s:.900}\n expected {wanted!s:.900}\n {run.stderr.decode()}'
    try:
        compare(walker, 'random.h5')
    except AssertionError as difference:
        return str(difference)


def shorten(walker, operations):
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
