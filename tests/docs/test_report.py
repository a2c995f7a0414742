"""The tables of docs/reports are what was measured."""

import json
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
REPORT = TOP / "scripts/lib/report"
sys.path[:0] = [str(REPORT), str(TOP / "tests/interop/peers")]
import bench      # noqa: E402
import chart      # noqa: E402
import drawn      # noqa: E402
import figures    # noqa: E402
import interop    # noqa: E402
import outcome    # noqa: E402
import page       # noqa: E402
from samples import Samples, Stat  # noqa: E402

AXES = chart.Axes("a title", "time, us", "URIs")
URIS = next(figure for figure in figures.FIGURES if figure.name == "uris")


def lines(*values):
    """Of the figure uris: (case, variant, value) of its first metric."""
    return [f"uris\t{case}\t{variant}\tcpu_us\t{value}\n" for case, variant, value in values]


def run_report(*arguments):
    return subprocess.run([sys.executable, "-B", REPORT, *arguments], check=False,
                          capture_output=True, text=True)


class SamplesOf(unittest.TestCase):
    def test_median_of_runs_with_their_ends(self):
        samples = Samples(lines(("10", "library", 3), ("10", "library", 1), ("10", "library", 2),
                                ("10", "library", 9)))
        self.assertEqual(samples.stat("uris", "10", "library", "cpu_us"), Stat(2.5, 1, 9, 4))
        self.assertIsNone(samples.stat("uris", "100", "library", "cpu_us"))

    def test_ratio_is_over_pairs_of_runs(self):
        samples = Samples(lines(("a", "x", 2), ("b", "x", 1), ("a", "x", 30), ("b", "x", 10),
                                ("a", "x", 4), ("b", "x", 1)))
        over, under = ("uris", "a", "x", "cpu_us"), ("uris", "b", "x", "cpu_us")
        self.assertEqual(samples.ratio(over, under), Stat(3, 2, 4, 3))

    def test_order_is_that_of_the_runs(self):
        samples = Samples(lines(("10", "z", 1), ("100", "a", 1), ("10", "a", 1)))
        self.assertEqual(samples.cases("uris"), ["10", "100"])
        self.assertEqual(samples.variants("uris"), ["z", "a"])


class Bench(unittest.TestCase):
    def test_table_has_a_row_per_measured_variant(self):
        samples = Samples(lines(("10", "library", 1234), ("10", "library", 12.34),
                                ("100", "libcoap", 5)))
        self.assertEqual(bench.figure_table(samples, URIS), (
            "| URIs |         | CPU us each         | per second |\n"
            "|------|---------|---------------------|------------|\n"
            "| 10   | library | 623 (12.3 to 1,234) |            |\n"
            "| 100  | libcoap | 5.00                |            |\n"))

    def test_bar_is_met_or_missed(self):
        cheap = Samples(lines(("10", "library", 1), ("100000", "library", 1.9)))
        dear = Samples(lines(("10", "library", 1), ("100000", "library", 2.1)))
        self.assertIn("| at most 2.00 | 1.90     | met ", bench.bar_table(cheap))
        self.assertIn("| at most 2.00 | 2.10     | MISSED |", bench.bar_table(dear))

    def test_publish_leaves_what_was_not_measured(self):
        names = [figure.name for figure in figures.FIGURES] + ["bars"]
        with tempfile.TemporaryDirectory() as folder:
            samples, document = Path(folder, "samples.tsv"), Path(folder, "page.md")
            samples.write_text("".join(lines(("10", "library", 7))), encoding="utf-8")
            blocks = "".join(f"<!-- {name}: begin -->\nold {name}\n<!-- {name}: end -->\n" for name in names)
            document.write_text("![a](bench/uris.svg)\n" + blocks, encoding="utf-8")
            done = run_report("bench", samples, folder, document, folder)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            text = document.read_text(encoding="utf-8")
            self.assertRegex(text, r"Measured on \d{4}-\d\d-\d\d\.\n\n\| URIs \|")
            self.assertNotIn("old uris", text)
            self.assertIn("old sync\n", text)
            self.assertEqual(sorted(os.listdir(folder)),
                             ["page.md", "results.json", "samples.tsv", "uris.svg"])
            found = json.loads(Path(folder, "results.json").read_text(encoding="utf-8"))
            self.assertEqual(found["uris"][0]["value"],
                             {"median": 7, "min": 7, "max": 7, "runs": 1})


class Chart(unittest.TestCase):
    def test_heights_are_logarithmic(self):
        scale = chart.Scale([Stat(10, 1, 100, 3)])
        self.assertEqual([scale.y(1), scale.y(10), scale.y(100)], [chart.TOP + 260, chart.TOP + 130, chart.TOP])

    def test_a_column_per_variant(self):
        svg = chart.svg(Samples(lines(("10", "a", 1), ("10", "b", 2), ("100", "a", 3))), URIS, AXES)
        self.assertEqual(svg.count("width='14'"), 3)

    def test_axes_are_named(self):
        svg = chart.svg(Samples(lines(("10", "a", 1))), URIS, AXES)
        for name in AXES:
            self.assertIn(f">{name}</text>", svg)

    def test_nothing_measured_is_no_picture(self):
        self.assertEqual(chart.svg(Samples([]), URIS, AXES), "")


class Drawn(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.document = Path(self.folder.name, "page.md")

    def write(self, cell):
        self.document.write_text("![a](bench/uris.svg)\n<!-- uris: begin -->\nMeasured.\n\n"
                                 f"| URIs | | CPU |\n|---|---|---|\n| 10 | library | {cell} |\n"
                                 "<!-- uris: end -->\n| 11 | other | 3 |\n", encoding="utf-8")

    def run_report(self, command):
        return run_report(command, self.document, self.folder.name)

    def test_table_is_read_as_it_was_measured(self):
        self.write("1,234 (12.3 to 5,000)")
        table = drawn.Table(self.document.read_text(encoding="utf-8"), URIS)
        self.assertEqual(table.stat("uris", "10", "library", "cpu_us"), Stat(1234, 12.3, 5000, 0))
        self.assertEqual((table.cases("uris"), table.variants("uris")), (["10"], ["library"]))

    def test_check_tells_of_a_picture_that_is_not_its_table(self):
        self.write("5.00")
        self.assertEqual(self.run_report("check").returncode, 1)
        self.assertEqual(self.run_report("draw").returncode, 0)
        self.assertEqual(self.run_report("check").returncode, 0)
        self.write("6.00")
        said = self.run_report("check")
        self.assertEqual(said.returncode, 1)
        self.assertIn("uris.svg", said.stderr)

    def test_each_figure_has_axes_with_units(self):
        self.assertEqual(set(drawn.AXES), {figure.name for figure in figures.FIGURES})
        for axes in drawn.AXES.values():
            self.assertRegex(axes.y, r"us|ms|per second|bytes")


class Page(unittest.TestCase):
    TEXT = "a\n<!-- x: begin -->\nold\n<!-- x: end -->\nb\n"

    def test_replace_keeps_the_rest(self):
        self.assertEqual(page.replace(self.TEXT, "x", "new\n"), self.TEXT.replace("old", "new"))

    def test_lost_block_is_an_error(self):
        for text in ("", "<!-- x: begin -->\n", "<!-- x: end -->\n<!-- x: begin -->\n"):
            self.assertRaises(page.NoBlock, page.replace, text, "x", "new\n")

    def test_put_with_a_lost_block_leaves_the_document(self):
        with tempfile.TemporaryDirectory() as folder:
            document = Path(folder, "page.md")
            document.write_text(self.TEXT, encoding="utf-8")
            done = run_report("put", document, "y", document)
            self.assertEqual(done.returncode, 1)
            self.assertIn("no block y", done.stderr)
            self.assertEqual(document.read_text(encoding="utf-8"), self.TEXT)


class Documents(unittest.TestCase):
    """The documents in the tree have the blocks that their scripts write."""

    def test_benchmarks(self):
        text = (TOP / "docs/reports/benchmarks.md").read_text(encoding="utf-8")
        for figure in figures.FIGURES:
            self.assertIn("|", page.replace(text, figure.name, ""))

    def test_interop_has_the_cases_and_remarks_of_the_tree(self):
        text = (TOP / "docs/reports/interop.md").read_text(encoding="utf-8")
        self.assertEqual(page.replace(text, "notes", interop.notes()), text)
        cases = outcome.read_cases()
        for case in sum((cases[name] for name in interop.TALKS), []):
            self.assertIn(f"\n| {case['id']} | {case['does']} | ", text)

    def test_interop_is_published_as_expected(self):
        with tempfile.TemporaryDirectory() as folder:
            Path(folder, "versions").write_text("peer 1\n", encoding="utf-8")
            seen = [f"{case['id']}\t{case['expect']}\n" for case in outcome.read_cases()["client"]]
            Path(folder, "aiocoap.client").write_text("".join(seen[1:]), encoding="utf-8")
            document = Path(folder, "page.md")
            document.write_text((TOP / "docs/reports/interop.md").read_text(encoding="utf-8"),
                                encoding="utf-8")
            done = run_report("interop", folder, document)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            text = document.read_text(encoding="utf-8")
            self.assertRegex(text, r"Measured on \d{4}-\d\d-\d\d\.\n\n- peer 1\n")
            self.assertIn("| GET CON | GET, CON | `205 'hello'` | not run | not run |", text)
            self.assertIn("| GET NON | GET, NON | `205 'hello'` | pass | not run |", text)


if __name__ == "__main__":
    unittest.main()
