"""Sequence charts, made from texts.

    sequence.py [--check] <text>...

Each text x.txt becomes x.svg beside it.  A text has one thing per line; "|" begins a new line of a label:

    title <text>
    party <id> <label>           one who sends and receives, from left to right
    group <label>: <id> <id>     a frame over parties that stand side by side
    section <text>               a heading
    <id> -> <id>: <text>         a message
    <id> -x <id>: <text>         a message that is lost
    do <id>: <text>              what the application calls
    app <id>: <text>             what the library calls
    end <id>: <text>             something happens to the party
    pause <text>                 time goes by
    # <text>                     for who edits the text

Widths are estimated, for fonts as wide as the widest that are usual.
"""

import re
import sys
from dataclasses import dataclass, field
from html import escape
from pathlib import Path

CHAR_WIDTH, BOLD_WIDTH, TITLE_WIDTH = 7.3, 7.8, 9.6
LINE_HEIGHT, MARGIN = 15, 16
BOX_PAD, STEP_GAP, HEAD_GAP = 8, 12, 18
STYLES = {  # fill, border, text
    "party": ("#eef3fa", "#5b7aa6", "#1d2b3a"),
    "group": ("#f7f9fc", "#9db3d1", "#33475f"),
    "do": ("#e3f1e4", "#4f8a57", "#1f3a24"),
    "app": ("#fdf2dc", "#b58a2f", "#4a3710"),
    "end": ("#fbe3e4", "#b5474d", "#5a1e22"),
}
LEGEND = (("do", "your program calls the library"), ("app", "the library calls your program"))
LINE = re.compile(r"(?P<what>title|section|pause) (?P<text>.+)"
                  r"|(?P<head>party) (?P<id>\w+) (?P<label>.+)"
                  r"|(?P<group>group) (?P<name>[^:]+): (?P<ids>[\w ]+)"
                  r"|(?P<note>do|app|end) (?P<who>\w+): (?P<said>.+)"
                  r"|(?P<source>\w+) (?P<arrow>->|-x) (?P<to>\w+): (?P<message>.+)")


class Wrong(Exception):
    """A text that is no chart."""


@dataclass
class Step:
    """One line of a chart below its parties."""

    kind: str            # section, pause, do, app, end, -> or -x
    lines: list[str]
    parties: list[str]   # none, whom it happens to, or sender and receiver


@dataclass
class Chart:
    title: str = ""
    parties: dict[str, list[str]] = field(default_factory=dict)          # id: lines of the label
    groups: list[tuple[str, list[str]]] = field(default_factory=list)    # label, ids
    steps: list[Step] = field(default_factory=list)

    def known(self, name):
        if name not in self.parties:
            raise Wrong(f"there is no party {name}")
        return name


def _lines(text):
    return [line.strip() for line in text.split("|")]


def _add(chart, found):
    if found["what"] == "title":
        chart.title = found["text"]
    elif found["what"]:
        chart.steps.append(Step(found["what"], _lines(found["text"]), []))
    elif found["head"]:
        chart.parties[found["id"]] = _lines(found["label"])
    elif found["group"]:
        chart.groups.append((found["name"], [chart.known(name) for name in found["ids"].split()]))
    elif found["note"]:
        chart.steps.append(Step(found["note"], _lines(found["said"]), [chart.known(found["who"])]))
    else:
        ends = [chart.known(found["source"]), chart.known(found["to"])]
        chart.steps.append(Step(found["arrow"], _lines(found["message"]), ends))


def parse(text):
    chart = Chart()
    for number, line in enumerate(text.splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        found = LINE.fullmatch(line)
        if not found:
            raise Wrong(f"line {number} says nothing known: {line}")
        _add(chart, found)
    if not chart.title or not chart.steps:
        raise Wrong("a chart has a title and steps")
    return chart


# ---- places ----


def text_width(lines, char_width=CHAR_WIDTH):
    return max(map(len, lines)) * char_width


def box_width(lines):
    return text_width(lines) + 2 * BOX_PAD


def _boxes(chart):
    """(party, width) of every box that stands on a party's line."""
    yield from ((name, box_width(label)) for name, label in chart.parties.items())
    yield from ((step.parties[0], box_width(step.lines)) for step in chart.steps if len(step.parties) == 1)


def _group_distances(chart, order):
    """A label over one party alone, or over several, has to fit."""
    for label, ids in chart.groups:
        places = [order.index(name) for name in ids]
        yield min(places) - 1, max(places), box_width([label])


def _distances(chart):
    """(left, right, least distance) of places: boxes leave other lines alone, messages have room."""
    order = list(chart.parties)
    half = {name: max(width for who, width in _boxes(chart) if who == name) / 2 for name in order}
    heads = {name: box_width(label) / 2 for name, label in chart.parties.items()}
    for at, (left, right) in enumerate(zip(order, order[1:])):
        yield at, at + 1, max(half[left], half[right], heads[left] + heads[right]) + 2 * BOX_PAD
    for step in chart.steps:
        if len(step.parties) == 2:
            left, right = sorted(order.index(name) for name in step.parties)
            yield left, right, text_width(step.lines) + 4 * BOX_PAD
    yield from (distance for distance in _group_distances(chart, order) if distance[0] >= 0)


def places(chart):
    """The parties' x, and the width of the picture."""
    order = list(chart.parties)
    distances = list(_distances(chart))
    first = max(width for who, width in _boxes(chart) if who == order[0]) / 2
    last = max(width for who, width in _boxes(chart) if who == order[-1]) / 2
    xs = [MARGIN + first]
    for at in range(1, len(order)):
        xs.append(max(xs[left] + least for left, right, least in distances if right == at))
    return dict(zip(order, xs)), max(xs[-1] + last, MARGIN + _least_width(chart)) + MARGIN


def _least_width(chart):
    """The width of what begins at the left margin."""
    sections = [step.lines for step in chart.steps if step.kind == "section"]
    return max([text_width([chart.title], TITLE_WIDTH), sum(28 + text_width([text]) for _, text in LEGEND),
                *(text_width(lines, BOLD_WIDTH) for lines in sections)])


# ---- drawing ----


def _attributes(**attributes):
    return "".join(f" {name.replace('_', '-')}='{value:g}'" if isinstance(value, (int, float))
                   else f" {name.replace('_', '-')}='{value}'" for name, value in attributes.items())


def _element(name, **attributes):
    return f"<{name}{_attributes(**attributes)}/>\n"


def _text(x, y, text, **attributes):
    return f"<text{_attributes(x=x, y=y, **attributes)}>{escape(text, quote=False)}</text>\n"


def _label(x, y, lines, colour, **attributes):
    """Lines of text, the middle of the first one's top at (x, y)."""
    return "".join(_text(x, y + 11 + at * LINE_HEIGHT, line, text_anchor="middle", fill=colour, **attributes)
                   for at, line in enumerate(lines))


def _box(kind, x, y, lines, **attributes):
    fill, border, colour = STYLES[kind]
    width, height = box_width(lines), box_height(lines)
    return (_element("rect", x=x - width / 2, y=y, width=width, height=height, rx=4, fill=fill, stroke=border)
            + _label(x, y + 4, lines, colour, **attributes))


def box_height(lines):
    return len(lines) * LINE_HEIGHT + 7


def _arrow(x1, x2, y):
    """A message that arrives: its point ends at the receiver's line."""
    back = 8 if x2 < x1 else -8
    return (_element("line", x1=x1, x2=x2 + back / 2, y1=y, y2=y, stroke="#44546a", stroke_width=1.4)
            + f"<path d='M{x2:g} {y:g} l{back:g} -4 v8 z' fill='#44546a'/>\n")


def _lost(x1, x2, y):
    """A message that ends with a cross on the way."""
    end = x1 + (x2 - x1) * 0.8
    cross = f"<path d='M{end - 5:g} {y - 5:g} l10 10 m0 -10 l-10 10' stroke='#b5474d' stroke-width='2'/>\n"
    return _element("line", x1=x1, x2=end, y1=y, y2=y, stroke="#b5474d", stroke_dasharray="5 3") + cross


class Drawing:
    """What is drawn so far, and how far down."""

    def __init__(self, chart):
        self.chart = chart
        self.xs, self.width = places(chart)
        self.y = 0
        self.out = []

    def draw(self):
        self._title()
        self._heads()
        top = self.y
        for step in self.chart.steps:
            self._step(step)
        lines = [_element("line", x1=x, x2=x, y1=top, y2=self.y, stroke="#9aa7b8") for x in self.xs.values()]
        self._legend()
        return self._svg(lines + self.out)

    def _title(self):
        self.y = MARGIN
        self.head = _text(MARGIN, self.y + 14, self.chart.title, font_size=15, font_weight="bold", fill="#1d2b3a")
        self.y += 30

    def _heads(self):
        frame_top = self.y
        if self.chart.groups:
            self.y += LINE_HEIGHT + 6
        height = max(box_height(label) for label in self.chart.parties.values())
        self.head += "".join(self._group(label, ids, frame_top, height) for label, ids in self.chart.groups)
        self.head += "".join(_box("party", self.xs[name], self.y, label)
                             for name, label in self.chart.parties.items())
        self.y += height

    def _group(self, label, ids, top, height):
        fill, border, colour = STYLES["group"]
        left = min(self.xs[name] - box_width(self.chart.parties[name]) / 2 for name in ids) - 6
        right = max(self.xs[name] + box_width(self.chart.parties[name]) / 2 for name in ids) + 6
        middle, width = (left + right) / 2, max(right - left, box_width([label]))
        return (_element("rect", x=middle - width / 2, y=top, width=width, height=height + LINE_HEIGHT + 12,
                         rx=5, fill=fill, stroke=border)
                + _label(middle, top + 3, [label], colour))

    def _step(self, step):
        if step.kind == "section":
            self._section(step.lines)
        elif step.kind == "pause":
            self._pause(step.lines)
        elif len(step.parties) == 1:
            self.y += STEP_GAP
            self.out.append(_box(step.kind, self.xs[step.parties[0]], self.y, step.lines))
            self.y += box_height(step.lines)
        else:
            self._message(step)

    def _section(self, lines):
        self.y += HEAD_GAP
        height = box_height(lines)
        self.out.append(_element("rect", x=MARGIN / 2, y=self.y, width=self.width - MARGIN, height=height,
                                 fill="#e9edf2"))
        self.out.append(_text(MARGIN, self.y + 15, lines[0], font_weight="bold", fill="#33475f"))
        self.y += height

    def _pause(self, lines):
        self.y += STEP_GAP
        height = box_height(lines)
        for x in self.xs.values():
            self.out.append(_element("line", x1=x, x2=x, y1=self.y, y2=self.y + height, stroke="white",
                                     stroke_width=3, stroke_dasharray="3 4"))
        middle, width = sum((min(self.xs.values()), max(self.xs.values()))) / 2, box_width(lines)
        self.out.append(_element("rect", x=middle - width / 2, y=self.y, width=width, height=height, fill="white"))
        self.out.append(_label(middle, self.y + 4, lines, "#5c6b7d", font_style="italic"))
        self.y += height

    def _message(self, step):
        source, to = (self.xs[name] for name in step.parties)
        self.y += STEP_GAP
        width = text_width(step.lines)
        middle, height = (source + to) / 2, len(step.lines) * LINE_HEIGHT
        self.out.append(_element("rect", x=middle - width / 2, y=self.y, width=width, height=height, fill="white"))
        self.out.append(_label(middle, self.y, step.lines, "#1d2b3a"))
        self.y += height + (6 if step.kind == "-x" else 3)
        self.out.append((_lost if step.kind == "-x" else _arrow)(source, to, self.y))
        self.y += 4

    def _legend(self):
        self.y += HEAD_GAP
        x = MARGIN
        for kind, text in LEGEND:
            if any(step.kind == kind for step in self.chart.steps):
                fill, border, _ = STYLES[kind]
                self.out.append(_element("rect", x=x, y=self.y, width=14, height=12, rx=3, fill=fill, stroke=border))
                self.out.append(_text(x + 20, self.y + 10, text, fill="#5c6b7d"))
                x += 28 + text_width([text])
        self.y += 12 + MARGIN

    def _svg(self, parts):
        title = escape(self.chart.title, quote=False)
        return (f"<svg xmlns='http://www.w3.org/2000/svg' width='{self.width:g}' height='{self.y:g}' "
                f"viewBox='0 0 {self.width:g} {self.y:g}' role='img' "
                "font-family='Helvetica, Arial, sans-serif' font-size='12'>\n"
                f"<title>{title}</title>\n<rect width='100%' height='100%' rx='6' fill='white'/>\n"
                + self.head + "".join(parts) + "</svg>\n")


def svg(text):
    return Drawing(parse(text)).draw()


def publish(source, is_check):
    """What is wrong with the picture of a text; empty if nothing is."""
    try:
        drawn, picture = svg(source.read_text(encoding="utf-8")), source.with_suffix(".svg")
    except Wrong as wrong:
        return f"{source}: {wrong}"
    if not is_check:
        picture.write_text(drawn, encoding="utf-8")
    elif not picture.exists() or picture.read_text(encoding="utf-8") != drawn:
        return f"{picture} is not what {source.name} makes: run scripts/make-pictures"
    return ""


def main(arguments):
    is_check = arguments[:1] == ["--check"]
    wrong = [publish(Path(name), is_check) for name in arguments[is_check:]]
    print("\n".join(filter(None, wrong)), end="\n" if any(wrong) else "")
    return 1 if any(wrong) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
