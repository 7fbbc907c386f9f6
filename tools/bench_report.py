#!/usr/bin/env python3
"""Makes a table and a plot of the benchmark results.

    tools/bench_report.py RESULTS FOLDER

RESULTS is the file that VIDORRA_BENCHMARK_RESULTS named while the benchmarks ran; benchmarks/support/report.h describes
its lines. FOLDER gets benchmarks.md, with all figures, and benchmarks.svg, with a bar for each figure that has an aim.
"""

import collections
import pathlib
import sys
from xml.sax.saxutils import escape

FIELDS = "program group name value unit bound aim floor verdict load"
Figure = collections.namedtuple("Figure", FIELDS)

# What a verdict looks like in the plot, in the order of the legend.
COLOURS = {"reached": "#2e8b57", "missed": "#e0a030", "below the floor": "#c0392b", "": "#8a949c"}


def read(lines):
    """The facts about the run, without repetitions, and the figures."""
    about = {}
    figures = []
    for number, line in enumerate(lines, 1):
        kind, *fields = line.rstrip("\n").split("\t")
        if kind == "about" and len(fields) == 2:
            about[fields[0]] = fields[1]
        elif kind == "figure" and len(fields) == len(Figure._fields):
            figure = Figure(*fields)
            figures.append(figure._replace(**{
                name: float(getattr(figure, name)) if getattr(figure, name) else None
                for name in ("value", "aim", "floor", "load")
            }))
        else:
            raise ValueError(f"line {number} is not understood: {line!r}")
    return about, figures


def number(value):
    if value is None:
        return ""
    return f"{value:.3f}" if abs(value) < 10 else f"{value:.2f}" if abs(value) < 1000 else f"{value:.0f}"


def aim_text(figure):
    return f"{figure.bound} {figure.aim:g}" if figure.aim is not None else ""


def floor_text(figure):
    return f"{figure.floor:g}" if figure.floor is not None else ""


def with_unit(figure):
    return f"{number(figure.value)} {figure.unit}".rstrip()


def by_program(figures):
    programs = {}
    for figure in figures:
        programs.setdefault(figure.program, []).append(figure)
    return programs


def summary(figures):
    """One line with the counts, and one for each figure that is not where it should be, the worst ones first."""
    judged = [figure for figure in figures if figure.verdict]
    reached = sum(figure.verdict == "reached" for figure in judged)
    lines = [f"{reached} of {len(judged)} figures with an aim reach it."]
    for verdict in ("below the floor", "missed"):
        for figure in judged:
            if figure.verdict == verdict:
                floor = f", floor {floor_text(figure)}" if figure.floor is not None else ""
                lines.append(f"{verdict}: {figure.group}: {figure.name}: {with_unit(figure)} "
                             f"({aim_text(figure)}{floor})")
    return lines


# Figures that compare with a reference of ours and not with what others have written.
OWN_REFERENCES = ("times one ", "times the naive loop", "times plain")


def advantage(figure):
    """By how much the library is faster than a peer; None where a figure compares with no peer."""
    if figure.name.startswith(OWN_REFERENCES) or figure.unit or figure.value <= 0:
        return None
    if figure.name.startswith("times "):
        return figure.value
    return 1 / figure.value if " / " in figure.name and figure.aim is not None else None


def is_ahead(figure):
    """Whether it is faster than the peer, or costs no more on top of what it calls than it is allowed to."""
    return advantage(figure) >= 1 or (" / " in figure.name and figure.verdict == "reached")


def standings(figures):
    """One line for each program that compares with peers: whether the library is ahead of them."""
    lines = []
    for program, rows in by_program(figures).items():
        compared = [row for row in rows if advantage(row) is not None]
        behind = [row for row in compared if not is_ahead(row)]
        if compared:
            component = program.removesuffix("_benchmark")
            names = "; ".join(f"{row.group}: {row.name} {number(row.value)}" for row in behind)
            lines.append(f"{component}: ahead in all {len(compared)} comparisons with peers" if not behind else
                         f"{component}: ahead in {len(compared) - len(behind)} of {len(compared)} comparisons with "
                         f"peers, not in {names}")
    return lines


def cell(text):
    return text.replace("|", "\\|")


def markdown(about, figures):
    lines = ["# Benchmarks", ""]
    lines += [f"- {what}: {value}" for what, value in about.items()]
    first, *missing = summary(figures)
    lines += ["", first]
    if missing:
        lines += [""] + [f"- {line}" for line in missing]
    lines += [""] + [f"- {line}" for line in standings(figures)]
    lines += ["", "A floor is what a figure has to hold where it does not reach its aim. The load is the average number of",
              "running threads in the minute before, the benchmark's own one included: figures of compute-bound code",
              "are worth little where it is higher than the number of CPUs."]
    for program, rows in by_program(figures).items():
        lines += ["", f"## {program}", "", "| What | Figure | Measured | Aim | Floor | Verdict | Load |",
                  "|---|---|---:|---|---|---|---:|"]
        for row in rows:
            verdict = f"**{row.verdict}**" if row.verdict in ("missed", "below the floor") else row.verdict
            lines.append("| " + " | ".join((cell(row.group), cell(row.name), with_unit(row), aim_text(row),
                                            floor_text(row), verdict, f"{row.load:.1f}")) + " |")
    return "\n".join(lines) + "\n"


def relative(value, figure):
    """How far a value is on its way to the figure's aim: 1 reaches it, and more is better."""
    if figure.bound == "at least":
        return value / figure.aim
    # A difference of two measured times can come out as nothing, or less.
    return figure.aim / value if value > 0 else float("inf")


class Plot:
    """A column of labelled bars. All lengths are in pixels."""

    LEFT = 520
    UNIT = 240  # from no way to the aim, to the aim
    CUT = 2  # where longer bars end, in units
    ROW = 18
    WIDTH = LEFT + UNIT * CUT + 280

    def __init__(self):
        self.parts = []
        self.y = 0

    def text(self, x, text, anchor="start", style=""):
        self.parts.append(f'<text x="{x}" y="{self.y + 13}" text-anchor="{anchor}" {style}>{escape(text)}</text>')

    def line(self, text, style=""):
        self.text(10, text, style=style)
        self.y += self.ROW

    def rect(self, x, width, colour, inset=3):
        self.parts.append(f'<rect x="{x:.1f}" y="{self.y + inset}" width="{width:.1f}" '
                          f'height="{self.ROW - 2 * inset}" fill="{colour}"/>')

    def bar(self, figure):
        length = relative(figure.value, figure)
        self.text(self.LEFT - 8, f"{figure.group}: {figure.name}", "end")
        self.rect(self.LEFT, max(0, min(length, self.CUT)) * self.UNIT, COLOURS[figure.verdict])
        if figure.floor is not None:
            self.rect(self.LEFT + relative(figure.floor, figure) * self.UNIT - 1, 2, "#000000", 1)
        floor = f", floor {floor_text(figure)}" if figure.floor is not None else ""
        more = "» " if length > self.CUT else ""
        self.text(self.LEFT + self.UNIT * self.CUT + 8,
                  f"{more}{with_unit(figure)}  ({aim_text(figure)}{floor})")
        self.y += self.ROW

    def legend(self):
        x = self.LEFT
        for verdict, colour in COLOURS.items():
            if verdict:
                self.rect(x, 12, colour)
                self.text(x + 17, verdict)
                x += 110
        self.rect(x + 5, 2, "#000000", 1)
        self.text(x + 17, "floor")
        self.y += self.ROW

    def svg(self, grid_top):
        aim = self.LEFT + self.UNIT
        grid = (f'<line x1="{aim}" x2="{aim}" y1="{grid_top}" y2="{self.y}" stroke="#000000" '
                f'stroke-dasharray="4 3"/>'
                f'<line x1="{self.LEFT}" x2="{self.LEFT}" y1="{grid_top}" y2="{self.y}" stroke="#000000"/>')
        height = self.y + 10
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.WIDTH}" height="{height}" '
                f'viewBox="0 0 {self.WIDTH} {height}" font-family="sans-serif" font-size="11">\n'
                f'<rect width="{self.WIDTH}" height="{height}" fill="#ffffff"/>\n'
                + "\n".join(self.parts) + f"\n{grid}\n</svg>\n")


def svg(about, figures):
    plot = Plot()
    bold = 'font-weight="bold"'
    plot.line("Figures beside their aims: the dashed line is the aim, and longer is better", bold)
    for what, value in about.items():
        plot.line(f"{what}: {value}")
    plot.legend()
    grid_top = plot.y
    for program, rows in by_program(figure for figure in figures if figure.aim is not None).items():
        plot.line(program, bold)
        for row in rows:
            plot.bar(row)
    return plot.svg(grid_top)


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    with open(arguments[0], encoding="utf-8") as file:
        about, figures = read(file)
    folder = pathlib.Path(arguments[1])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "benchmarks.md").write_text(markdown(about, figures), encoding="utf-8")
    (folder / "benchmarks.svg").write_text(svg(about, figures), encoding="utf-8")
    print("\n".join(summary(figures) + standings(figures)))
    print(f"written: {folder / 'benchmarks.md'}, {folder / 'benchmarks.svg'}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
