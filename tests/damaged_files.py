"""Walks damaged files: each walk ends, with or without an exception, and what crashes does so inside HDF5.
Usage: damaged_files.py WALKER HUNDREDS, with a walker of the address sanitizer's, which tells where it crashed"""
import collections, glob, multiprocessing.pool, os, pathlib, random, re, subprocess, sys, tempfile, threading
from foreign_files import SHIPPED, make, unpacked
from random_files import failure, sequence

# Damage makes HDF5 leak and ask for more memory than there is; a walk that never ends is aborted.
os.environ['ASAN_OPTIONS'] = 'detect_leaks=0:handle_abort=1:allocator_may_return_null=1:max_allocation_size_mb=1000'


def damage(r, data):
    data, way, start, run = bytearray(data), r.randrange(4), r.randrange(len(data)), r.choice((1, 8, 64, 512))
    if way < 2:
        return data[:start] + (bytes(run) + data[start + run:] if way else b'')
    for place in [r.randrange(len(data)) for _ in range(r.choice((1, 4, 32)))]:
        data[place] = r.randrange(256) if way == 2 else data[place] ^ 1 << r.randrange(8)
    return data


def walk(seed):
    r, name = random.Random(seed), f'damaged {threading.get_ident()}'
    pathlib.Path(name).write_bytes(damage(r, pathlib.Path(r.choice(FILES)).read_bytes()))
    run = subprocess.run(['timeout', '--signal=ABRT', '--kill-after=9', '30', sys.argv[1], name], capture_output=True)
    said = run.stderr.decode(errors='replace')
    if run.returncode == 0 or 'in operator new' in said.partition('SUMMARY')[2]:  # It doesn't throw std::bad_alloc.
        return 'exception' if run.returncode or isinstance(unpacked(run.stdout)[-1], bytes) else 'walk'
    # Where it crashed and, if that was past the end of some memory or in what was free again, who had asked for it.
    lost = re.findall('located (?:0 bytes to the right|[0-9]+ bytes inside) of.*?allocated by(.*)', said, re.S)
    stacks = [re.findall('.*(?:libhdf5|tarnwick).*', stack) or [''] for stack in (said, *lost)]
    if not all('libhdf5' in stack[0] for stack in stacks) or 'stack-buffer' in said:
        return f'status {run.returncode} in {said}'
    named = re.search(r' in (\w+) .*libhdf5', '\n'.join(stacks[0]))
    return f'status {run.returncode} in HDF5 under ' + (named[1] if named else '')


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    make(9)
    failure(sys.argv[1], sequence(1, 150))
    FILES = [f for f in sorted(glob.glob('*.h5') + glob.glob(SHIPPED + '/*.h5')) if 0 < os.path.getsize(f) < 100000]
    count = 20000 if os.environ.get('TARNWICKHDF_LONG_TESTS') else 100 * int(sys.argv[2])
    with multiprocessing.pool.ThreadPool(2) as pool:
        ends = collections.Counter(pool.imap_unordered(walk, range(count)))
    print(f'{len(FILES)} files, {count} damaged;', *(f'{n} {end}' for end, n in ends.most_common()), sep='\n')
    assert all('HDF5 under' in end for end in ends if end not in ('walk', 'exception')), 'a crash outside of HDF5'
