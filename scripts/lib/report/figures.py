"""The figures of scripts/bench with their columns, and the limits that ratios have to keep."""

from collections import namedtuple

from samples import Series

# columns: (metric, head); the first one is drawn.
Figure = namedtuple("Figure", "name title case_head columns")

# over / under is at least, or at most, the limit.
Bar = namedtuple("Bar", "text over under is_least limit")

PER_SECOND = ("per_second", "per second")
PER_CPU_SECOND = ("per_cpu_second", "per CPU second")
CPU = ("cpu_us", "CPU us each")
P50, P99, P999 = ("p50_us", "p50 us"), ("p99_us", "p99 us"), ("p999_us", "p99.9 us")

FIGURES = [
    Figure("sync", "Synchronous POSTs", "Client ports",
           [PER_CPU_SECOND, CPU, PER_SECOND, P50, P99, P999]),
    Figure("later", "Answers of their own", "Client ports",
           [PER_CPU_SECOND, CPU, PER_SECOND, P50, P99, P999]),
    Figure("exchange", "Calls of a client", "Under way", [CPU, PER_SECOND, P50, P99, P999]),
    Figure("logging", "Synchronous POSTs, by what is logged", "Answer",
           [PER_CPU_SECOND, CPU, PER_SECOND]),
    Figure("calls", "Asynchronous calls", "Under way", [CPU, PER_SECOND, P50, P99, P999]),
    Figure("observe", "From update to delivery", "Tuples",
           [("delivered_ms", "delivered ms"), ("queue_us", "update calls us")]),
    Figure("resync", "Answer to a check code", "Tuples",
           [("stale_us", "stale us"), ("stale_cpu_us", "stale CPU us"),
            ("match_us", "match us"), ("match_cpu_us", "match CPU us")]),
    Figure("observers", "A change for many observers", "Observers",
           [("notify_cpu_us", "CPU us per notification"),
            ("register_cpu_us", "CPU us per registration"), ("round_us", "first to last us")]),
    Figure("state", "A table and its observers", "Changed",
           [("delivered_ms", "delivered ms"), ("per_second", "rows per second"),
            ("row_cpu_us", "publisher's CPU us per changed row"),
            ("pull_cpu_us", "CPU us per page pulled")]),
    Figure("mirror", "Full sync of a mirror", "Set",
           [("full_sync_ms", "ms"), ("pulls", "questions"), ("repeats", "repeated"),
            ("tuple_extra", "bytes of a tuple beside its own")]),
    Figure("uris", "POSTs, by registered URIs", "URIs", [CPU, PER_SECOND]),
    Figure("queue", "Queue and build, compared with Jansson", "Tuples", [("cpu_us", "CPU us")]),
    Figure("cpp", "C interface and C++", "", [("relative", "Processor time, C = 1"), CPU]),
    Figure("memory", "Memory, bytes per item", "Items",
           [("heap_bytes", "heap, libcoap included"), ("pool_bytes", "the instance's pool")]),
]


def _ratio(text, figure, over, under, metric, limit, is_least=False):
    """over, under: case and variant."""
    return Bar(text, Series(figure, *over, metric), Series(figure, *under, metric), is_least, limit)


def _sync(ports, suffix, other, limit):
    """POSTs per second of the server's processor time: what a core can take at most, whoever else
    uses the machine."""
    text = f"synchronous POSTs, {ports} ports: library{suffix} / {other}"
    return _ratio(text, "sync", (ports, "library" + suffix), (ports, other), PER_CPU_SECOND[0],
                  limit, is_least=True)


def _later(ports, limit):
    text = f"POSTs answered by messages of their own, {ports} ports: library, direct / libcoap"
    return _ratio(text, "later", (ports, "library"), (ports, "libcoap"), PER_CPU_SECOND[0], limit,
                  is_least=True)


def _exchange(under_way, limit):
    text = f"CPU of a client's call, {under_way} under way: library / libcoap"
    return _ratio(text, "exchange", (under_way, "library"), (under_way, "libcoap"), CPU[0], limit)


def _python(other, limit):
    """The same for a handler in Python and the server of another implementation."""
    return _ratio(f"synchronous POSTs, 16 ports: Python package / {other}", "sync",
                  ("16", "Python package"), ("16", other), PER_CPU_SECOND[0], limit, is_least=True)


def _cpp(case, limit):
    """A ratio that the program takes over its own pairs of batches."""
    return _ratio(f"processor time of a {case}: C++ / C interface", "cpp", (case, "C++"), (case, "C"),
                  "relative", limit)


def _logging(answer, variant, metric, limit, is_least=False):
    text = f"synchronous POSTs, answers of {answer}: {variant} / level lowered"
    return _ratio(text, "logging", (answer, variant), (answer, "level lowered"), metric, limit,
                  is_least)


def _call(under_way, metric, name, limit):
    text = f"{name} of an asynchronous call, {under_way} under way: library / libcoap"
    return _ratio(text, "calls", (under_way, "library"), (under_way, "libcoap"), metric, limit)


def _state(case, metric, name, limit, is_faster=False):
    library, libcoap = (case, "library"), (case, "libcoap")
    if is_faster:
        return _ratio(f"{name}: libcoap / library", "state", libcoap, library, metric, limit,
                      is_least=True)
    return _ratio(f"{name}: library / libcoap", "state", library, libcoap, metric, limit)


BARS = [
    _sync("16", "", "libcoap", 0.90),
    _sync("200", "", "libcoap", 0.90),
    _sync("16", "", "libcoap, clearing", 0.90),
    _sync("200", "", "libcoap, clearing", 0.90),
    _sync("16", ", logging", "libcoap, logging", 0.80),
    _sync("200", ", logging", "libcoap, logging", 0.80),
    _sync("16", ", direct", "libcoap", 0.95),
    _sync("200", ", direct", "libcoap", 0.95),
    _later("16", 0.90),
    _later("200", 0.90),
    _exchange("16", 1.15),
    _exchange("64", 1.15),
    _python("aiocoap", 5),
    _python("node-coap", 1),
    _cpp("request", 1.02),
    _cpp("call", 1.02),
    _logging("32 bytes", "as it starts", PER_CPU_SECOND[0], 0.90, is_least=True),
    _logging("32 bytes", "debug channel", PER_CPU_SECOND[0], 0.60, is_least=True),
    _logging("65,400 bytes", "as it starts", CPU[0], 1.50),
    _logging("65,400 bytes", "debug channel", CPU[0], 1.50),
    _call("64", "cpu_us", "CPU", 1.25),
    _call("1", "cpu_us", "CPU", 1.25),
    _call("1", "p50_us", "p50", 1.30),
    _ratio("p50 of a synchronous POST, 1 under way: library / libcoap", "sync", ("1", "library"),
           ("1", "libcoap"), "p50_us", 1.30),
    _state("100 of 10,000 rows", "delivered_ms", "time to deliver 100 of 10,000 rows", 60, True),
    _state("50,000 rows", "delivered_ms", "time to deliver 50,000 rows", 1, True),
    _state("1,000 rows, 100 observers", "delivered_ms", "time to the last of 100 observers", 1, True),
    _state("1 row, 999 observers", "delivered_ms", "time to the last of 999 observers", 1.30),
    _state("a page", "pull_cpu_us", "CPU of a page pulled", 1.40),
    _ratio("full sync 10 ms away: one question at a time / 128", "mirror",
           ("30,000 tuples, 10 ms away", "1 in flight"),
           ("30,000 tuples, 10 ms away", "128 in flight"), "full_sync_ms", 50, is_least=True),
    _ratio("CPU of queuing 50,000 changes / Jansson making the document", "queue",
           ("50000", "queue"), ("50000", "Jansson"), "cpu_us", 3),
    _ratio("CPU of building their payload / Jansson making the document", "queue",
           ("50000", "build"), ("50000", "Jansson"), "cpu_us", 3),
    _ratio("CPU of a POST, 100,000 URIs / 10", "uris", ("100000", "library"), ("10", "library"),
           "cpu_us", 2),
]
