"""Makes the table and the pictures of a run: report.py RESULTS DOCS."""
import json
import math
import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

FAMILIES = {
    "files_groups": "Files and groups",
    "small_arrays": "Small arrays: create, open, list",
    "whole_arrays": "Whole arrays and hyperslabs",
    "attributes": "Attributes",
    "extensible_arrays": "Extensible arrays",
    "tables": "Tables and selections",
    "types": "Type translation",
    "memory": "Memory",
}
STYLES = {"library": ("#1f5fa8", "-", "o"), "plain HDF5": ("#777777", "--", "s"), "h5py": ("#d97706", ":", "^"),
          "PyTables": ("#15803d", "-.", "v")}


def load(results):
    runs = {}
    for family in FAMILIES:
        if not (results / f"{family}.json").exists():
            continue
        rows = json.loads((results / f"{family}.json").read_text())["benchmarks"]
        for row in rows:
            row["name"] = row["name"].split("/iterations")[0].split("/manual_time")[0]
            row["work"], _, size = row["name"].rpartition("/")
            row["size"] = int(size) if size.isdigit() else None
        runs[family] = rows
    peers = results / "peers.json"
    return runs, json.loads(peers.read_text()) if peers.exists() else {}


def time_text(seconds):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def exponent(points):
    """The slope of time over size, log-log, by least squares."""
    xs, ys = [math.log(x) for x, _ in points], [math.log(y) for _, y in points]
    x, y = sum(xs) / len(xs), sum(ys) / len(ys)
    return sum((a - x) * (b - y) for a, b in zip(xs, ys)) / sum((a - x) ** 2 for a in xs)


def verdict(row):
    if not row["target"]:
        return ""
    return "pass" if round(row["ratio"], 2) <= row["target"] else "**miss**"


def peer_text(peers, row, peer):
    seconds = peers.get(row["name"], {}).get(peer)
    return "" if seconds is None else f"{seconds / row['library_s']:.3g}"


def comparison_lines(rows, peers):
    yield "| work | size | plain HDF5 | library | ratio | quartiles | target | | h5py | PyTables |"
    yield "|---|---:|---:|---:|---:|---:|---:|---|---:|---:|"
    for row in rows:
        if "ratio" not in row:
            continue
        target = f"{row['target']:.2f}" if row["target"] else ""
        yield (f"| {row['work']} | {row['size']:,} | {time_text(row['plain_s'])} | {time_text(row['library_s'])} "
               f"| {row['ratio']:.2f} | {row['ratio_q1']:.2f} to {row['ratio_q3']:.2f} | {target} | {verdict(row)} "
               f"| {peer_text(peers, row, 'h5py')} | {peer_text(peers, row, 'PyTables')} |")


def alone_lines(rows):
    alone = [row for row in rows if "alone_s" in row]
    if alone:
        yield ""
        yield "| plain HDF5 alone | size | time |"
        yield "|---|---:|---:|"
        for row in alone:
            yield f"| {row['work']} | {row['size']:,} | {time_text(row['alone_s'])} |"


def memory_lines(rows):
    yield "| one operation | peak of plain HDF5 | peak of the library | above | target | |"
    yield "|---|---:|---:|---:|---:|---|"
    for row in rows:
        over = row["peak_library"] - row["peak_plain"]
        word = "pass" if over <= row["peak_target"] else "**miss**"
        yield (f"| {row['name'].partition('/')[2]} | {row['peak_plain'] / 1024:,.0f} KiB "
               f"| {row['peak_library'] / 1024:,.0f} KiB | {over / 1024:,.0f} KiB | 1,024 KiB | {word} |")


def series(rows):
    by_work = {}
    for row in rows:
        if "ratio" in row:
            by_work.setdefault(row["work"], []).append(row)
    return by_work


def growth_lines(runs):
    yield "| work | sizes | library | plain HDF5 |"
    yield "|---|---|---:|---:|"
    for rows in runs.values():
        for work, points in series(rows).items():
            if len(points) > 2:
                library = exponent([(p["size"], p["library_s"]) for p in points])
                plain = exponent([(p["size"], p["plain_s"]) for p in points])
                yield f"| {work} | {points[0]['size']:,} to {points[-1]['size']:,} | {library:.2f} | {plain:.2f} |"


def draw_lines(axes, points, peers):
    lines = {"library": [(p["size"], p["library_s"]) for p in points],
             "plain HDF5": [(p["size"], p["plain_s"]) for p in points]}
    for peer in ("h5py", "PyTables"):
        lines[peer] = [(p["size"], peers[p["name"]][peer]) for p in points if peer in peers.get(p["name"], {})]
    for name, line in lines.items():
        if line:
            color, style, marker = STYLES[name]
            axes.loglog(*zip(*line), color=color, linestyle=style, marker=marker, markersize=3, linewidth=1, label=name)


def grid(count):
    columns = min(count, 4)
    lines = math.ceil(count / columns)
    figure, axes = plt.subplots(lines, columns, figsize=(2.6 * columns, 2.2 * lines), squeeze=False)
    for panel in axes.flat[count:]:
        panel.set_axis_off()
    return figure, axes.flat


def finish(figure, title, handles, labels, path):
    figure.suptitle(title, fontsize=10)
    if handles:
        figure.legend(handles, labels, loc="lower center", ncol=4, fontsize=7, frameon=False)
    figure.tight_layout(rect=(0, 0.06, 1, 0.97))
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)


def draw_family(family, rows, peers, folder):
    works = series(rows)
    figure, panels = grid(len(works))
    legend = {}
    for panel, (work, points) in zip(panels, works.items()):
        draw_lines(panel, points, peers)
        panel.set_title(work, fontsize=7)
        panel.tick_params(labelsize=6)
        panel.set_ylabel("seconds", fontsize=6)
        legend.update(dict(zip(*reversed(panel.get_legend_handles_labels()))))
    finish(figure, f"{FAMILIES[family]}: time over size", list(legend.values()), list(legend), folder / f"bench-{family}.svg")


def draw_memory(rows, folder):
    figure, axes = plt.subplots(figsize=(7, 0.32 * len(rows) + 1.2))
    names = [row["name"].partition("/")[2] for row in rows]
    places = range(len(rows))
    for shift, (word, key) in zip((-0.2, 0.2), (("library", "peak_library"), ("plain HDF5", "peak_plain"))):
        axes.barh([p + shift for p in places], [row[key] / 1024 for row in rows], 0.4, color=STYLES[word][0], label=word)
    axes.set_yticks(list(places), names, fontsize=7)
    axes.invert_yaxis()
    axes.set_xscale("log")
    axes.set_xlabel("peak of the heap during the operation, KiB", fontsize=7)
    axes.tick_params(labelsize=7)
    finish(figure, "Memory of one operation", *axes.get_legend_handles_labels(), folder / "bench-memory.svg")


def main():
    results, docs = Path(sys.argv[1]), Path(sys.argv[2])
    plt.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "tarnwickhdf", "font.family": "sans-serif"})
    runs, peers = load(results)
    template = (Path(__file__).parent / "benchmarks.md.in").read_text()
    sections = []
    for family, rows in runs.items():
        title = FAMILIES[family]
        lines = [*(memory_lines(rows) if family == "memory" else comparison_lines(rows, peers))]
        print(*lines, sep="\n")
        sections.append("\n".join([f"## {title}", "", f"![{title}](images/bench-{family}.svg)", "", *lines,
                                   *alone_lines(rows)]))
        if family == "memory":
            draw_memory(rows, docs / "images")
        else:
            draw_family(family, rows, peers, docs / "images")
    compared = [row for rows in runs.values() for row in rows if row.get("target")]
    missed = [row for row in compared if verdict(row) != "pass"]
    text = template.replace("@SECTIONS@", "\n\n".join(sections)).replace("@GROWTH@", "\n".join(growth_lines(runs)))
    text = text.replace("@PASSED@", str(len(compared) - len(missed))).replace("@COMPARED@", str(len(compared)))
    (docs / "benchmarks.md").write_text(text)
    print(*growth_lines(runs), sep="\n")
    print(f"{len(compared) - len(missed)} of {len(compared)} targets made")
    for row in missed:
        print(f"missed: {row['name']} {row['ratio']:.2f} (target {row['target']})")


if __name__ == "__main__":
    main()
