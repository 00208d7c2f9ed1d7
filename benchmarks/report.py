"""Turns what the benchmarks measured into docs/performance.md with a bar chart for each workload.

Usage: report.py DIRECTORY [DOCS]; reads DIRECTORY/{measurements,figures}.csv and machine.txt, writes DOCS/performance.md
and DOCS/performance/. Only the standard library is needed."""

import csv
import html
import math
import pathlib
import shutil
import sys

INTRODUCTION = """\
# Performance

<!-- Written by scripts/bench.sh; edit benchmarks/report.py instead. -->

What counts here are the ratios: all figures of a table come from one run, in which the tools took turns in one thread
on one processor, and each is the median of its rounds. *Ratio* is a tool's time divided by clastool's: above 1,
clastool is faster. Absolute times are those of the machine named below.

Every workload first compares clastool's results with those of *naive*, the definitions written down plainly (patterns
and functions behind counted handles, a virtual call and the C library's `pow` for each distance, each factor computed
where it is needed), and the run fails if they differ. The other libraries do as much of the same work as they offer:
OpenCV and faiss compute with single precision, some deliver a label only, scikit-learn is called in a Python process of
its own. Where one has a way to take many patterns at a time, that is measured as well.
Everything is compiled for the baseline of x86-64; libraries choose wider instructions as they run.

`scripts/bench.sh` measures anew and rewrites this page; `scripts/bench.sh --quick` only shows that everything runs.
"""

WORKLOADS = {
    "KNN-A": "1,000,000 stored patterns of 16 measurements in 10 classes, k = 5",
    "KNN-B": "10,000 stored patterns of 8 measurements, k = 3",
    "KNN-C": "100,000 stored patterns of 64 measurements, k = 15",
    "KNN grid": "Sets from small to large, order 2, one query: clastool's time, and as multiples of it those of the others",
    "KNN orders": "Sets from small to large, k = 5: the time of one query of order 2, and as multiples of it other orders",
    "LATENCY": "384 patterns of 6 measurements in 4 classes, single runs: clastool's time that half of them, 99 % and "
               "99.9 % keep, and as multiples of it those of the others; the loop of arithmetic, which nothing but "
               "the machine delays, shows how much of the last two is the machine's",
    "KNN before AVX2": "KNN-A's search restricted to the instructions that every x86-64 processor has",
    "KNN with Cauchy tails": "300,000 stored patterns of 16 measurements without mean and variance, k = 5",
    "KNN with far queries": "300,000 stored patterns of 16 measurements, queries a million standard deviations away, k = 5",
    "KNN with ten distinct patterns": "300,000 stored patterns of 16 measurements, ten different ones, k = 5",
    "BAYES-A": "10 classes, 16 independent normal distributions each, trained with 1,000,000 patterns",
    "BAYES-B": "10 classes, one normal distribution over 16 measurements each, trained with 1,000,000 patterns",
    "BAYES-C": "20 classes, one normal distribution over 64 measurements each, trained with 200,000 patterns",
    "Kernels": "Each kernel by the best instructions of the processor; the plain function that it computes takes the "
               "given multiple of its time",
    "BAYES 6 invalid": "10 classes, one normal distribution over 6 measurements each, some of a pattern's invalid",
    "BAYES 16 invalid": "the same over 16 measurements",
    "BAYES 64 invalid": "the same over 64 measurements",
    "RULES": "50 rules of 12 trapezoids",
    "TREE": "a complete tree of depth 10",
    "RESULT": "1,000 categories with 1,000 overridden costs",
    "ASSESSMENT": "what tkAssessment keeps, decided again by other frequencies, costs and a refusal; and leave-one-out of "
                  "10,000 patterns in 10 classes, one normal distribution over 16 measurements each",
    "SAVE": "KNN-A's classifier into a stream in memory, and into a new file of the temporary directory",
    "LOAD": "KNN-A's classifier from a stream in memory, and from a file that the system has in its cache",
}

STYLE = """\
text { font: 13px system-ui, sans-serif; fill: #1f2328; }
.value { fill: #59636e; } .grid { stroke: #d1d9e0; } .axis { stroke: #59636e; }
.library { fill: #1a7f37; } .naive { fill: #8c959f; } .peer { fill: #0969da; } .limit { fill: #bf8700; }
@media (prefers-color-scheme: dark) {
  text { fill: #f0f6fc; } .value { fill: #9198a1; } .grid { stroke: #3d444d; } .axis { stroke: #9198a1; }
  .library { fill: #3fb950; } .naive { fill: #656c76; } .peer { fill: #4493f8; } .limit { fill: #d29922; }
}"""


def rows_of(path):
    with open(path, newline="") as file:
        return list(csv.DictReader(file))


def seconds_text(seconds):
    for unit, factor in (("s", 1.0), ("ms", 1e3), ("µs", 1e6)):
        if seconds * factor >= 1.0:
            return f"{seconds * factor:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def ratio_text(ratio):
    return f"{ratio:.0f}" if ratio >= 100.0 else f"{ratio:.3g}"


def chart(title, rows, library, decades):
    """Bars of the ratios on a logarithmic scale: from clastool to the right what is slower, to the left what is
    faster. All charts have the scale from 10^decades[0] to 10^decades[1]."""
    left, right, height, gap, top, width = 330, 60, 18, 8, 50, 800
    total = top + len(rows) * (height + gap)

    def position(ratio):
        part = (math.log10(ratio) - decades[0]) / (decades[1] - decades[0])
        return left + part * (width - left - right)

    lines = []
    for decade in range(decades[0], decades[1] + 1):
        x = position(10.0**decade)
        axis = "axis" if decade == 0 else "grid"
        lines.append(f'<line class="{axis}" x1="{x:.1f}" y1="{top - 6}" x2="{x:.1f}" y2="{total - 2}"/>')
        lines.append(f'<text class="value" x="{x:.1f}" y="{top - 11}" text-anchor="middle">{10.0**decade:g}</text>')
    for i, row in enumerate(rows):
        ratio = float(row["seconds"]) / library
        y = top + i * (height + gap)
        start, end = sorted((position(1.0), position(ratio)))
        if row["role"] == "library":
            start, end = start - 2.0, end + 2.0
        tool = html.escape(row["tool"])
        lines.append(f'<text x="{left - 12}" y="{y + 13}" text-anchor="end">{tool}</text>')
        lines.append(f'<rect class="{row["role"]}" x="{start:.1f}" y="{y}" width="{max(end - start, 1.0):.1f}" '
                     f'height="{height}"/>')
        lines.append(f'<text class="value" x="{end + 6:.1f}" y="{y + 13}">{ratio_text(ratio)}</text>')
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {total}" width="{width}" height="{total}" '
            f'role="img" aria-label="{html.escape(title)}">\n<style>{STYLE}</style>\n'
            f'<text x="0" y="16" font-weight="600">{html.escape(title)}: time as a multiple of clastool\'s</text>\n'
            + "\n".join(lines) + "\n</svg>\n")


def summary(groups):
    """The table of a workload of many small comparisons: a line for each, no chart."""
    names = list(dict.fromkeys(row["tool"] for rows in groups.values() for row in rows))
    table = ["| | " + " | ".join(names) + " |", "|---|" + "---:|" * len(names)]
    for operation, rows in groups.items():
        seconds = {row["tool"]: float(row["seconds"]) for row in rows}
        ratios = [ratio_text(seconds[name] / seconds[names[0]]) if name in seconds else "" for name in names[1:]]
        table.append(f"| {operation} | " + " | ".join([seconds_text(seconds[names[0]])] + ratios) + " |")
    return "\n".join(table) + "\n"


def main():
    source = pathlib.Path(sys.argv[1])
    docs = pathlib.Path(sys.argv[2] if len(sys.argv) > 2 else "docs")
    folder = docs / "performance"
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.svg"):
        old.unlink()

    groups = {}
    for row in rows_of(source / "measurements.csv"):
        groups.setdefault((row["workload"], row["operation"]), []).append(row)
    figures = {}
    for row in rows_of(source / "figures.csv"):
        figures.setdefault(row["workload"], {})[row["figure"]] = float(row["value"])

    summaries = {}
    for workload, operation in [key for key in groups if key[0] in ("KNN grid", "KNN orders", "LATENCY", "Kernels")]:
        summaries.setdefault(workload, {})[operation] = groups.pop((workload, operation))

    ratios = []
    for rows in groups.values():
        library = next(float(row["seconds"]) for row in rows if row["role"] == "library")
        ratios += [float(row["seconds"]) / library for row in rows]
    ratios = ratios or [1.0]
    decades = (math.floor(math.log10(min(ratios))), math.ceil(math.log10(max(ratios))))

    page = [INTRODUCTION, "## The machine\n", "```text\n" + (source / "machine.txt").read_text() + "```\n"]
    for workload, rows in summaries.items():
        page.append(f"## {workload}\n\n{WORKLOADS[workload]}.\n\n{summary(rows)}")
    last = None
    for (workload, operation), rows in groups.items():
        library = next(float(row["seconds"]) for row in rows if row["role"] == "library")
        rows = sorted(rows, key=lambda row: float(row["seconds"]))
        if workload != last:
            page.append(f"## {workload}\n\n{WORKLOADS[workload]}.\n")
            for figure, value in figures.get(workload, {}).items():
                page.append(f"{figure[0].upper()}{figure[1:]}: {value:.4g}.\n")
            last = workload
        name = "".join(c if c.isalnum() else "-" for c in f"{workload}-{operation}").lower() + ".svg"
        (folder / name).write_text(chart(f"{workload}, {operation}", rows, library, decades))
        page.append(f"![{workload}, {operation}](performance/{name})\n")
        table = [f"| {operation} | time | fastest to slowest round | ratio |", "|---|---:|---:|---:|"]
        for row in rows:
            seconds = float(row["seconds"])
            tool = f"**{row['tool']}**" if row["role"] == "library" else row["tool"]
            table.append(f"| {tool} | {seconds_text(seconds)} | {seconds_text(float(row['fastest']))} to "
                         f"{seconds_text(float(row['slowest']))} | {ratio_text(seconds / library)} |")
        page.append("\n".join(table) + "\n")
    (docs / "performance.md").write_text("\n".join(page))
    for name in ("measurements.csv", "figures.csv"):
        shutil.copyfile(source / name, folder / name)


if __name__ == "__main__":
    main()
