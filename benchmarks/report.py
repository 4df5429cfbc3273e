"""Makes both pages and the pictures of a run: report.py RESULTS.json FOLDER.

The templates benchmarks.md.in and benchmarks-internal.md.in say what stands where: "@rows: columns@" is the table of some
rows (ROWS below) with these columns (COLUMNS below), "@name@" is a text (TEXTS below).
"""
import json
import math
import re
import statistics
import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
from PIL import Image

HERE = Path(__file__).parent
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
        self.seconds = {side: statistics.median(turns) for side, turns in self.turns.items()}
        self.is_compared = {"library", "plain"} <= set(self.turns)
        if self.is_compared:
            self.times = {other: statistics.median(self.ratios(other, "library")) for other in self.turns}
            ratios = self.ratios("library", "plain")
            quartiles = statistics.quantiles(ratios, n=4, method="inclusive") if len(ratios) > 1 else 3 * ratios
            self.quarter, self.ratio, self.three_quarters = quartiles
            self.is_missed = bool(self.target) and round(self.ratio, 2) > self.target
            self.winners = [other for other in self.turns if self.times[other] < LOST]

    def ratios(self, one, other):
        return [a / b for a, b in zip(self.turns[one], self.turns[other])]

    def reason(self, winner):
        return next((text for who, text in self.reasons if who in (winner, "*")), "not explained")


def bytes_text(count):
    for unit, scale in ("MiB", MIB), ("KiB", 1024):
        if count >= scale:
            return f"{count / scale:.1f} {unit}" if count < 10 * scale and count % scale else f"{count / scale:,.0f} {unit}"
    return f"{count:,.0f} bytes"


def time_text(seconds):
    for unit, scale in ("s", 1), ("ms", 1e-3), ("µs", 1e-6):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def size_text(row):
    if row.unit == "bytes":
        return bytes_text(row.size)
    return f"{row.unit} {row.size}" if row.unit.endswith("=") else f"{row.size:,} {row.unit}"


def times_text(row, other):
    if other not in row.turns:
        return ""
    times = row.times[other]
    text = f"{times:.2f}" if times < 9.995 else f"{times:,.0f}"
    if other == "plain" and times < 9.995:
        text += f" ({1 / row.three_quarters:.2f} to {1 / row.quarter:.2f})"
    return f"**{text}**" if other in row.winners else text


def file_ratio_text(row):
    ratio = row.file["library"] / row.file["plain"]
    return f"**{ratio:.3f}**" if round(ratio, 2) > MOST_FILE else f"{ratio:.3f}"


def verdict(row):
    if not row.target:
        return ""
    return "**miss**" if row.is_missed else "made"


COLUMNS = {
    "row": lambda row: row.name,
    "work": lambda row: row.work,
    "beside": lambda row: row.beside,
    "size": size_text,
    "library": lambda row: time_text(row.seconds["library"]),
    "plain": lambda row: time_text(row.seconds["plain"]),
    "the other way": lambda row: times_text(row, "plain"),
    "ratio": lambda row: f"{row.ratio:.3f}",
    "quartiles": lambda row: f"{row.quarter:.2f} to {row.three_quarters:.2f}",
    "pairs": lambda row: str(len(row.turns["plain"])),
    "target": lambda row: f"{row.target:.2f}" if row.target else "",
    "verdict": verdict,
    "reason": lambda row: row.reason("plain"),
    "heap of the library": lambda row: bytes_text(row.heap["library"]),
    "heap of plain HDF5": lambda row: bytes_text(row.heap["plain"]),
    "file of the library": lambda row: bytes_text(row.file["library"]),
    "file of plain HDF5": lambda row: bytes_text(row.file["plain"]),
    "ratio of files": file_ratio_text,
    "share of the data": lambda row: f"{row.file['library'] / row.size:.3f}",
    **{name: lambda row, other=other: times_text(row, other) for other, name in OTHERS.items()},
}
TO_THE_LEFT = {"row", "work", "beside", "sizes", "verdict", "reason"}  # Other columns are numbers.


def markdown(heads, lines):
    rules = ["---" if head in TO_THE_LEFT else "---:" for head in heads]
    return "\n".join("| " + " | ".join(line) + " |" for line in [heads, rules, *lines]) + "\n"


def table(rows, heads):
    return markdown(heads, [[COLUMNS[head](row) for head in heads] for row in rows]) if rows else ""


def grouped(rows, key):
    groups = {}
    for row in rows:
        groups.setdefault(key(row), []).append(row)
    return groups


def largest(rows):
    """Each row at its largest size alone."""
    return [max(sizes, key=lambda row: row.size) for sizes in grouped(rows, lambda row: row.name).values()]


def at_several_sizes(rows):
    """The rows of each name that is measured at three sizes or more."""
    return [points for points in grouped(rows, lambda row: row.name).values() if len(points) > 2]


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


def exponent(points, side):
    """The slope of time over size, log-log."""
    sizes = [math.log(point.size) for point in points]
    return f"{statistics.linear_regression(sizes, [math.log(point.seconds[side]) for point in points]).slope:.2f}"


def growth_table(rows):
    lines = [[points[0].name, f"{size_text(points[0])} to {size_text(points[-1])}", exponent(points, "library"),
              exponent(points, "plain")] for points in at_several_sizes(rows)]
    return markdown(["row", "sizes", "library", "plain HDF5"], lines)


def picture_name(family):
    return f"bench-{family.replace(' ', '-')}.png"


def save(figure, path):
    """A picture of few colours is a small one."""
    figure.savefig(path, dpi=80)
    plt.close(figure)
    Image.open(path).convert("RGB").quantize(24, method=Image.Quantize.FASTOCTREE).save(path, optimize=True)


def draw_overview(rows, path):
    """All rows at their largest size, on one scale."""
    points = largest(rows)
    if not points:  # A filter may leave rows that stand beside others alone.
        return
    figure, axes = plt.subplots(figsize=(9, max(3, 0.19 * len(points) + 1.2)))
    for other, label in OTHERS.items():
        shown = [(row.times[other], place) for place, row in enumerate(points) if other in row.turns]
        if shown:
            axes.plot(*zip(*shown), STYLES[other][2], color=STYLES[other][0], markersize=4, label=label)
    axes.axvline(1, color=STYLES["library"][0], linewidth=1, label="the library")
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter("{x:g}")
    axes.set_yticks(range(len(points)), [f"{row.family}: {row.work}" for row in points], fontsize=7)
    axes.set_ylim(len(points) - 0.5, -0.5)
    axes.set_xlabel("time over the library's time at the largest size: right of 1 the library is faster", fontsize=8)
    axes.grid(axis="x", color="#dddddd", linewidth=0.5)
    axes.legend(fontsize=7, loc="upper center", bbox_to_anchor=(0.3, 1 + 2 / len(points)), ncol=5, frameon=False)
    figure.tight_layout()
    save(figure, path)


def draw_panel(panel, points):
    for side, (color, style, marker) in STYLES.items():
        line = [(point.size, point.seconds[side]) for point in points if side in point.turns]
        if line:
            panel.loglog(*zip(*line), color=color, linestyle=style, marker=marker, markersize=3, linewidth=1,
                         label=OTHERS.get(side, side))
    panel.set_title(points[0].work, fontsize=6)
    panel.tick_params(labelsize=6)
    panel.xaxis.set_minor_formatter("")
    panel.yaxis.set_minor_formatter("")
    panel.set_xlabel(points[0].unit.rstrip(" ="), fontsize=6)
    panel.set_ylabel("seconds", fontsize=6)


def draw_family(rows, path):
    """A panel for each work; none for a work of one size."""
    works = at_several_sizes(rows)
    if not works:
        return
    columns = 3
    lines = math.ceil(len(works) / columns)
    height = 1.8 * lines + 0.4
    figure, panels = plt.subplots(lines, columns, figsize=(9.6, height), squeeze=False)
    for panel in panels.flat[len(works):]:
        panel.set_axis_off()
    for panel, points in zip(panels.flat, works):
        draw_panel(panel, points)
    handles = {label: handle for panel in panels.flat for handle, label in zip(*panel.get_legend_handles_labels())}
    figure.legend(handles.values(), handles.keys(), loc="lower center", ncol=5, fontsize=7, frameon=False)
    figure.tight_layout(rect=(0, 0.3 / height, 1, 1))
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
    everything = [Row(result) for result in run["rows"]]
    rows = [row for row in everything if row.is_compared]
    families = grouped(rows, lambda row: row.family)
    missed = [row for row in rows if row.is_missed]
    targets = [row for row in rows if row.target]
    selections = {
        "rows": rows,
        "missed": missed,
        "plain alone": [row for row in everything if not row.is_compared and row.turns],
        "more heap": [row for row in rows if row.heap["library"] > row.heap["plain"] + MIB],
        "other heap": largest([row for row in rows if differs_in_heap(row)]),
        "compressed files": [row for row in rows if row.work.startswith("write with")],
        "other files": [row for row in rows if differs_in_file(row) and not row.work.startswith("write with")],
    }
    left_out = [f"- {row.name}/{row.size}" for row in everything if not row.turns]
    texts = {
        "machine": machine(run["versions"]),
        "targets made": f"{len(targets) - len(missed)} of {len(targets)}",
        "sections": "\n".join(line for family, its in families.items() for line in family_section(family, its)),
        "growth": growth_table(rows),
        "left out": "\n".join(left_out) or "None.",
    }

    def fill(place):
        name, _, heads = place[1].partition(": ")
        return (table(selections[name], heads.split(", ")) or "None." if heads else texts[name]).rstrip()

    for template in HERE.glob("*.md.in"):
        (folder / template.stem).write_text(re.sub("@(.+?)@", fill, template.read_text()))
    draw_overview([row for row in rows if not row.beside], folder / "images" / "bench-overview.png")
    for family, its in families.items():
        draw_family([row for row in its if not row.beside], folder / "images" / picture_name(family))
    print(f"{texts['targets made']} targets made")
    for row in missed:
        print(f"missed: {row.name}, {size_text(row)}: {row.ratio:.3f}, target {row.target:.2f}: {row.reason('plain')}")
    for row in rows:
        for winner in row.winners:
            if row.reason(winner) == "not explained":
                print(f"not explained: {row.name}, {size_text(row)}: {winner} takes {row.times[winner]:.2f}")


if __name__ == "__main__":
    main()
