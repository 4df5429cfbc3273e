"""Makes both pages and the pictures of a run: report.py RESULTS.json FOLDER.

The templates benchmarks.md.in and benchmarks-internal.md.in say what stands where: "@rows: columns@" is the table of some
rows (`selections` below) with these columns (COLUMNS below), "@name@" is a text (`texts` below).
"""
import json
import math
import re
import sys
from itertools import groupby
from pathlib import Path

import matplotlib
import numpy as np
from matplotlib.ticker import EngFormatter
from PIL import Image

matplotlib.use("Agg")
import matplotlib.pyplot as plt

plt.rcParams.update({"font.size": 6.5, "lines.linewidth": 1, "lines.markersize": 3, "legend.frameon": False,
                     "figure.constrained_layout.use": True})
OTHERS = {"plain": "plain HDF5", "cpp": "HDF5's C++ API", "h5py": "h5py", "pytables": "PyTables"}
STYLES = {"library": ("#1f5fa8", "-", "o"), "plain": ("#555555", "--", "s"), "cpp": ("#b91c1c", "-.", "D"),
          "h5py": ("#d97706", ":", "^"), "pytables": ("#15803d", "-.", "v")}
LOST = 0.95  # Whoever takes less than this share of the library's time has won the row.
MOST_FILE = 1.03  # Of the file that plain HDF5 writes.
MIB = 1 << 20


class Row:
    """A row at one size: the seconds of each side's turns, and what the others take as multiples of the library's."""

    def __init__(self, result):
        self.__dict__.update(result)
        self.family, _, full = self.name.partition("/")
        self.work, _, self.beside = full.partition(", beside ")
        self.seconds = {side: np.median(turns) for side, turns in self.turns.items()}
        self.times = {other: np.median(self.ratios(other, "library")) for other in self.turns}
        self.quarter, self.ratio, self.three_quarters = np.quantile(self.ratios("library", "plain"), [0.25, 0.5, 0.75])
        self.is_missed = bool(self.target) and round(self.ratio, 2) > self.target
        self.winners = [other for other in self.turns if self.times[other] < LOST]

    def ratios(self, one, other):
        return [a / b for a, b in zip(self.turns[one], self.turns[other])]

    def reason(self, winner):
        return next((text for who, text in self.reasons if who in (winner, "*")), "not explained")


time_text = EngFormatter("s", places=2)


def bytes_text(count):
    for unit, scale in ("MiB", MIB), ("KiB", 1024):
        if count >= scale:
            return f"{count / scale:.1f} {unit}" if count < 10 * scale and count % scale else f"{count / scale:,.0f} {unit}"
    return f"{count:,.0f} bytes"


def size_text(row):
    if row.unit == "bytes":
        return bytes_text(row.size)
    return f"{row.unit} {row.size}" if row.unit.endswith("=") else f"{row.size:,} {row.unit}"


def times_text(row, other):
    if other not in row.turns:
        return ""
    text = f"{row.times[other]:.2f}" if row.times[other] < 9.995 else f"{row.times[other]:,.0f}"
    if other == "plain":
        text += f" ({1 / row.three_quarters:.2f} to {1 / row.quarter:.2f})"
    return f"**{text}**" if other in row.winners else text


def file_ratio_text(row):
    ratio = row.file["library"] / row.file["plain"]
    return f"**{ratio:.3f}**" if round(ratio, 2) > MOST_FILE else f"{ratio:.3f}"


def target_text(row):
    made = ", **missed**" if row.is_missed else ""
    return f"{row.target:.2f}{made}" if row.target else ""


COLUMNS = {
    "row": lambda row: row.name,
    "work": lambda row: row.work,
    "beside": lambda row: row.beside,
    "reason": lambda row: row.reason("plain"),
    "size": size_text,
    "library": lambda row: time_text(row.seconds["library"]),
    "plain": lambda row: time_text(row.seconds["plain"]),
    "the other way": lambda row: times_text(row, "plain"),
    "ratio": lambda row: f"{row.ratio:.3f}",
    "quartiles": lambda row: f"{row.quarter:.2f} to {row.three_quarters:.2f}",
    "pairs": lambda row: str(len(row.turns["plain"])),
    "target": target_text,
    "growth of the library": lambda row: f"{row.growth['library']:.2f}",
    "growth of plain HDF5": lambda row: f"{row.growth['plain']:.2f}",
    "heap of the library": lambda row: bytes_text(row.heap["library"]),
    "heap of plain HDF5": lambda row: bytes_text(row.heap["plain"]),
    "file of the library": lambda row: bytes_text(row.file["library"]),
    "file of plain HDF5": lambda row: bytes_text(row.file["plain"]),
    "ratio of files": file_ratio_text,
    "share of the data": lambda row: f"{row.file['library'] / row.size:.3f}",
    **{name: lambda row, other=other: times_text(row, other) for other, name in OTHERS.items()},
}
TO_THE_LEFT = {"row", "work", "beside", "reason"}  # Other columns are numbers.


def table(rows, heads):
    rules = ["---" if head in TO_THE_LEFT else "---:" for head in heads]
    lines = [heads, rules, *([COLUMNS[head](row) for head in heads] for row in rows)]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines) + "\n" if rows else ""


def of_each_name(rows):
    """Its sizes, for each row."""
    return [list(points) for _, points in groupby(rows, lambda row: row.name)]


def at_several_sizes(rows):
    return [points for points in of_each_name(rows) if len(points) > 2]


def lost_lines(rows):
    """Why rows are lost: a line for each reason."""
    lost = {}
    for row in rows:
        for winner in row.winners:
            lost.setdefault(row.reason(winner), {}).setdefault(row.work, {})[row.beside or OTHERS[winner]] = None
    for reason, works in lost.items():
        texts = [f"**{work}** ({', '.join(winners)})" for work, winners in works.items()]
        yield f"- {', '.join(texts)}: {reason}."


def family_section(family, rows):
    main = [row for row in rows if not row.beside]
    others = [name for other, name in OTHERS.items() if any(other in row.turns for row in main)]
    lost = list(lost_lines(rows))
    yield f"## {family.capitalize()}\n"
    if at_several_sizes(main):
        yield f"![{family.capitalize()}: time over size](images/{picture_name(family)})\n"
    yield table(main, ["work", "size", "library", *others])
    yield table([row for row in rows if row.beside], ["work", "beside", "size", "library", "the other way"])
    if lost:
        yield "\n".join(["Where another is faster:\n", *lost]) + "\n"


def picture_name(family):
    return f"bench-{family.replace(' ', '-')}.png"


def save(figure, path):
    """The legend of the first panel stands above all. A picture of few colours is a small one."""
    figure.legend(*figure.axes[0].get_legend_handles_labels(), loc="upper center", ncol=6)
    figure.get_layout_engine().set(rect=(0, 0, 1, 1 - 0.25 / figure.get_figheight()))
    figure.savefig(path, dpi=80)
    plt.close(figure)
    Image.open(path).convert("RGB").quantize(24, method=Image.Quantize.FASTOCTREE).save(path, optimize=True)


def draw_overview(rows, path):
    """All rows at their largest size, on one scale."""
    points = [points[-1] for points in of_each_name(rows)]
    figure, axes = plt.subplots(figsize=(9, 0.19 * len(points) + 2))
    for other, label in OTHERS.items():
        color, _, marker = STYLES[other]
        times = [row.times.get(other, math.nan) for row in points]
        axes.semilogx(times, range(len(points)), color=color, linestyle="", marker=marker, label=label)
    axes.axvline(1, color=STYLES["library"][0], label="the library")
    axes.set_yticks(range(len(points)), [f"{row.family}: {row.work}" for row in points])
    axes.invert_yaxis()
    axes.margins(y=1 / (len(points) + 1))
    axes.set_xlabel("time over the library's time at the largest size: right of 1 the library is faster")
    axes.xaxis.set_major_formatter("{x:g}")
    axes.grid(axis="x", color="#dddddd")
    save(figure, path)


def draw_family(works, path):
    """A panel for each work."""
    lines = math.ceil(len(works) / 3)
    figure, panels = plt.subplots(lines, 3, figsize=(9.6, 1.8 * lines + 0.25), squeeze=False)
    for panel in panels.flat[len(works):]:
        panel.set_axis_off()
    for panel, points in zip(panels.flat, works):
        for side, (color, line, marker) in STYLES.items():
            seconds = [point.seconds.get(side, math.nan) for point in points]
            panel.loglog([point.size for point in points], seconds, color=color, linestyle=line, marker=marker,
                         label=OTHERS.get(side, side))
        panel.set(title=points[0].work, xlabel=points[0].unit.rstrip(" ="), ylabel="seconds")
        panel.minorticks_off()
    save(figure, path)


def machine(versions):
    names = re.findall(r"^model name\s*: (.*)$", Path("/proc/cpuinfo").read_text(), re.MULTILINE) or [""]
    return f"{len(names)} processors {names[0]}, {versions}"


def differs_in_heap(row):
    return abs(row.heap["library"] - row.heap["plain"]) > max(row.heap["plain"] / 10, 65536)


def differs_in_file(row):
    return row.file["plain"] > 65536 and abs(row.file["library"] / row.file["plain"] - 1) > 0.005


def main():
    run = json.loads(Path(sys.argv[1]).read_text())
    folder = Path(sys.argv[2])
    rows = [Row(result) for result in run["rows"] if result["turns"]]
    left_out = [f"- {result['name']}/{result['size']}" for result in run["rows"] if not result["turns"]]
    families = {family: list(its) for family, its in groupby(rows, lambda row: row.family)}
    selections = {
        "rows": rows,
        "missed": [row for row in rows if row.is_missed],
        "more heap": [row for row in rows if row.heap["library"] > row.heap["plain"] + MIB],
        "other heap": [points[-1] for points in of_each_name(filter(differs_in_heap, rows))],
        "compressed files": [row for row in rows if row.work.startswith("write with")],
        "other files": [row for row in rows if differs_in_file(row) and not row.work.startswith("write with")],
        "growing": [points[-1] for points in at_several_sizes(rows)],
    }
    for points in at_several_sizes(rows):
        sizes = np.log([point.size for point in points])
        points[-1].growth = {side: np.polyfit(sizes, np.log([point.seconds[side] for point in points]), 1)[0]
                             for side in ("library", "plain")}
    with_target = sum(bool(row.target) for row in rows)
    texts = {
        "machine": machine(run["versions"]),
        "targets made": f"{with_target - len(selections['missed'])} of {with_target}",
        "sections": "\n".join(line for family, its in families.items() for line in family_section(family, its)),
        "left out": "\n".join(left_out) or "None.",
    }

    def fill(place):
        name, _, heads = place[1].partition(": ")
        return (table(selections[name], heads.split(", ")) or "None." if heads else texts[name]).rstrip()

    for template in Path(__file__).parent.glob("*.md.in"):
        (folder / template.stem).write_text(re.sub("@(.+?)@", fill, template.read_text()))
    draw_overview([row for row in rows if not row.beside], folder / "images" / "bench-overview.png")
    for family, its in families.items():
        works = at_several_sizes([row for row in its if not row.beside])
        if works:
            draw_family(works, folder / "images" / picture_name(family))
    print(f"{texts['targets made']} targets made")
    for row in rows:
        for winner in row.winners:
            if row.reason(winner) == "not explained":
                print(f"not explained: {row.name}, {size_text(row)}: {winner} takes {row.times[winner]:.2f}")


if __name__ == "__main__":
    main()
