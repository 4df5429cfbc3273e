"""Walks damaged files: each walk ends, with or without an exception, and what crashes does so inside HDF5.
Usage: damaged_files.py WALKER HUNDREDS"""
import collections, glob, multiprocessing.pool, os, random, re, shutil, subprocess, sys, tempfile, threading
from foreign_files import SHIPPED, make, unpacked
from random_files import failure, sequence


def damage(r, data):
    data, way, start, run = bytearray(data), r.randrange(4), r.randrange(len(data)), r.choice((1, 8, 64, 512))
    if way < 2:
        return data[:start] + (bytes(run) + data[start + run:] if way else b'')
    for place in [r.randrange(len(data)) for _ in range(r.choice((1, 4, 32)))]:
        data[place] = r.randrange(256) if way == 2 else data[place] ^ 1 << r.randrange(8)
    return data


def run_on(name, *tool):
    run = subprocess.run([*tool, sys.argv[1], name], capture_output=True)
    return run, run.stderr.decode(errors='replace')


def walk(seed):
    r, name = random.Random(seed), f'damaged {threading.get_ident()}'
    with open(r.choice(FILES), 'rb') as f, open(name, 'wb') as g:
        g.write(damage(r, f.read()))
    run, said = run_on(name, 'prlimit', '--cpu=10:20', *MEMORY)
    if run.returncode == 0 or 'allocation-size-too-big' in said:  # The sanitizer's word for std::bad_alloc.
        return 'exception' if run.returncode or isinstance(unpacked(run.stdout)[-1], bytes) else 'walk'
    # Without the sanitizer the walker's own handler stands before the crash.
    stack = said if 'AddressSanitizer' in said else said.partition('libc.so')[2]
    frames = [line for line in stack.splitlines() if re.search('libhdf5|tarnwick', line)]
    named = [re.search(r'libhdf5[^(]*[(](\w+)| in (\w+) .*libhdf5', line) for line in frames]
    where = said
    if 'libhdf5' in (frames or [''])[0]:
        where = 'HDF5 under ' + next((m[1] or m[2] for m in named if m), '')
    if 'HDF5 under' not in where and MEMORY and shutil.which('valgrind'):  # Who spoiled the memory comes first.
        told = run_on(name, 'valgrind', '-q')[1]
        first = next((line for line in told.splitlines() if re.search('libhdf5|tarnwick', line)), '')
        where = 'HDF5 under a heap that it had spoiled' if 'libhdf5' in first else where
    return f'status {run.returncode} in {where}'


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    make(9)
    failure(sys.argv[1], sequence(1, 150))
    FILES = [f for f in sorted(glob.glob('*.h5') + glob.glob(SHIPPED + '/*.h5')) if 0 < os.path.getsize(f) < 100000]
    with open(sys.argv[1], 'rb') as f:
        MEMORY = [] if b'__asan_init' in f.read() else [f'--as={2 << 30}']
    count = 20000 if os.environ.get('TARNWICKHDF_LONG_TESTS') else 100 * int(sys.argv[2])
    with multiprocessing.pool.ThreadPool(2) as pool:
        ends = collections.Counter(pool.imap_unordered(walk, range(count)))
    print(f'{len(FILES)} files, {count} damaged;', *(f'{n} {end}' for end, n in ends.most_common()), sep='\n')
    assert all('HDF5 under' in end for end in ends if end not in ('walk', 'exception')), 'a crash outside of HDF5'
