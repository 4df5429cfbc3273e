"""Reads the shards of many machines together: a virtual data set over the arrays, Dask over arrays and tables.

Usage: combine.py <folder with shard-*.h5> <workers>
"""
import math
import sys
from pathlib import Path

import dask
import dask.array as da
import h5py
import numpy as np
from dask.distributed import Client, LocalCluster


def link_arrays(shards, combined, name="samples"):
    """Makes one virtual data set of the shards' arrays; it holds no data, only where each row range lies."""
    shapes = []
    for shard in shards:
        with h5py.File(shard, "r") as file:
            shapes.append(file[name].shape)
            dtype = file[name].dtype
    rows = [shape[0] for shape in shapes]
    layout = h5py.VirtualLayout(shape=(sum(rows), shapes[0][1]), dtype=dtype)
    first = 0
    for shard, shape in zip(shards, shapes):
        # Relative names keep the folder movable.
        layout[first:first + shape[0]] = h5py.VirtualSource(shard.name, name, shape=shape)
        first += shape[0]
    with h5py.File(combined, "w", libver="latest") as file:
        file.create_virtual_dataset(name, layout)
    return rows, shapes[0][1], dtype


def read_rows(combined, name, first, last):
    """Runs in a worker: an open HDF5 file can't be sent there, its name can."""
    with h5py.File(combined, "r") as file:
        return file[name][first:last]


def energy_by_channel(shard):
    with h5py.File(shard, "r") as file:
        events = file["events"][:]
    return np.bincount(events["channel"], weights=events["energy"]), np.bincount(events["channel"])


def lazy_array(combined, rows, channels, dtype, name="samples"):
    """One task for each shard, because a shard's array is one chunk: half of it costs as much as all of it."""
    ends = np.cumsum(rows)
    parts = [da.from_delayed(dask.delayed(read_rows)(str(combined), name, int(end - count), int(end)),
                             shape=(count, channels), dtype=dtype)
             for end, count in zip(ends, rows)]
    return da.concatenate(parts)


def main(folder, workers):
    folder = Path(folder)
    shards = sorted(folder.glob("shard-*.h5"))
    combined = folder / "all.h5"
    rows, channels, dtype = link_arrays(shards, combined)
    with LocalCluster(n_workers=workers, threads_per_worker=1, host="127.0.0.1", dashboard_address=None) as cluster, \
            Client(cluster):
        means = lazy_array(combined, rows, channels, dtype).mean(axis=0).compute()
        sums = dask.compute(*[dask.delayed(energy_by_channel)(str(shard)) for shard in shards])
    energy = sum(part[0] for part in sums) / sum(part[1] for part in sums)
    total = sum(rows)
    print(f"{len(shards)} shards, {total:,} rows, {workers} workers")
    print("mean of each channel:       ", " ".join(f"{mean:.6f}" for mean in means))
    print("mean energy of each channel:", " ".join(f"{mean:.6f}" for mean in energy))
    check(means, energy, total, channels)


def check(means, energy, total, channels):
    row = np.arange(total)
    sine = np.sin(row * 0.001)
    for channel in range(channels):
        expected = sine.mean() + channel
        expected_energy = 2 * (sine[channel::channels].mean() + channel)
        if not (math.isclose(means[channel], expected, abs_tol=1e-9)
                and math.isclose(energy[channel], expected_energy, abs_tol=1e-9)):
            sys.exit(f"channel {channel}: {means[channel]} and {energy[channel]}, "
                     f"expected {expected} and {expected_energy}")


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
