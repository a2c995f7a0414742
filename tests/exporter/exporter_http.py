"""Uses the exporter as scrapers, scripts and worse do: exporter_http.py <exporter> <exporter_server>."""
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import urllib.parse

import bad_host
from exporter_run import PATIENCE, Exporter, Host, check, until

# Debian has it as python3-prometheus-client.
try:
    from prometheus_client.openmetrics.parser import text_string_to_metric_families
except ImportError:
    text_string_to_metric_families = None

MAX_CONNECTIONS = 32
URIS = "/api/shop/disp%20server%20uriVtbl"


def raw(exporter, data, patience=PATIENCE):
    """Sends bytes and returns all that comes until the exporter closes."""
    with socket.create_connection(("127.0.0.1", exporter.port), patience) as client:
        received = b""
        try:
            client.sendall(data)
            while piece := client.recv(65536):
                received += piece
        except ConnectionError:
            pass
        return received


def status_of(answer):
    return int(answer.split()[1]) if answer.startswith(b"HTTP/1.1 ") else None


def serves_metrics(exporter):
    status, headers, text = exporter.get("/metrics", Accept="application/openmetrics-text")
    check(status == 200, "metrics")
    check(headers["Content-Type"].startswith("application/openmetrics-text; version=1.0.0"), "its type")
    check('kestrel_up{host="h0"} 1' in text, "the host is up")
    if text_string_to_metric_families is None:
        print("part skipped: no parser of OpenMetrics here")
    else:
        families = {family.name: family for family in text_string_to_metric_families(text)}
        uris = {s.labels["uri"] for s in families["kestrel_server_uriVtbl_observerNum"].samples}
        check('quote"back\\slash' in uris and "{curly=\"x\"} 1" in uris, "names that need escaping")
        check(families["kestrel_server_in_requests"].type == "counter", "counters are counters")
        times = families["kestrel_server_callbacks_duration_seconds"]
        check(times.type == "histogram", "times are a histogram")
        check([s.labels["le"] for s in times.samples if s.name.endswith("_bucket")]
              == ["1.024e-06", "2.048e-06", "+Inf"], "with its bounds")
        check(families["kestrel_server_pool_used_bytes"].samples[0].value == 4096, "units are told")
    check("# EOF" not in exporter.get("/metrics")[2], "the older format for those who do not ask")


def serves_json(exporter):
    status, headers, text = exporter.get(URIS)
    check(status == 200 and headers["Content-Type"] == "application/json", "a table as JSON")
    rows = json.loads(text)
    check(len(rows) == 20 and rows[1]["uri"].startswith("<img"), "its rows")
    check(rows[4]["uri"] == "bytes\\xff\\xfe", "bytes that are not UTF-8")
    tables = json.loads(exporter.get("/api")[2])
    check({t["command"] for t in tables[0]["tables"]} >= {"disp server uriVtbl", "disp runs"},
          "commands are discovered")
    check("reset all" not in exporter.get("/api")[2], "only commands that show something")
    check(json.loads(exporter.get("/api/shop/disp%20runs")[2])[0]["resets"] == "0", "nothing else is run")


def serves_page_without_script(exporter):
    text = exporter.get("/")[2]
    check("<td>u/00010</td>" in text, "the page has the tables in itself")
    check("<img src=x" not in text and "&lt;img src=x" in text, "names are text in it")
    outside = text.replace("http://www.w3.org/2000/svg", "")
    check("http://" not in outside and "https://" not in outside, "nothing comes from elsewhere")


def refuses(exporter):
    for path in ["/nothing", "/../etc/passwd", "/api/..", "/api/../../etc/passwd", "/api/%2e%2e/x",
                 "/api/shop/nothing", "/api/shop/disp%20server%20uriVtbl/more", "/api/nobody/disp%20runs",
                 "/api/shop/disp%20runs?host=nobody", "/api/a%22b/c", "/api/a%0Ab/c", "/api/a%00b/c",
                 "/api/" + "x" * 2000 + "/y", "/" + "x" * 9000]:
        answer = raw(exporter, f"GET {path} HTTP/1.1\r\nHost: x\r\n\r\n".encode())
        check(400 <= (status_of(answer) or 0) < 500, f"{path[:40]} is refused")
    for method in ["POST", "PUT", "DELETE", "PATCH", "OPTIONS"]:
        answer = raw(exporter, f"{method} /metrics HTTP/1.1\r\nHost: x\r\nContent-Length: 9\r\n\r\n".encode())
        check(status_of(answer) == 405, f"{method} is refused")


def survives_garbage(exporter):
    headers = b"".join(b"X-%d: y\r\n" % i for i in range(5000))
    for data in [b"\0" * 1000, b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"\r\n" * 1000,
                 b"GET / HTTP/1.1\r\n" + headers + b"\r\n", b"x" * 1000000,
                 b"GET / HTTP/1.1\r\nHost: " + b"h" * 1000000, bytes(range(256)) * 100,
                 b"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n",
                 b"GET /metrics HTTP/1.1\r\nRange: bytes=9-1,,5-\r\n\r\n",
                 b"GET /api/%zz/%u HTTP/1.1\r\n\r\n"]:
        status = status_of(raw(exporter, data))
        check(status is None or 400 <= status < 500, f"garbage of {len(data)} bytes: {status}")
    check(exporter.get("/healthz")[0] == 200, "it goes on")


def is_asked_by_its_names(exporter):
    """A page of another domain that resolves to this machine gets nothing."""
    def status(host):
        return status_of(raw(exporter, f"GET /healthz HTTP/1.1\r\nHost: {host}\r\n\r\n".encode()))

    for host in ["127.0.0.1:9", "[::1]:9", "[::1]", "localhost:9", "machine", "x.localhost"]:
        check(status(host) == 200, f"asked by {host}")
    for host in ["rebound.example:9", "127.0.0.1.example.org", "[::1].example.org", "localhost."]:
        check(status(host) == 421, f"not asked by {host}")


def answers_whole(exporter):
    """Ranges that overlap would make a small request a large answer."""
    for ranges in ["0-0", "0-," * 1000 + "0-"]:
        answer = raw(exporter, f"GET {URIS} HTTP/1.1\r\nRange: bytes={ranges}\r\n\r\n".encode())
        check(status_of(answer) == 200 and len(answer) < 10000, "an answer is whole and there once")


def gives_the_type_that_is_liked(exporter):
    for accept, is_open in [("application/openmetrics-text;version=1.0.0;q=0.6,text/plain;q=0.5,*/*;q=0.1", True),
                            ("Application/OpenMetrics-Text", True), ("*/*", False), ("", False),
                            ("text/plain;q=0.9, application/openmetrics-text;q=0.2", False),
                            ("application/openmetrics-text; q=0", False), ("application/openmetrics-textual", False)]:
        text = exporter.get("/metrics", Accept=accept)[2]
        check(text.endswith("# EOF\n") == is_open, f"the type for \"{accept}\"")


def refuses_hosts_of_one_name(program):
    for sockets in [["a=/x", "a=/y"], ["/x", "/x"], ["=/x"], ["a="]]:
        status = subprocess.run([program, "--port", "0", *sockets], check=False,
                                stderr=subprocess.DEVNULL, timeout=PATIENCE).returncode
        check(status == 2, f"{sockets} is wrong usage")


def has_its_port_alone(exporter):
    status = subprocess.run([exporter.program, "--port", str(exporter.port), "x"], check=False,
                            stderr=subprocess.DEVNULL, timeout=PATIENCE).returncode
    check(status == 3, "a second one at the same port is refused")


def ends_slow_senders(exporter):
    check(status_of(raw(exporter, b"GET / HTTP/1.1\r\nX: ")) in (None, 400, 408), "half a request is given up")


def bounds_connections(exporter):
    """Idle connections take all places; one more is told so, and all get answers in the end."""
    idle = [socket.create_connection(("127.0.0.1", exporter.port)) for _ in range(MAX_CONNECTIONS)]
    refused = []
    until(lambda: refused.append(raw(exporter, b"GET /healthz HTTP/1.1\r\n\r\n")) or
          status_of(refused[-1]) == 503, "one connection too many is told so")
    for client in idle:
        client.close()
    until(lambda: status_of(raw(exporter, b"GET /healthz HTTP/1.1\r\n\r\n")) == 200, "places are free again")


def shares_runs(exporter):
    """Whatever the number of viewers, a table is run once a second."""
    def runs():
        return int(json.loads(exporter.get("/api/shop/disp%20runs")[2])[0]["rows"])

    begin, before = time.monotonic(), runs()
    threads = [threading.Thread(target=lambda: [exporter.get(URIS) for _ in range(5)]) for _ in range(10)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    num_runs, seconds = runs() - before, time.monotonic() - begin
    check(num_runs <= seconds + 2, f"50 requests were {num_runs} runs in {seconds:.1f} s")


def events_of(exporter, count):
    """Yields name and data of each event."""
    with socket.create_connection(("127.0.0.1", exporter.port), PATIENCE) as client:
        client.sendall(b"GET /events HTTP/1.1\r\nHost: x\r\n\r\n")
        text = b""
        while count:
            text += client.recv(65536)
            while count and (at := text.find(b"\n\n")) >= 0:
                event, text = text[:at], text[at + 2:]
                name = event[event.find(b"event: ") + 7:].split(b"\n")[0].decode()
                yield name, json.loads(event[event.find(b"data: ") + 6:])
                count -= 1


def sends_changed_rows_alone(exporter):
    sizes = {"table": [], "rows": []}
    for name, data in events_of(exporter, 40):
        table = data.get("table", {})
        if table.get("command") == "disp server uriVtbl":
            sizes[name].append(len(table.get("rows", table.get("changed"))))
    check(sizes["table"] == [20], "a table comes whole once")
    check(sizes["rows"] and set(sizes["rows"]) == {1}, "then the row that changed")


def leaves_slow_readers(exporter):
    """Viewers who do not read hold up neither scrapes nor memory."""
    slow = []
    for _ in range(8):
        client = socket.socket()
        client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        client.connect(("127.0.0.1", exporter.port))
        client.sendall(b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n")
        slow.append(client)
    for _ in range(3):
        check(exporter.get("/metrics")[0] == 200, "a scrape beside slow readers")
    with open(f"/proc/{exporter.process.pid}/status", encoding="ascii") as status:
        kb = next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))
    print(f"resident: {kb} kB")
    for client in slow:
        client.settimeout(PATIENCE)
        while client.recv(1 << 20):
            pass
        client.close()
    check(True, "slow readers are served or left, but not kept")


def tells_who_is_away(exporter):
    exporter.hosts[0].kill()
    begin = time.monotonic()
    until(lambda: 'kestrel_up{host="h0"} 0' in exporter.get("/metrics")[2], "a killed host is 0")
    print(f"after {time.monotonic() - begin:.1f} s")
    check(exporter.get(URIS + "?host=h0")[0] == 503, "its tables are away")
    exporter.hosts[0] = Host(exporter.server, exporter.path(0), 5)
    until(exporter.is_up, "it is up again when it is back")
    check(len(json.loads(exporter.get(URIS)[2])) == 5, "with its tables")


def waits_for_its_first_try(exporter):
    """A scrape that comes before the exporter has tried to reach the host is no alarm."""
    host = exporter.hosts[0].process
    host.send_signal(signal.SIGSTOP)
    exporter.restart()
    texts = []
    scrape = threading.Thread(target=lambda: texts.append(exporter.get("/metrics")[2]))
    scrape.start()
    scrape.join(0.5)
    host.send_signal(signal.SIGCONT)
    scrape.join()
    check('kestrel_up{host="h0"} 1' in texts[0], "the first scrape tells a host that is up")


def bears_bad_hosts(program, server):
    """None counts as up, takes memory or keeps the exporter from its end."""
    with Exporter(program, server, 1) as exporter:
        until(exporter.is_up, "a good host is up")
        runs = {"greets": None, "rows": bad_host.ENDLESS_ROWS, "line": bad_host.ENDLESS_LINE,
                "errors": bad_host.ENDLESS_ERRORS, "slow": bad_host.SLOW_ROWS}
        bad = {name: bad_host.BadHost(os.path.join(exporter.folder, name), run, greets_only=run is None)
               for name, run in runs.items()}
        exporter.others = [f"{name}={os.path.join(exporter.folder, name)}" for name in bad]
        exporter.restart()
        for name in ["rows", "line", "errors", "slow"]:
            check(bad[name].is_running.wait(PATIENCE), f"a command of {name} runs")
        text = exporter.get("/metrics")[2]
        check('kestrel_up{host="h0"} 1' in text, "the good one is up")
        check(all(f'kestrel_up{{host="{name}"}} 0' in text for name in bad), "the bad ones are not")
        until(lambda: all(f'"{name}" away' in exporter.get("/healthz")[2] for name in bad), "nor later")


def leaves_a_host_when_killed(exporter):
    """The exporter is killed in the middle of a scrape, the host goes on and keeps nothing of it."""
    folder = f"/proc/{exporter.hosts[0].process.pid}/fd"
    exporter.process.kill()
    exporter.process.wait()
    until(lambda: not has_consoles(folder), "the host has no consoles")
    before = len(os.listdir(folder))
    for _ in range(2):
        exporter.start()
        until(lambda: has_consoles(folder), "the exporter has connected and runs commands")
        exporter.process.kill()
        exporter.process.wait()
        until(lambda: len(os.listdir(folder)) == before, "the host has closed its end")
    exporter.start()
    until(exporter.is_up, "another exporter sees the host")
    check(len(json.loads(exporter.get(URIS)[2])) == 10000, "with all its rows")


def has_consoles(folder):
    """A listening socket is one; each console is one more."""
    names = [os.readlink(os.path.join(folder, name)) for name in os.listdir(folder)]
    return sum(name.startswith("socket:") for name in names) > 1


def takes_ten_thousand(program, server):
    with Exporter(program, server, 10000) as exporter:
        until(exporter.is_up, "it is up")
        check(len(json.loads(exporter.get(URIS)[2])) == 10000, "10,000 rows as JSON")
        text = exporter.get("/metrics")[2]
        check(text.count("\nkestrel_server_uriVtbl_observerNum{") == 1000, "1,000 series of a metric")
        check('kestrel_exporter_left_out_total{metric="kestrel_server_uriVtbl_observerNum"} 9000' in text,
              "what is left out is counted")
        check(len(exporter.get("/")[2]) < 100000, "the page stays small")
        leaves_slow_readers(exporter)
        leaves_a_host_when_killed(exporter)


def main(program, server):
    with Exporter(program, server, 20) as exporter:
        until(exporter.is_up, "it is up")
        serves_metrics(exporter)
        serves_json(exporter)
        serves_page_without_script(exporter)
        refuses(exporter)
        survives_garbage(exporter)
        is_asked_by_its_names(exporter)
        answers_whole(exporter)
        has_its_port_alone(exporter)
        gives_the_type_that_is_liked(exporter)
        ends_slow_senders(exporter)
        bounds_connections(exporter)
        shares_runs(exporter)
        sends_changed_rows_alone(exporter)
        tells_who_is_away(exporter)
        waits_for_its_first_try(exporter)
    refuses_hosts_of_one_name(program)
    bears_bad_hosts(program, server)
    takes_ten_thousand(program, server)


main(*sys.argv[1:])
