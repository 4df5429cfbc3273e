"""Makes both pages and the pictures of a run: report.py RESULTS.json FOLDER."""
import fnmatch
import json
import math
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
MIB = 1 << 20
HEAP_ALLOWANCE = MIB


class Row:
    """A row at one size: what the others take, as multiples of the library's time, and who is faster."""

    def __init__(self, entry):
        self.entry = entry
        self.name, _, size = entry["name"].split("/iterations")[0].rpartition("/")
        self.family, _, full = self.name.partition("/")
        self.work, _, self.beside = full.partition(", beside ")
        self.size, self.unit = int(size), entry.get("label", "")
        self.is_compared = "ratio" in entry
        self.times = {other: entry[f"{other}_times"] for other in OTHERS if f"{other}_times" in entry}
        self.target = entry.get("target", 0)
        self.is_missed = bool(self.target) and round(entry["ratio"], 2) > self.target
        self.winners = [other for other, times in self.times.items() if times < LOST]

    def __getattr__(self, key):
        return self.entry[key]

    def size_text(self):
        if self.unit == "bytes":
            return bytes_text(self.size)
        return f"{self.unit} {self.size}" if self.unit.endswith("=") else f"{self.size:,} {self.unit}"

    def quartiles(self):
        return f"{self.ratio_q1:.2f} to {self.ratio_q3:.2f}"


def reasons():
    """Who wins which row and why: lines "row | winner | reason" of reasons.txt, where rows and winners are patterns."""
    lines = (HERE / "reasons.txt").read_text().splitlines()
    return [tuple(part.strip() for part in line.split("|")) for line in lines if line and not line.startswith("#")]


def reason_for(row, winner):
    for pattern, who, reason in reasons():
        names = (row.name, f"{row.name}/{row.size}")
        if any(fnmatch.fnmatchcase(name, pattern) for name in names) and fnmatch.fnmatchcase(winner, who):
            return reason
    return None


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


def times_text(row, other):
    if other not in row.times:
        return ""
    times = row.times[other]
    text = f"{times:.2f}" if times < 9.995 else f"{times:,.0f}"
    if other == "plain":
        text += f" ({1 / row.ratio_q3:.2f} to {1 / row.ratio_q1:.2f})" if times < 9.995 else ""
    return f"**{text}**" if other in row.winners else text


COLUMNS = {
    "row": lambda row: row.name,
    "work": lambda row: row.work,
    "beside": lambda row: row.beside,
    "size:": lambda row: row.size_text(),
    "library:": lambda row: time_text(row.library_s),
    "plain:": lambda row: time_text(row.plain_s),
    "the other way:": lambda row: times_text(row, "plain"),
    "ratio:": lambda row: f"{row.ratio:.3f}",
    "quartiles:": lambda row: row.quartiles(),
    "pairs:": lambda row: f"{row.pairs:.0f}",
    "target:": lambda row: f"{row.target:.2f}" if row.target else "",
    "verdict": lambda row: ("**miss**" if row.is_missed else "made") if row.target else "",
    "reason": lambda row: reason_for(row, "plain") or "NO REASON GIVEN",
    "heap of the library:": lambda row: bytes_text(row.library_heap),
    "heap of plain HDF5:": lambda row: bytes_text(row.plain_heap),
    "file of the library:": lambda row: bytes_text(row.library_file),
    "file of plain HDF5:": lambda row: bytes_text(row.plain_file),
    "ratio of files:": lambda row: f"{row.library_file / row.plain_file:.3f}",
    **{f"{name}:": lambda row, other=other: times_text(row, other) for other, name in OTHERS.items()},
}


def markdown(heads, lines):
    """A table of Markdown: what stands in columns whose head ends with ":" goes to the right."""
    cells = [[head.rstrip(":") for head in heads], ["---:" if head.endswith(":") else "---" for head in heads], *lines]
    return "\n".join("| " + " | ".join(line) + " |" for line in cells) + "\n"


def table(rows, *heads):
    return markdown(heads, [[COLUMNS[head](row) for head in heads] for row in rows]) if rows else ""


def grouped(rows, key):
    groups = {}
    for row in rows:
        groups.setdefault(key(row), []).append(row)
    return groups


def lost_lines(rows):
    """Why rows are lost: a line for each reason."""
    lost = {}
    for row in rows:
        for winner in row.winners:
            who = row.beside if row.beside else OTHERS[winner]
            works = lost.setdefault(reason_for(row, winner) or "NO REASON GIVEN", {})
            works.setdefault(row.work, {})[who] = None
    if lost:
        yield "Where another is faster:\n"
    for reason, works in lost.items():
        texts = [f"**{work}** ({', '.join(winners)})" for work, winners in works.items()]
        yield f"- {', '.join(texts)}: {reason}."


def family_section(family, rows):
    main = [row for row in rows if not row.beside]
    beside = [row for row in rows if row.beside]
    others = [other for other in OTHERS if any(other in row.times for row in main)]
    yield f"## {family.capitalize()}\n"
    if drawn_works(main):
        yield f"![{family.capitalize()}: time over size](images/{picture_name(family)})\n"
    yield table(main, "work", "size:", "library:", *(f"{OTHERS[other]}:" for other in others))
    yield table(beside, "work", "beside", "size:", "library:", "the other way:")
    yield from lost_lines(rows)
    yield ""


def drawn_works(rows):
    """The rows of each work that is measured at several sizes."""
    return [points for points in grouped(rows, lambda row: row.work).values() if len(points) > 2]


def largest(rows):
    """Each row at its largest size alone."""
    return [max(sizes, key=lambda row: row.size) for sizes in grouped(rows, lambda row: row.name).values()]


def memory_table(rows):
    shown = [row for row in rows if abs(row.library_heap - row.plain_heap) > max(row.plain_heap / 10, 65536)]
    return table(largest(shown), "row", "size:", "heap of the library:", "heap of plain HDF5:")


def file_table(rows):
    shown = [row for row in rows if row.plain_file > 65536 and abs(row.library_file / row.plain_file - 1) > 0.005]
    return table(shown, "row", "size:", "file of the library:", "file of plain HDF5:", "ratio of files:")


def exponent(points):
    """The slope of time over size, log-log, by least squares."""
    xs, ys = [math.log(x) for x, _ in points], [math.log(y) for _, y in points]
    x, y = sum(xs) / len(xs), sum(ys) / len(ys)
    return sum((a - x) * (b - y) for a, b in zip(xs, ys)) / sum((a - x) ** 2 for a in xs)


def growth_table(rows):
    series = {name: points for name, points in grouped(rows, lambda row: row.name).items() if len(points) > 2}
    return markdown(["row", "sizes", "library:", "plain HDF5:"],
                    [[name, f"{points[0].size_text()} to {points[-1].size_text()}",
                      *(f"{exponent([(p.size, p.entry[s]) for p in points]):.2f}" for s in ("library_s", "plain_s"))]
                     for name, points in series.items()])


def picture_name(family):
    return f"bench-{family.replace(' ', '-')}.png"


def save(figure, path):
    """A picture of few colours is a small one."""
    figure.savefig(path, dpi=80)
    plt.close(figure)
    Image.open(path).convert("RGB").quantize(64, method=Image.Quantize.MAXCOVERAGE).save(path, optimize=True)


def draw_overview(rows, folder):
    """All rows at their largest size, on one scale."""
    points = largest(rows)
    figure, axes = plt.subplots(figsize=(9, 0.19 * len(points) + 1.2))
    for other, label in OTHERS.items():
        shown = [(row.times[other], place) for place, row in enumerate(points) if other in row.times]
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
    save(figure, folder / "bench-overview.png")


def draw_family(family, rows, folder):
    works = drawn_works(rows)
    if not works:
        return
    columns = 3
    lines = math.ceil(len(works) / columns)
    figure, panels = plt.subplots(lines, columns, figsize=(9.6, 1.8 * lines + 0.4), squeeze=False)
    for panel in panels.flat[len(works):]:
        panel.set_axis_off()
    for panel, points in zip(panels.flat, works):
        for side, (color, style, marker) in STYLES.items():
            line = [(p.size, p.library_s * (1 if side == "library" else p.times[side])) for p in points
                    if side == "library" or side in p.times]
            if line:
                panel.loglog(*zip(*line), color=color, linestyle=style, marker=marker, markersize=3, linewidth=1,
                             label=OTHERS.get(side, side))
        panel.set_title(points[0].work, fontsize=7)
        panel.tick_params(labelsize=6)
        panel.xaxis.set_minor_formatter("")
        panel.yaxis.set_minor_formatter("")
        panel.set_xlabel(points[0].unit.rstrip(" ="), fontsize=6)
        panel.set_ylabel("seconds", fontsize=6)
    handles = {label: handle for panel in panels.flat for handle, label in zip(*panel.get_legend_handles_labels())}
    figure.legend(handles.values(), handles.keys(), loc="lower center", ncol=5, fontsize=7, frameon=False)
    figure.tight_layout(rect=(0, 0.3 / (1.8 * lines + 0.4), 1, 1))
    save(figure, folder / picture_name(family))


def processor():
    names = [line.partition(":")[2].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
             if line.startswith("model name")]
    return f"{len(names)} processors {names[0] if names else ''}"


def fill(template, folder, values):
    text = (HERE / f"{template}.in").read_text()
    for key, value in values.items():
        text = text.replace(f"@{key}@", value.rstrip())
    (folder / template).write_text(text)


def main():
    run = json.loads(Path(sys.argv[1]).read_text())
    folder = Path(sys.argv[2])
    entries = [entry for entry in run["benchmarks"] if not entry.get("error_occurred")]
    left_out = [entry["name"].split("/iterations")[0] for entry in run["benchmarks"] if entry.get("error_occurred")]
    everything = [Row(entry) for entry in entries]
    rows = [row for row in everything if row.is_compared]
    alone = [row for row in everything if not row.is_compared]
    main_rows = [row for row in rows if not row.beside]
    draw_overview(main_rows, folder / "images")
    families = grouped(rows, lambda row: row.family)
    for family in families:
        draw_family(family, [row for row in main_rows if row.family == family], folder / "images")
    with_target = [row for row in rows if row.target]
    missed = [row for row in rows if row.is_missed]
    machine = f"{processor()}, {run['context']['hdf5'].replace(' library version:', '')}, gcc {run['context']['compiler']}"
    fill("benchmarks.md", folder, {
        "MACHINE": machine, "MEMORY": memory_table(rows), "FILES": file_table(rows),
        "SECTIONS": "\n".join(line for family, its in families.items() for line in family_section(family, its))})
    fill("benchmarks-internal.md", folder, {
        "MACHINE": machine, "MADE": str(len(with_target) - len(missed)), "TARGETS": str(len(with_target)),
        "MISSED": table(missed, "row", "size:", "ratio:", "target:", "reason"),
        "HEAP": table([row for row in rows if row.library_heap > row.plain_heap + HEAP_ALLOWANCE], "row", "size:",
                      "heap of the library:", "heap of plain HDF5:"),
        "ROWS": table(rows, "row", "size:", "plain:", "library:", "ratio:", "quartiles:", "pairs:", "target:", "verdict"),
        "GROWTH": growth_table(rows), "LEFT_OUT": "\n".join(f"- {name}" for name in left_out) or "None.",
        "ALONE": table(alone, "row", "size:", "plain:")})
    print(f"{len(with_target) - len(missed)} of {len(with_target)} targets made")
    for row in missed:
        print(f"missed: {row.name}, {row.size_text()}: {row.ratio:.3f} ({row.quartiles()}), target {row.target:.2f}")
    for row in rows:
        for winner in row.winners:
            if not reason_for(row, winner):
                print(f"no reason given: {row.name} | {winner} | {row.size_text()}, {row.times[winner]:.2f}")


if __name__ == "__main__":
    main()
