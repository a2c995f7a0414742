"""What the charts of docs/reports/benchmarks.md say, and the charts, made from the tables of that page.

A chart is what its table says, so it can be drawn and checked without measuring again.
"""

import os
import re

import chart
import page
from figures import FIGURES
from samples import Stat

CELL = re.compile(r"([\d,.]+)(?: \(([\d,.]+) to ([\d,.]+)\))?")
LESS, MORE = "(less is better)", "(more is better)"

# By figure: what is compared, and the axes with their units.
AXES = {
    "sync": chart.Axes("Synchronous POSTs: this library, libcoap alone and other CoAP servers",
                       f"POSTs per second of processor time {MORE}", "client ports, one POST under way each"),
    "later": chart.Axes("POSTs answered by messages of their own: this library and libcoap alone",
                        f"POSTs per second of processor time {MORE}", "client ports, one POST under way each"),
    "exchange": chart.Axes("A client's calls: COAP_RpcCall and libcoap alone",
                           f"processor time of a call, us {LESS}", "calls under way"),
    "logging": chart.Axes("Synchronous POSTs of this library, by what is logged",
                          f"POSTs per second of processor time {MORE}", "bytes of an answer"),
    "calls": chart.Axes("Asynchronous calls of the base interface: this library and libcoap alone",
                        f"processor time of a call, us {LESS}", "calls under way, or peers"),
    "observe": chart.Axes("From the first of N updates to the last tuple: this library and libcoap alone",
                          f"time, ms {LESS}", "tuples that change, and their payload format"),
    "resync": chart.Axes("Answer to an old check code: this library and libcoap alone",
                         f"time to the whole table, us {LESS}", "tuples of the table"),
    "observers": chart.Axes("A change for N observers: this library and libcoap alone",
                            f"processor time of a notification, us {LESS}", "observers"),
    "state": chart.Axes("Changes of a table: versions, the base interface, other CoAP servers and brokers",
                        f"time to the last row at the last observer, ms {LESS}", "rows that change"),
    "cpp": chart.Axes("Requests and calls through the C interface and through C++",
                      f"processor time of a request, us {LESS}", "what is asked"),
    "mirror": chart.Axes("A mirror's full sync, by the questions in flight",
                         f"time, ms {LESS}", "tuples, and how far away the server is"),
    "uris": chart.Axes("Synchronous POSTs, 16 client ports: this library and libcoap alone",
                       f"processor time of a POST, us {LESS}", "registered URIs"),
    "queue": chart.Axes("N changes: queue them, build their payload, or make the document with Jansson",
                        f"processor time of all N, us {LESS}", "tuples that change"),
    "memory": chart.Axes("Memory of one more item, libcoap's included",
                         f"bytes of heap {LESS}", "items that exist already"),
}


def _number(text):
    return float(text.replace(",", ""))


def _stat(cell):
    found = CELL.fullmatch(cell)
    if not found:
        return None
    median, low, high = (_number(part or found[1]) for part in found.groups())
    return Stat(median, low, high, 0)


class Table:
    """The first column of a figure's table, as samples have it."""

    def __init__(self, text, figure):
        _, _, rest = text.partition(f"<!-- {figure.name}: begin -->\n")
        rows = [[cell.strip() for cell in line.strip("|").split("|")]
                for line in rest.partition("<!-- ")[0].splitlines() if line.startswith("|")]
        self._stats = {(row[0], row[1]): _stat(row[2]) for row in rows[2:]}

    def stat(self, _, case, variant, __):
        return self._stats.get((case, variant))

    def cases(self, _):
        return list(dict.fromkeys(case for case, _ in self._stats))

    def variants(self, _):
        return list(dict.fromkeys(variant for (_, variant), stat in self._stats.items() if stat))


def charts(document):
    """(name, picture) of each figure that the page shows, if it was measured."""
    with open(document, encoding="utf-8") as file:
        text = file.read()
    for figure in FIGURES:
        svg = chart.svg(Table(text, figure), figure, AXES[figure.name])
        if svg and f"bench/{figure.name}.svg)" in text:
            yield figure.name + ".svg", svg


def draw(document, pictures):
    for name, svg in charts(document):
        with open(os.path.join(pictures, name), "w", encoding="utf-8") as file:
            file.write(svg)


def _is_drawn(path, svg):
    if not os.path.exists(path):
        return False
    with open(path, encoding="utf-8") as file:
        return file.read() == svg


def check(document, pictures):
    wrong = [name for name, svg in charts(document) if not _is_drawn(os.path.join(pictures, name), svg)]
    if wrong:
        raise page.NoBlock(f"not what the tables say: {', '.join(wrong)}; run scripts/make-pictures")
