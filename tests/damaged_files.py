"""Walks damaged files: each walk ends, with or without an exception, and what crashes does so inside HDF5.

What is varied, by the number of the file, which seeds everything: the file (one of those that foreign_files.py makes or
PyTables ships), where it is damaged, and how: cut off, a run of zeros, random bytes, or flipped bits. What is held
fixed: the walk (walk.cpp), which runs in a process of its own under the address sanitizer. The sanitizer tells where a
walk crashed and, past the end of some memory, who had asked for that memory: a crash counts as HDF5's if both were
HDF5. TARNWICKHDF_LONG_TESTS in the environment walks 20,000 files.

Usage: damaged_files.py WALKER HUNDREDS [NUMBER], with the NUMBER of one file to walk it alone
"""
import collections
import glob
import multiprocessing.pool
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import threading

from foreign_files import SHIPPED, make

# Damage makes HDF5 leak and ask for more memory than there is; a walk that never ends is aborted.
os.environ['ASAN_OPTIONS'] = 'detect_leaks=0:handle_abort=1:allocator_may_return_null=1:max_allocation_size_mb=1000'
WALK_FOR_30_SECONDS = ['timeout', '--signal=ABRT', '--kill-after=9', '30']


def damage(r, data):
    """Cuts off the end, zeroes a run, or, in half of the files, flips random bits or sets random bytes."""
    start, run = r.randrange(len(data)), r.choice((1, 8, 64, 512))
    changed = bytearray(data)
    for place in r.choices(range(len(data)), k=r.choice((1, 4, 32))):
        changed[place] ^= r.choice((1 << r.randrange(8), r.randrange(256)))
    return r.choice((data[:start], data[:start] + bytes(run) + data[start + run:], changed, changed))


def stacks_of_a_crash(said):
    """Where it crashed and, if that was past the end of some memory or in what was free again, who asked for it."""
    allocated = re.findall('located (?:0 bytes to the right|[0-9]+ bytes inside) of.*?allocated by(.*)', said, re.S)
    return [re.findall('.*(?:libhdf5|tarnwick).*', stack) or [''] for stack in (said, *allocated)]


def walk(number):
    """Damages and walks one file, and tells how that ended."""
    r = random.Random(number)
    name = f'damaged {threading.get_ident()}'
    pathlib.Path(name).write_bytes(damage(r, pathlib.Path(r.choice(FILES)).read_bytes()))
    run = subprocess.run([*WALK_FOR_30_SECONDS, sys.argv[1], name], capture_output=True)
    said = run.stderr.decode(errors='replace')
    # The sanitizer's own operator new doesn't throw std::bad_alloc, it ends the process.
    if run.returncode == 0 or 'in operator new' in said.partition('SUMMARY')[2]:
        return 'walk'
    stacks = stacks_of_a_crash(said)
    if not all('libhdf5' in stack[0] for stack in stacks) or 'stack-buffer' in said:
        return f'file {number}: status {run.returncode} in {said}'
    function = re.search(r' in (\w+) .*libhdf5', '\n'.join(stacks[0]))
    return f'status {run.returncode} in HDF5 under ' + (function[1] if function else '')


def make_files():
    make(9)
    names = sorted(glob.glob('*.h5') + glob.glob(SHIPPED + '/*.h5'))
    return [name for name in names if 0 < os.path.getsize(name) < 100000]


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    FILES = make_files()
    numbers = range(20000 if os.environ.get('TARNWICKHDF_LONG_TESTS') else 100 * int(sys.argv[2]))
    if len(sys.argv) > 3:
        numbers = [int(sys.argv[3])]
    with multiprocessing.pool.ThreadPool(2) as pool:
        ends = collections.Counter(pool.imap_unordered(walk, numbers))
    print(f'{len(FILES)} files, {len(numbers)} damaged;', *(f'{n} {end}' for end, n in ends.most_common()), sep='\n')
    assert all('HDF5 under' in end for end in ends if end != 'walk'), 'a crash outside of HDF5'
