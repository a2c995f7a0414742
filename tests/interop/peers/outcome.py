"""What a peer saw of a case, in words that are the same for all peers.

A message reads "<type> <code> <options>: <payload>", for example
"CON 2.05 ETag, Observe, Uri-Path obs, format 50: +1000=val0 -1001".
"""

import json
import os
import struct
import time

SERVER = "127.0.0.2"
RELAY = "127.0.0.3"
NO_ANSWER = "no answer"
MAX_ROWS, MAX_TEXT = 5, 40
SLOWNESS = int(os.environ.get("INTEROP_SLOWNESS", "1"))  # how often its usual time a wait takes


def pattern(size):
    """The payload that the server knows too: a letter for each 50 bytes."""
    return bytes(97 + at // 50 % 26 if at % 50 == 0 else 46 for at in range(size))


def payload_of(request):
    if "pattern" in request:
        return pattern(request["pattern"])
    return request.get("payload", "").encode()


def patience(request):
    """Seconds to wait for an answer; with losses it may take the third copy of a message."""
    return SLOWNESS * (24 if request.get("lossy") else 3)


def _row_text(row):
    return "-" + row["key"] if row["op"] == "d" else f"+{row['key']}={row['val']}"


def _rows_text(rows):
    return " ".join(rows) if len(rows) <= MAX_ROWS else f"{len(rows)} rows"


def _idl_rows(payload):
    (count,) = struct.unpack_from("<I", payload)
    rows, at = [], 4
    for _ in range(count):
        (size,) = struct.unpack_from("<H", payload, at)
        text = payload[at + 2 : at + 2 + size].decode()
        rows.append("-" + text[2:] if text[0] == "d" else "+" + text[2:])
        at += 2 + size
    return rows


def _links_text(payload):
    links = payload.decode().split(",")
    if len(links) <= 2:
        return " ".join(links)
    known = {"</test>", "</obs>;obs"} <= set(links)
    return f"{len(links)} links" + ", </test> and </obs>;obs among them" * known


def payload_text(payload, content_format):
    if content_format == 40:
        return _links_text(payload)
    if payload.startswith(b'{"data"'):
        return _rows_text([_row_text(row) for row in json.loads(payload)["data"]])
    if not payload.strip(b"\0"):
        return f"{len(payload)} zero bytes"
    if payload.isascii() and payload.decode().isprintable():
        if len(payload) <= MAX_TEXT:
            return f"'{payload.decode()}'"
        return f"{len(payload)} bytes" + " of the pattern" * (payload == pattern(len(payload)))
    return _rows_text(_idl_rows(payload))


def message_text(kind, code, options, payload):
    """options: (name, value) of those named in OPTIONS, in the order of their numbers."""
    words = []
    for name, value in options:
        words.append({"Content-Format": f"format {value}"}.get(name, f"{name} {value}".strip()))
    text = " ".join([kind, code] + [", ".join(words)] * bool(words))
    content_format = dict(options).get("Content-Format")
    return f"{text}: {payload_text(payload, content_format)}" if payload else text


class ServerLog:
    """What the server says of observers, from now on."""

    def __init__(self, uri):
        self._path = os.environ["INTEROP_SERVER_LOG"]
        self._start = os.path.getsize(self._path)
        self._uri = uri

    def numbers(self):
        with open(self._path, "rb") as log:
            log.seek(self._start)
            lines = [line.split() for line in log.read().decode().splitlines()]
        return [line[2] for line in lines if line[:2] == ["observers", self._uri]]

    def left(self):
        return self.numbers()[-1:] == ["0"]

    def wait_left(self, seconds):
        end = time.monotonic() + SLOWNESS * seconds
        while not self.left() and time.monotonic() < end:
            time.sleep(0.1)

    def text(self):
        return "observers " + (" ".join(self.numbers()) or "none")


def start_of(request):
    """The request that gives an observed table the contents it begins with."""
    return {"method": "POST", "path": "ctl", "payload": f"set {request['path']} 1000 val0"}


def read_cases():
    """The lists server and client are of the base interface, direct and calls of ordinary CoAP."""
    found = {"notes": {}}
    for name in ("cases.json", "direct.json"):
        with open(os.path.join(os.path.dirname(__file__), name), encoding="utf-8") as file:
            content = json.load(file)
        found = {**found, **content, "notes": {**found["notes"], **content["notes"]}}
    return found


def cases(peer):
    """The cases of the list INTEROP_LIST that this peer can run; the others are told with their
    reason."""
    for case in read_cases()[os.environ["INTEROP_LIST"]]:
        reason = case.get("cannot", {}).get(peer)
        request = case["request"]
        if case.get("slow") and os.environ.get("INTEROP_QUICK"):
            continue
        if reason:
            tell(case["id"], "cannot: " + reason)
        else:
            yield case["id"], {**request, "path": request["path"].replace("PEER", peer)}


def tell(name, outcome):
    print(f"{name}\t{outcome}", flush=True)
