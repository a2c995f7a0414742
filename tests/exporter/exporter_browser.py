"""The live page in a real browser: exporter_browser.py <exporter> <exporter_server>."""
import socket
import sys
import time

from browser import Browser
from exporter_run import Exporter, Host, check, until

TABLE = "document.querySelector('[data-host=h0] [data-table=\"shop: disp server uriVtbl\"]')"
ROWS = f"[...{TABLE}.querySelectorAll('tbody tr')]"
CELLS = f"{ROWS}.map(row => row.cells[0].textContent)"


def cell(uri, column):
    return f"{ROWS}.find(row => row.cells[0].textContent === '{uri}').cells[{column}].textContent"


def follows(page):
    until(lambda: page.value(f"{ROWS}.length") == 300, "the table is there, up to some rows")
    check(page.value(f"{TABLE}.querySelector('.tools > span').textContent") == "1000 of 1000 rows",
          "all rows are counted")
    first = page.value(cell("u/00009", 2))
    until(lambda: page.value(cell("u/00009", 2)) not in (None, first), "a value follows the host")
    until(lambda: page.value(f"{TABLE}.querySelectorAll('td.changed').length") == 1,
          "what changed is marked, nothing else")
    check(page.value("document.title") == "kestrel: hosts", "names of the host are no scripts")
    check(page.value(f"{ROWS}[1].cells[0].textContent").startswith("<img"), "they are text")


def counts(page):
    until(lambda: page.value("document.querySelectorAll('.tile polyline').length") > 0,
          "counters have sparklines")
    until(lambda: page.value("parseFloat(document.querySelector('.tile b').textContent)") > 0,
          "requests per second are shown")
    def tiles():
        return page.value("document.querySelector('[data-host=h0] .tiles').textContent")

    until(lambda: "server callbacks, p50 / p99" in tiles(), "and quantiles of callbacks")
    check("< 1.0 us / < 1.0 us" in tiles(), "by the sizes that the host counts")
    until(lambda: "server in.requests get" in tiles(), "a counter that moves has a tile")
    check("server bad" not in tiles(), "one that does not has none")


def type_filter(page, text):
    page.value(f"(() => {{ const f = {TABLE}.querySelector('input[type=search]'); f.value = '{text}'; "
               "f.dispatchEvent(new Event('input')); })()")


def chooses(page):
    type_filter(page, "u/0001")
    until(lambda: page.value(CELLS) == [f"u/{i:05}" for i in range(10, 20)], "a filter")
    head = f"{TABLE}.querySelectorAll('th button')[0].click()"
    page.value(head)
    page.value("new Promise(done => setTimeout(done, 100))")
    page.value(head)
    until(lambda: page.value(CELLS) == [f"u/{i:05}" for i in range(19, 9, -1)], "sorted downwards")
    page.value(f"{TABLE}.querySelectorAll('.columns input')[1].click()")
    until(lambda: page.value(f"{TABLE}.querySelectorAll('th').length") == 2, "a column is hidden")
    type_filter(page, "")
    until(lambda: page.value(f"{ROWS}.length") == 300, "all rows again")


def keeps_focus(page):
    """Who uses the keyboard is where they were after a change."""
    page.value(f"{TABLE}.querySelectorAll('th button')[1].focus()")
    first = page.value(cell("u/00009", 2))
    until(lambda: page.value(cell("u/00009", 2)) not in (None, first), "a value changes")
    check(page.value(f"document.activeElement === {TABLE}.querySelectorAll('th button')[1]"),
          "the button keeps the focus")
    page.value("document.activeElement.click()")
    until(lambda: page.value(f"{TABLE}.querySelectorAll('th')[1].ariaSort") == "ascending", "the order is told")


def comes_back_after_an_error(page, exporter):
    """A browser does not try again by itself what was answered by an error."""
    page.value("window.stop()")
    page.call("Page.navigate", url="about:blank")
    viewers = []

    def is_full():
        viewers.append(socket.create_connection(("127.0.0.1", exporter.port)))
        viewers[-1].sendall(b"GET /events HTTP/1.1\r\n\r\n")
        return viewers[-1].recv(12).endswith(b"503")

    until(is_full, "all places of viewers are taken")
    page.call("Page.navigate", url=exporter.base + "/")
    until(lambda: "trying again" in (page.value("document.getElementById('link').textContent") or ""),
          "the page says so")
    for viewer in viewers:
        viewer.close()
    until(lambda: page.value("document.getElementById('link').textContent") == "live", "and is live again")


def tells_the_end(page, exporter):
    exporter.hosts[0].kill()
    begin = time.monotonic()
    until(lambda: page.value("document.querySelectorAll('[data-host=h0].away').length") == 1,
          "a killed host is shown")
    print(f"after {time.monotonic() - begin:.1f} s")
    until(lambda: page.value(f"{TABLE} === null"), "its tables go")
    check(page.value("document.querySelectorAll('[data-host=h1].away').length") == 0, "the other one stays")
    exporter.hosts[0] = Host(exporter.server, exporter.path(0), 3)
    until(lambda: page.value(f"{ROWS}.length") == 3, "its new life is shown")


def main(program, server):
    if not Browser.program():
        print("SKIPPED: chromium is not installed")
        sys.exit(77)
    with Exporter(program, server, 1000, 0) as exporter:
        until(lambda: exporter.is_up(0) and exporter.is_up(1), "both hosts are up")
        with Browser(exporter.base + "/") as page:
            follows(page)
            counts(page)
            keeps_focus(page)
            chooses(page)
            tells_the_end(page, exporter)
            check(page.errors == [], f"no errors of scripts: {page.errors}")
            comes_back_after_an_error(page, exporter)


main(*sys.argv[1:])
