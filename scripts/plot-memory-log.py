"""Draws a memory log: heap, open HDF5 objects of each kind and metadata cache over the samples.

Usage: plot-memory-log.py LOG PICTURE, where PICTURE ends in .png or .svg
"""
import json
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

KINDS = {"files": "file_count", "groups": "group_count", "data sets": "dataset_count", "attributes": "attr_count",
         "named types": "datatype_count"}


def read_samples(log):
    samples = []
    with open(log, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            try:
                sample = json.loads(line)
                samples.append({key: sample[key] for key in ("total_heap_used_bytes", "files")})
            except (ValueError, KeyError, TypeError):
                # A sample that failed half-way leaves an unfinished line.
                print(f"passed over: {line.strip()[:60]}...", file=sys.stderr)
    return samples


def totals(samples, key):
    return [sum(max(file[key], 0) for file in sample["files"]) for sample in samples]


def draw(samples, picture):
    figure, (heap, objects, cache) = plt.subplots(3, 1, sharex=True, figsize=(8, 6), layout="constrained")
    numbers = range(len(samples))
    heap.plot(numbers, [sample["total_heap_used_bytes"] / 1e6 for sample in samples], color="tab:purple", marker=".")
    heap.set_ylabel("heap in use (MB)")
    # Lines of equal height would hide each other: steps of different width stay visible.
    for width, (label, key) in zip((7, 5.5, 4, 2.5, 1), KINDS.items()):
        objects.step(numbers, totals(samples, key), where="mid", label=label, linewidth=width, alpha=0.7)
    objects.set_ylabel("open objects")
    objects.legend(loc="upper right", ncols=5, fontsize="small", frameon=False)
    objects.set_ylim(0, max(objects.get_ylim()[1] * 1.25, 1))
    cache.plot(numbers, [size / 1e3 for size in totals(samples, "cache_size")], color="tab:green", marker=".")
    cache.set_ylabel("metadata cache (kB)")
    cache.set_xlabel("sample")
    for axes in (heap, objects, cache):
        axes.spines[["top", "right"]].set_visible(False)
        axes.set_ylim(bottom=0)
        axes.locator_params(axis="x", integer=True)
    objects.locator_params(axis="y", integer=True)
    figure.savefig(picture, dpi=100)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    taken = read_samples(sys.argv[1])
    if not taken:
        sys.exit(f"{sys.argv[1]}: no sample in it")
    draw(taken, sys.argv[2])
