#!/usr/bin/python3
"""Draws memory logs: the heap, the open HDF5 objects of each kind and the
metadata cache over the time of the samples.

Each log is a run of its own. So is what follows where the index of the samples
goes back, because the program was started again with the same log. Runs are lines
of their own colour.
"""
import argparse
import json
import sys
from dataclasses import dataclass
from datetime import datetime, timedelta
from itertools import groupby
from pathlib import Path

VERSION = "@PROJECT_VERSION@"
KINDS = {"files": "file_count", "groups": "group_count", "data sets": "dataset_count", "attributes": "attr_count",
         "named types": "datatype_count"}


@dataclass
class Sample:
    index: int
    time: datetime
    heap: int
    files: list

    def total(self, key):
        return sum(max(file[key], 0) for file in self.files)


@dataclass
class Run:
    name: str
    samples: list


def read_samples(log):
    samples = []
    with open(log, encoding="utf-8", errors="replace") as lines:
        for number, line in enumerate(lines, 1):
            try:
                told = json.loads(line)
                time = datetime.strptime(told["timestamp"], "%Y-%m-%dT%H:%M:%S%z")
                sample = Sample(told["index"], time, told["total_heap_used_bytes"], told["files"])
                for key in (*KINDS.values(), "cache_size"):
                    sample.total(key)
                samples.append(sample)
            except (ValueError, KeyError, TypeError):
                # A sample that failed half-way leaves an unfinished line.
                print(f"{log}:{number}: passed over: {line.strip()[:60]}", file=sys.stderr)
    return samples


def runs_of(log):
    """The runs of a log: each begins where the index goes back."""
    runs = []
    for sample in read_samples(log):
        if not runs or sample.index < runs[-1][-1].index:
            runs.append([])
        runs[-1].append(sample)
    name = Path(log).name
    return [Run(name if len(runs) == 1 else f"{name}, run {number}", samples) for number, samples in enumerate(runs, 1)]


def spread(times):
    """The log has whole seconds: samples of the same second share it evenly, in their order."""
    shared = []
    for second, same in groupby(times):
        number = len(list(same))
        shared += [second + timedelta(seconds=place / number) for place in range(number)]
    return shared


def draw(runs, picture, since_start):
    # Here, so that help and version are told without it.
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.dates as dates
    import matplotlib.pyplot as plt

    shown = {label: key for label, key in KINDS.items()
             if any(sample.total(key) for run in runs for sample in run.samples)}
    panels = [("heap in use\n(MB)", lambda sample: sample.heap / 1e6),
              *((f"open {label}", lambda sample, key=key: sample.total(key)) for label, key in shown.items()),
              ("metadata cache\n(kB)", lambda sample: sample.total("cache_size") / 1e3)]
    figure, axes_of = plt.subplots(len(panels), 1, sharex=True, figsize=(9, 1.3 * len(panels) + 1), layout="constrained")
    zone = runs[0].samples[0].time.tzinfo
    drawn = []
    for run in runs:
        times = spread([sample.time for sample in run.samples])
        if since_start:
            times = [(time - times[0]).total_seconds() for time in times]
        drawn += times
        for axes, (_, value) in zip(axes_of, panels):
            axes.plot(times, [value(sample) for sample in run.samples], marker=".", alpha=0.8, label=run.name, clip_on=False)
    for axes, (label, _) in zip(axes_of, panels):
        axes.set_ylabel(label, fontsize="small")
        axes.set_ylim(0, max(axes.get_ylim()[1], 1 if label.startswith("open") else 0))
        axes.spines[["top", "right"]].set_visible(False)
        if label.startswith("open"):
            axes.locator_params(axis="y", integer=True, nbins=4)
    if since_start:
        axes_of[-1].set_xlabel("time since the first sample of the run (s)")
    else:
        locator = dates.AutoDateLocator(tz=zone)
        axes_of[-1].xaxis.set_major_locator(locator)
        axes_of[-1].xaxis.set_major_formatter(dates.ConciseDateFormatter(locator, tz=zone))
        axes_of[-1].set_xlabel(f"time of the sample ({zone})")
        if min(drawn) == max(drawn):
            axes_of[-1].set_xlim(drawn[0] - timedelta(seconds=1), drawn[0] + timedelta(seconds=1))
    if len(runs) > 1:
        axes_of[0].legend(loc="lower left", bbox_to_anchor=(0, 1), ncols=3, fontsize="small", frameon=False)
    figure.savefig(picture, dpi=100)


def main():
    parser = argparse.ArgumentParser(prog="tarnwickhdf-plot-memory-log", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("logs", metavar="LOG", nargs="+", help="a memory log")
    parser.add_argument("picture", metavar="PICTURE", help="the picture to write; its name ends in .png, .svg or .pdf")
    parser.add_argument("--since-start", action="store_true",
                        help="let all runs begin at 0, to compare runs of different times")
    parser.add_argument("--version", action="version", version=f"%(prog)s {VERSION}")
    given = parser.parse_args()
    runs = [run for log in given.logs for run in runs_of(log)]
    if not runs:
        sys.exit(f"{', '.join(given.logs)}: no sample in it")
    draw(runs, given.picture, given.since_start)


if __name__ == "__main__":
    try:
        main()
    except ImportError:
        sys.exit("tarnwickhdf-plot-memory-log needs matplotlib (on Debian python3-matplotlib)")
    except (OSError, ValueError) as problem:
        sys.exit(f"tarnwickhdf-plot-memory-log: {problem}")
