"""Measures the rows: bench.py PROGRAM RESULTS.json [--quick] [--long] [FILTER], for scripts/bench.sh.

The sides of a row take turns, those in C++ in the program.
"""
import argparse
import json
import os
import re
import subprocess
import time
from functools import partial
from pathlib import Path

import h5py

import rows

SECONDS_OF_A_TURN = 0.02  # A turn is repeated until this much time has been measured,
SECONDS_OF_PAIRS = 0.4  # and pairs of turns until this much has passed.
SECONDS_OF_A_PEER = 0.15
FEWEST_PAIRS, MOST_PAIRS, MOST_ROUNDS = 3, 25, 500
LONGEST_TURN = 3  # A size at which a turn would take longer is left out, as far as the size before can tell.
MAIN = "library", "plain"


class Contestant:
    """A side of a row at one size: its first turn, which warms up and tells of the heap, and the seconds of the others."""

    def __init__(self, name, take_turn):
        self.name, self.turn = name, take_turn
        self.first, self.heap, self.file = take_turn(1, True)
        self.fastest, self.turns, self.spent = self.first, [], 0

    def take_turn(self, rounds):
        begin = time.perf_counter()
        self.turns.append(self.turn(rounds, False)[0])
        self.fastest = min(self.fastest, self.turns[-1])
        self.spent += time.perf_counter() - begin


def rounds_for(seconds):
    return int(max(1, min(SECONDS_OF_A_TURN / max(seconds, 1e-9), MOST_ROUNDS)))


def take_turns(contestants):
    """What disturbs the machine disturbs all: they take turns, and also in coming first.

    The first round of a turn finds the caches full of another side's data, so the library and plain HDF5 have as many rounds
    in a pair of turns. First turns can be many times as slow as later ones: the fastest counts.
    """
    main = [one for one in contestants if one.name in MAIN]
    for pair in range(MOST_PAIRS):
        if pair >= FEWEST_PAIRS and sum(one.spent for one in main) > SECONDS_OF_PAIRS:
            break
        rounds = rounds_for(min(one.fastest for one in main))
        for one in contestants:
            if one in main or one.spent < SECONDS_OF_A_PEER:
                one.take_turn(rounds if one in main else rounds_for(one.fastest))
        contestants.reverse()


def measure(row, program, options):
    """The results of a row, one for each size."""
    last = {}  # The size before and its seconds, of each side.

    def is_too_long(side, size):
        before, seconds = last.get(side, (size, 0))
        return not options.long and size > before and seconds * size / before > LONGEST_TURN

    for size in row.sizes[:1] if options.quick else row.sizes:
        if not re.search(options.filter, f"{row.name}/{size}"):
            continue
        is_left_out = any(is_too_long(side, size) for side in MAIN)
        all_sides = [Contestant(side, partial(row.turn, program, side, size)) for side in row.sides()
                     if not is_left_out and not is_too_long(side, size)]
        last.update((one.name, (size, one.first)) for one in all_sides)
        if options.quick:
            for one in all_sides:
                one.take_turn(1)
        elif all_sides:
            take_turns(all_sides)
        yield {"name": row.name, "size": size, "unit": row.unit, "target": row.target if size >= row.target_from else 0,
               "reasons": [[who, text] for who, text, *largest in row.reasons if not largest or size <= largest[0]],
               **{what: {one.name: getattr(one, what) for one in all_sides} for what in ("turns", "heap", "file")}}


class Program:
    """The sides in C++: the program reads tasks and answers with the seconds of a round, the heap's peak and the file's size."""

    def __init__(self, path):
        self.process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.versions = self.process.stdout.readline().strip()

    def turn(self, side, work, **fields):
        print(json.dumps({"work": f"{side} {work}", **fields}, default=path_of), file=self.process.stdin, flush=True)
        answer = self.process.stdout.readline().split()
        if not answer:
            raise SystemExit(f"the sides in C++ ended in {side} {work}")
        return float(answer[0]), int(answer[1]), int(answer[2])


def path_of(data):
    """A file with the data, which stands for them in a task. rows.py keeps them in memory, so that their address is a name."""
    path = rows.path(f"data-{id(data)}.h5")
    if not os.path.exists(path):
        with h5py.File(path, "w") as file:
            file["data"] = data
    return path


def main():
    parser = argparse.ArgumentParser()
    for argument in "program", "results":
        parser.add_argument(argument)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--long", action="store_true")
    parser.add_argument("filter", nargs="?", default="")
    options = parser.parse_intermixed_args()
    program = Program(options.program)
    results = [result for row in rows.ROWS for result in measure(row, program, options)]
    Path(options.results).write_text(json.dumps({"versions": program.versions, "rows": results}))
    program.process.stdin.close()
    program.process.wait()


if __name__ == "__main__":
    main()
