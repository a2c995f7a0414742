"""A figure's medians as columns, one group per case, on a logarithmic scale."""

import math
from collections import namedtuple

LEFT, TOP, PLOT_HEIGHT, COLUMN_WIDTH, GROUP_GAP = 90, 64, 260, 16, 22
LEGEND_LINE, CHAR_WIDTH, TITLE_WIDTH = 18, 7.3, 8.6
FOOT = 66
KEY = "Columns: medians. Lines: from minimum to maximum. The scale is logarithmic."
COLOURS = ["#4477aa", "#66ccee", "#228833", "#ccbb44", "#ee6677", "#aa3377", "#bbbbbb", "#774422"]


# What a chart compares, and what its axes are, with units.
Axes = namedtuple("Axes", "title y x")


class Scale:
    """Maps values to heights, by whole decades."""

    def __init__(self, stats):
        self.low = math.floor(math.log10(min(stat.min or stat.median for stat in stats)))
        highest = math.ceil(math.log10(max(stat.max for stat in stats)))
        self.high = max(highest, self.low + 1)

    def y(self, value):
        share = (math.log10(max(value, 1e-9)) - self.low) / (self.high - self.low)
        return TOP + PLOT_HEIGHT * (1 - min(max(share, 0), 1))

    def grid(self, width):
        for decade in range(self.low, self.high + 1):
            y = self.y(10.0**decade)
            yield _line(LEFT, LEFT + width, y, y, "#ddd")
            yield _text(LEFT - 6, y + 4, f"{10.0**decade:,.10g}", " text-anchor='end'")


def _text(x, y, text, attributes=""):
    return f"<text x='{x:g}' y='{y:g}'{attributes}>{text}</text>\n"


def _line(x1, x2, y1, y2, colour):
    return f"<line x1='{x1:g}' x2='{x2:g}' y1='{y1:g}' y2='{y2:g}' stroke='{colour}'/>\n"


def _rect(x, y, width, height, colour):
    return f"<rect x='{x:g}' y='{y:g}' width='{width:g}' height='{height:g}' fill='{colour}'/>\n"


def _colour(variant):
    return COLOURS[variant % len(COLOURS)]


def _groups(samples, figure):
    """For each case: its name, and number of the variant with its figures for each column."""
    metric = figure.columns[0][0]
    for case in samples.cases(figure.name):
        stats = [samples.stat(figure.name, case, variant, metric)
                 for variant in samples.variants(figure.name)]
        columns = [(at, stat) for at, stat in enumerate(stats) if stat and stat.median > 0]
        if columns:
            yield case, columns


def _column(variant, stat, scale, x):
    """The median, with a line from minimum to maximum."""
    y = scale.y(stat.median)
    middle = x + COLUMN_WIDTH / 2
    return (_rect(x, y, COLUMN_WIDTH - 2, TOP + PLOT_HEIGHT - y, _colour(variant))
            + _line(middle, middle, scale.y(stat.min), scale.y(stat.max), "#333"))


def _group(case, columns, scale, x):
    """The drawing and its width."""
    columns_width = COLUMN_WIDTH * len(columns)
    width = max(columns_width, CHAR_WIDTH * len(case))
    first = x + (width - columns_width) / 2
    svg = "".join(_column(variant, stat, scale, first + at * COLUMN_WIDTH)
                  for at, (variant, stat) in enumerate(columns))
    label = _text(x + width / 2, TOP + PLOT_HEIGHT + 16, case, " text-anchor='middle'")
    return svg + label, width


def _legend(variants, x):
    for at, variant in enumerate(variants):
        y = TOP + at * LEGEND_LINE
        yield _rect(x, y, 12, 12, _colour(at)) + _text(x + 18, y + 11, variant)


def _legend_width(variants):
    return 40 + max(map(len, variants)) * CHAR_WIDTH


def _axes(axes, right):
    """Both axes' names, the title and how to read the columns."""
    bottom = TOP + PLOT_HEIGHT
    return (_text(16, 22, axes.title, " font-size='14' font-weight='bold'")
            + _text(16, 46, axes.y)
            + _text((LEFT + right) / 2, bottom + 36, axes.x, " text-anchor='middle'")
            + _text(16, bottom + FOOT - 10, KEY, " fill='#666'"))


def svg(samples, figure, axes):
    """Empty when nothing was measured."""
    groups = list(_groups(samples, figure))
    if not groups:
        return ""
    scale = Scale([stat for _, columns in groups for _, stat in columns])
    x = LEFT + GROUP_GAP / 2
    drawn = ""
    for case, columns in groups:
        group, width = _group(case, columns, scale, x)
        drawn += group
        x += width + GROUP_GAP
    variants = samples.variants(figure.name)
    width = max(x + _legend_width(variants), 32 + len(axes.title) * TITLE_WIDTH, 32 + len(KEY) * CHAR_WIDTH)
    height = TOP + PLOT_HEIGHT + FOOT
    return (f"<svg xmlns='http://www.w3.org/2000/svg' width='{width:g}' height='{height:g}' "
            f"viewBox='0 0 {width:g} {height:g}' role='img' font-family='Helvetica, Arial, sans-serif' "
            f"font-size='12'>\n<title>{axes.title}</title>\n"
            "<rect width='100%' height='100%' rx='6' fill='white'/>\n"
            + _axes(axes, x) + "".join(scale.grid(x - LEFT)) + drawn
            + "".join(_legend(variants, x + 10)) + "</svg>\n")
