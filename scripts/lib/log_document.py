"""Prints docs/log.md: every line that the library writes, from its sources, and what it means.

Function, number and level of a log site come from coap_rpc_sites.h, its text from where it is
written; what it means is told here.  A site without a meaning, and a meaning without a site, are
errors."""

import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
SOURCE = TOP / "coap_server/src/coap_svc/rpc"
NORMAL, LOOK = "normal", "look here"

INTRO = """# Log lines

Made from the sources by `scripts/make-docs`; do not edit.

Texts and levels are fixed, and a level says little: most lines of level 3, that of errors, belong to a healthy
instance. The second column says which ones do not. `%s`, `%u` and their like stand for values.

**A healthy server logs two lines of level 3 for each tuple update**: `insert when add uri tuple` or `update when add
uri tuple`, and `COAP_RpcSerProcTupleChg success`, or `... observer 0` while nobody observes. (One, if the key has a
change pending already, with which the new one merges.) Each synchronous request adds `parse req[outLen: ...]`.
Filter by the text when you look for errors, not by the level.
[Counters](counters.md) count errors without the log.

Levels: 0 trace, 1 information, 2 warning, 3 error. [Cost of the log](operating.md#cost-of-the-log) tells how to turn
lines off.

## Lines of the log

| Level | | Line | Function | Means |
|---|---|---|---|---|
"""

TRACE = """
## Trace

Lines of level 0, which go to the debug channel too. All are normal but these:

| | Line | Means |
|---|---|---|
"""

REST = """
The others tell that a step was taken:

| Line | File |
|---|---|
"""

MEANINGS = {
    "InitFailed": (LOOK, "The instance was not started; `ret` is the [code](error_codes.md)."),
    "Advice": (LOOK, "Input that can never work, as `COAP_RpcSetAdvice` finds it."),
    "LogModDo": (NORMAL, "A line of the [trace](#trace)."),
    "MemDumpTitle": (NORMAL, "A dump of a message begins."),
    "MemDumpLine": (NORMAL, "16 bytes of a dump."),
    "MemDumpLastLine": (NORMAL, "The last bytes of a dump."),
    "LibCoapDebug": (NORMAL, "libcoap's own line, of its level 7 and above: steps, and the messages themselves."),
    "LibCoapInfo": (NORMAL, "libcoap's own line, of its level 6."),
    "LibCoapWarn": (LOOK, "libcoap's warning or notice: a malformed message, one that cannot be delivered, a port in use."),
    "LibCoapError": (LOOK, "libcoap's error: a system call failed, or memory."),
    "GetUriHostIpFailed": (LOOK, "A message's Uri-Host option is not an IPv4 address: the sender is not ours."),
    "SerSetUriFailed": (LOOK, "A URI was not attached; `ret` is the code. 1900000157: the port is in use."),
    "UriRegSerVtblFailed": (LOOK, "A URI was not registered: no memory, or an observe record without comparator."),
    "ConnBindNotRegistered": (LOOK, "A key was attached that is not registered, or has other bytes after its uri."),
    "AddResourceFailed": (LOOK, "No memory for the resource of a URI."),
    "HandleRequestNoEntry": (LOOK, "No entry for a request: its path, message type or address is not registered."),
    "HandleRequestNoMemory": (LOOK, "No memory for the payload of a request; it gets an empty answer."),
    "GetRpcDataOutLen": (NORMAL, "`onRequest` returned. A negative length but -1 means that the handler failed."),
    "AddUriPathNoEntry": (LOOK, "No entry for a registration; it is refused."),
    "IdlPayloadNoMemory": (LOOK, "No memory for a notification; its changes stay pending."),
    "IdlMsgTooLong": (LOOK, "A URI publishes nothing until this tuple is built shorter."),
    "OneIdlMsgNoBuilder": (LOOK, "The observe record has no builders."),
    "OneIdlMsgNoBuffer": (LOOK, "A builder was to write into no buffer."),
    "ObserveUpdateNoEntry": (LOOK, "No entry for a registration; it gets no payload."),
    "IterateEnd": (NORMAL, "The application's walk over its tuples is at its end: `getNextTuple` has no more."),
    "AddUriTuple": (NORMAL, "A tuple was added. Once for each key."),
    "UpdateUriTuple": (NORMAL, "A tuple was changed. Once for each update."),
    "ProcTupleChgNoObserver": (NORMAL, "A change is not queued, because nobody observes its URI."),
    "ProcTupleChgQueued": (NORMAL, "A change is pending for observers. Once for each update."),
    "TrySendReqFailed": (LOOK, "A request was not sent; a CON request is sent again from the resend list."),
    "CliSendNoSession": (LOOK, "A request has no session: see `session not exist` for its addresses."),
    "CliSendOptions": (LOOK, "The options of a request do not fit a message."),
    "CliSendFailed": (LOOK, "libcoap did not send a request, which is tried again."),
    "CliAddPayloadFailed": (LOOK, "The payload of a request was not added: `buildReq` failed, or no memory."),
    "CliAddPduOptionHost": (NORMAL, "The Uri-Host option of a request is empty; the request goes out."),
    "CliResponseNoEntry": (LOOK, "A response whose path is not registered with the client, or that has none."),
    "CliResponseNoMemory": (LOOK, "No memory for a response, which is lost."),
    "CliResponseRejected": (LOOK, "`onResponse` did not return 0; the peer gets a reset."),
    "CliResNoDataRejected": (LOOK, "The same, for a response without payload."),
}

TRACE_MEANINGS = {
    "[CoapRpc]Dup uriVtbl ser reg": "The key is registered already; the first registration stays.",
    "[CoapRpc]Dup cli uriVtbl reg": "The same, for a client.",
    "[CoapRpc]handle nack": "A message of ours failed; `reason` 0: not acknowledged, 2: reset, 4: unreachable.",
    "[CoapRpc]session disconnected": "A peer does not answer keep-alive pings any more.",
    "[CoapRpc]hdl one idl msg fail": "A builder failed; the change stays pending.",
    "[CoapRpc] get payload memcpy fail": "A message does not fit; it goes with the next payload.",
    "[CoapRpc]req resend": "A request that failed before is sent again.",
}

SITE = re.compile(r'X\((\w+),\s+"(\w+)",\s+(\d+), (\d)\)')
LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
LOG = re.compile(r"\bkLog(\w+)\b[^\";]*?" + LITERALS)
NAMED = re.compile(r"\bkText\[\] =\s*" + LITERALS + r";[^}]*?\bkLog(\w+)")
DEBUG = re.compile(r"\bCOAP_RPC_DEBUG\([^\";]*?" + LITERALS)


def sites():
    """(name, function, level) of each log site, in the order of the list."""
    text = (SOURCE / "common/coap_rpc_sites.h").read_text(encoding="utf-8")
    listed = text[text.index("#define COAP_RPC_LOG_SITES"):]
    return [(name, function, int(level)) for name, function, _, level in SITE.findall(listed)]


def joined(literals):
    """The text of adjacent string literals, as a table cell shows it."""
    text = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))
    return text.replace("\\n", "").replace('\\"', '"').replace("|", "\\|").strip()


def found(pattern):
    """(file, match) of each place in the sources, by file."""
    for path in sorted(SOURCE.rglob("*.cpp")):
        for match in pattern.finditer(path.read_text(encoding="utf-8")):
            yield path.relative_to(SOURCE).as_posix(), match


def texts():
    """The texts of each log site."""
    by_site = {}
    for _, match in found(LOG):
        by_site.setdefault(match[1], []).append(joined(match[2]))
    for _, match in found(NAMED):
        by_site.setdefault(match[2], []).append(joined(match[1]))
    return by_site


def row(*cells):
    """A row of a table."""
    return "| " + " | ".join(str(cell) for cell in cells) + " |\n"


def log_rows():
    """The rows of all log sites."""
    by_site = texts()
    for name, function, level in sites():
        verdict, meaning = MEANINGS[name]
        line = "<br>".join(f"`{text}`" for text in by_site.get(name, [])) or "(varies)"
        yield row(level, verdict, line, f"`{function}`", meaning)


def trace_lines():
    """(text, file) of each line of the trace, once."""
    seen = {}
    for file, match in found(DEBUG):
        seen.setdefault(joined(match[1]), file)
    return sorted(seen.items(), key=lambda item: (item[1], item[0]))


def meaning_of(text):
    """What a line of the trace that is not normal means; None for any other."""
    return next((said for start, said in TRACE_MEANINGS.items() if text.startswith(start)), None)


def document():
    """The whole document."""
    lines = trace_lines()
    told = [row(LOOK, f"`{text}`", meaning_of(text)) for text, _ in lines if meaning_of(text)]
    rest = [row(f"`{text}`", f"`{file}`") for text, file in lines if not meaning_of(text)]
    return "".join([INTRO, *log_rows(), TRACE, *told, REST, *rest])


if __name__ == "__main__":
    sys.stdout.write(document())
