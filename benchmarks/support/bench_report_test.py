#!/usr/bin/env python3
"""Tests of tools/bench_report.py, and of what the benchmark programs write for it."""

import importlib.util
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
# A program that is quick, from the command line.
PROGRAM = None


def load_module():
    spec = importlib.util.spec_from_file_location("bench_report", ROOT / "tools" / "bench_report.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


bench_report = load_module()

LINES = """\
about\tprocessor\tA <fast> one
about\tprocessor\tA <fast> one
figure\tone_benchmark\tNV12, hot\tof its limit\t0.7\t\tat least\t0.95\t0.85\tbelow the floor\t1.5
figure\tone_benchmark\tNV12, hot\ttimes peer\t3.9\t\tat least\t3.3\t\treached\t1.5
figure\tone_benchmark\tNV12, hot\ta picture\t1234.5\tus\t\t\t\t\t1.5
figure\ttwo_benchmark\tlogo\tcompose\t50\tus\tat most\t25\t\tmissed\t2
figure\ttwo_benchmark\tlogo\tabove nothing\t-0.1\tus\tat most\t2\t\treached\t2
""".splitlines(keepends=True)


class BenchReport(unittest.TestCase):
    def setUp(self):
        self.about, self.figures = bench_report.read(LINES)

    def test_facts_are_told_once(self):
        self.assertEqual(bench_report.markdown(self.about, self.figures).count("A <fast> one"), 1)

    def test_every_figure_has_a_row_with_its_aim_floor_and_verdict(self):
        text = bench_report.markdown(self.about, self.figures)
        self.assertIn("| NV12, hot | of its limit | 0.700 | at least 0.95 | 0.85 | **below the floor** | 1.5 |", text)
        self.assertIn("| NV12, hot | times peer | 3.900 | at least 3.3 |  | reached | 1.5 |", text)
        self.assertIn("| NV12, hot | a picture | 1234 us |  |  |  | 1.5 |", text)
        self.assertIn("| logo | compose | 50.00 us | at most 25 |  | **missed** | 2.0 |", text)

    def test_the_summary_counts_aims_and_names_what_misses_them(self):
        self.assertEqual(bench_report.summary(self.figures), [
            "2 of 4 figures with an aim reach it.",
            "below the floor: NV12, hot: of its limit: 0.700 (at least 0.95, floor 0.85)",
            "missed: logo: compose: 50.00 us (at most 25)",
        ])

    def test_one_line_a_program_tells_whether_the_library_is_ahead_of_its_peers(self):
        lines = [
            "figure\tone_benchmark\tNV12\ttimes peer\t3.9\t\tat least\t3.3\t\treached\t1\n",
            "figure\tone_benchmark\tNV12\ttimes other\t0.9\t\tat least\t1\t\tmissed\t1\n",
            "figure\tone_benchmark\tNV12\ttimes the naive loop\t0.5\t\tat least\t5\t\tmissed\t1\n",
            "figure\tone_benchmark\tNV12\tof its limit\t0.5\t\tat least\t1\t\tmissed\t1\n",
            "figure\ttwo_benchmark\tlogo\tours / theirs, CPU\t1.01\t\tat most\t1.02\t\treached\t1\n",
            "figure\ttwo_benchmark\tlogo\tours / others, CPU\t0.5\t\tat most\t0.4\t\tmissed\t1\n",
            "figure\tthree_benchmark\tlogo\ta picture\t1.01\tus\t\t\t\t\t1\n",
            "figure\tfour_benchmark\tlogo\tours / theirs, CPU\t1.1\t\tat most\t1.05\t\tmissed\t1\n",
        ]
        self.assertEqual(bench_report.standings(bench_report.read(lines)[1]), [
            "one: ahead in 1 of 2 comparisons with peers, not in NV12: times other 0.900",
            "two: ahead in all 2 comparisons with peers",
            "four: ahead in 0 of 1 comparisons with peers, not in logo: ours / theirs, CPU 1.100",
        ])

    def test_a_bar_is_as_long_as_the_way_to_the_aim_whichever_way_that_goes(self):
        low, times, _, double, nothing = self.figures
        self.assertAlmostEqual(bench_report.relative(low.value, low), 0.7 / 0.95)
        self.assertAlmostEqual(bench_report.relative(times.value, times), 3.9 / 3.3)
        self.assertAlmostEqual(bench_report.relative(double.value, double), 0.5)
        self.assertEqual(bench_report.relative(nothing.value, nothing), float("inf"))

    def test_the_plot_has_a_bar_for_each_aim_and_a_mark_for_each_floor(self):
        root = xml.etree.ElementTree.fromstring(bench_report.svg(self.about, self.figures))
        rects = [child.attrib for child in root if child.tag.endswith("rect")]
        by_colour = {colour: [rect for rect in rects if rect["fill"] == colour] for colour in
                     (*bench_report.COLOURS.values(), "#000000")}
        # One of each stands in the legend.
        self.assertEqual([len(by_colour[bench_report.COLOURS[verdict]]) for verdict in
                          ("reached", "missed", "below the floor")], [3, 2, 2])
        self.assertEqual(len(by_colour["#000000"]), 2)
        plot = bench_report.Plot
        self.assertAlmostEqual(float(by_colour[bench_report.COLOURS["missed"]][1]["width"]), plot.UNIT / 2)
        # Behind the cut there is nothing.
        self.assertEqual(max(float(rect["width"]) for rect in by_colour[bench_report.COLOURS["reached"]]),
                         plot.UNIT * plot.CUT)

    def test_a_line_of_another_kind_is_refused(self):
        with self.assertRaisesRegex(ValueError, "line 1 is not understood"):
            bench_report.read(["figure\ttoo\tfew\n"])

    def test_programs_write_lines_that_are_understood(self):
        with tempfile.TemporaryDirectory() as folder:
            results = pathlib.Path(folder) / "results.tsv"
            environment = {**os.environ, "VIDORRA_BENCHMARK_RESULTS": str(results)}
            for _ in range(2):
                subprocess.run([PROGRAM, "--short"], check=True, stdout=subprocess.DEVNULL, env=environment)
            about, figures = bench_report.read(results.read_text().splitlines())
            self.assertLessEqual({"processor", "caches", "compiler", "FFmpeg", "short run"}, about.keys())
            self.assertEqual({figure.program for figure in figures}, {pathlib.Path(PROGRAM).name})
            # Both runs are there, and a short one judges nothing.
            self.assertEqual(len(figures), 2 * len({figure.name for figure in figures}))
            self.assertEqual({figure.verdict for figure in figures}, {""})


if __name__ == "__main__":
    PROGRAM = sys.argv.pop()
    unittest.main()
