"""The figures of scripts/bench as tables, JSON and pictures."""

import json
import os

import drawn
import page
from figures import BARS, FIGURES
from samples import Samples


def _number(value):
    """About three digits, and commas in large numbers."""
    return f"{value:,.{2 if value < 10 else 1 if value < 100 else 0}f}"


def _cell(stat):
    if stat is None:
        return ""
    if stat.min == stat.max:
        return _number(stat.median)
    return f"{_number(stat.median)} ({_number(stat.min)} to {_number(stat.max)})"


def figure_table(samples, figure):
    """Empty when the figure was not measured."""
    rows = []
    for case in samples.cases(figure.name):
        for variant in samples.variants(figure.name):
            cells = [_cell(samples.stat(figure.name, case, variant, metric))
                     for metric, _ in figure.columns]
            if any(cells):
                rows.append([case, variant, *cells])
    head = [figure.case_head, "", *(text for _, text in figure.columns)]
    return page.table([head, *rows]) if rows else ""


def judged(samples):
    """The measured bars, each with its ratio and whether it is met."""
    for bar in BARS:
        ratio = samples.ratio(bar.over, bar.under)
        if ratio is not None:
            met = ratio.median >= bar.limit if bar.is_least else ratio.median <= bar.limit
            yield bar, ratio, met


def bar_table(samples):
    rows = [[bar.text, f"at {'least' if bar.is_least else 'most'} {bar.limit:.2f}", _cell(ratio),
             "met" if met else "MISSED"] for bar, ratio, met in judged(samples)]
    head = ["Ratio, median over pairs of runs", "Bar", "Measured", ""]
    return page.table([head, *rows]) if rows else ""


def _series(samples, figure):
    for case in samples.cases(figure.name):
        for variant in samples.variants(figure.name):
            for metric, _ in figure.columns:
                stat = samples.stat(figure.name, case, variant, metric)
                if stat is not None:
                    yield {"case": case, "variant": variant, "metric": metric,
                           "value": stat._asdict()}


def results(samples):
    """All of it for programs that compare runs."""
    found = {figure.name: list(_series(samples, figure)) for figure in FIGURES}
    found["bars"] = [{"bar": bar.text, "least" if bar.is_least else "most": bar.limit, "met": met,
                      "ratio": ratio._asdict()} for bar, ratio, met in judged(samples)]
    return found


def _write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def show(samples_path, folder):
    """Prints the tables, writes results.json, and returns the samples."""
    with open(samples_path, encoding="utf-8") as file:
        samples = Samples(file)
    titled = [(figure.title, figure_table(samples, figure)) for figure in FIGURES]
    for title, text in [*titled, ("Bars", bar_table(samples))]:
        if text:
            print(f"\n{title}\n{text}", end="")
    _write(os.path.join(folder, "results.json"), json.dumps(results(samples), indent=1) + "\n")
    return samples


def publish(samples_path, folder, document, pictures):
    """Writes what was measured into the document, with the day, and leaves its other blocks."""
    samples = show(samples_path, folder)
    tables = {figure.name: figure_table(samples, figure) for figure in FIGURES}
    tables["bars"] = bar_table(samples)
    measured = {name: text for name, text in tables.items() if text}
    page.put(document, {name: page.measured_today() + text for name, text in measured.items()})
    drawn.draw(document, pictures)
