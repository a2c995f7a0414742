#!/usr/bin/env python3
"""Runs the cases with libcoap's command-line client, and prints what it saw of each.

The client cannot take requests: answers that come as a POST go to libcoap's server.
"""

import re
import shutil
import subprocess
import sys
import tempfile
import time

import outcome

MESSAGE = re.compile(r"v:1 t:(\S+) c:(\S+) i:\S+ \{(\w*)\} \[ (.*?) ?\](?: :: (.*))?$")
SHOWN = ("ETag", "Observe", "Uri-Path", "Content-Format", "Uri-Query",
         "Location-Path", "Location-Query")
FORMATS = {"text/plain": 0, "application/link-format": 40, "application/json": 50}
OPTION_NUMBERS = {"if-match": 1, "etag": 4, "if-none-match": 5}
SETTLE_SECONDS = 4 * outcome.SLOWNESS
CHANGE_SECONDS = 2.5 * outcome.SLOWNESS


def tool(name):
    return shutil.which(name + "-notls") or shutil.which(name)


class Tool:
    """A tool that runs; its output goes to a file."""

    def __init__(self, *args):
        self._file = tempfile.NamedTemporaryFile()
        self._process = subprocess.Popen(args, stdin=subprocess.DEVNULL, stdout=self._file,
                                         stderr=subprocess.STDOUT)

    def wait(self):
        self._process.wait(100 * outcome.SLOWNESS)
        return self

    def kill(self):
        self._process.kill()
        return self.wait()

    def lines(self):
        with open(self._file.name, "rb") as file:
            return file.read().decode("latin-1").replace("\0", "").splitlines()


def options_of(text):
    """The options of a message as the tools print them, a path of several parts as one."""
    found = {}
    for part in text.split(", ") if text else []:
        name, _, value = part.partition(":")
        if name in SHOWN:
            found[name] = f"{found[name]}/{value}" if name in found else value
    for name in ("ETag", "Observe"):
        if name in found:
            found[name] = ""
    if "Content-Format" in found:
        found["Content-Format"] = FORMATS.get(found["Content-Format"], found["Content-Format"])
    return [(name, found[name]) for name in SHOWN if name in found]


def messages(lines, codes):
    """The messages of these codes, without the blocks that the tools put together."""
    for line in lines:
        match = MESSAGE.search(line)
        if match and re.fullmatch(codes, match[2]) and "/M/" not in match[4]:
            yield match


def first_token(matches):
    return [match for match in matches if len(match[3]) <= 2]


def arguments(request, *more):
    host = outcome.RELAY if request.get("lossy") else outcome.SERVER
    args = [tool("coap-client"), "-v", "7", "-L", "3", *more]
    args += ["-m", request.get("method", "GET").lower()]
    args += ["-N"] * request.get("non", False)
    args += ["-T", ""] * request.get("tokenless", False)
    for name, value in request.get("options", {}).items():
        if name == "accept":
            args += ["-A", str(value)]
        elif name in ("block1", "block2"):
            args += ["-b", str(16 << value)]
        else:
            args += ["-O", f"{OPTION_NUMBERS[name]},{'0x' + value if value else ''}"]
    for each in request.get("checkCode", []):
        args += ["-O", f"15,_ual-checkcode={each}"]
    query = "?" + "&".join(request["query"]) if "query" in request else ""
    return args + [f"coap://{host}/{request['path']}{query}"]


def run_plain(request):
    with tempfile.NamedTemporaryFile() as body, tempfile.NamedTemporaryFile() as sent:
        sent.write(outcome.payload_of(request))
        sent.flush()
        args = ["-B", str(outcome.patience(request)), "-o", body.name]
        if outcome.payload_of(request):
            args += ["-f", sent.name]
        lines = Tool(*arguments(request, *args)).wait().lines()
        found = list(messages(lines, r"[2-5]\.(?!31)\d\d"))
        if not found:
            return outcome.NO_ANSWER
        text = found[-1][5] or ""
        payload = body.read() or text.strip("'").encode()
        return outcome.message_text(found[-1][1], found[-1][2], options_of(found[-1][4]), payload)


def run_separate(request):
    server = Tool("stdbuf", "-oL", tool("coap-server"), "-A", "127.0.0.1", "-v", "7")
    time.sleep(0.5 * outcome.SLOWNESS)
    answer = run_plain(request)
    posts = {match[0].split(" i:")[1][:4]: match
             for match in messages(server.kill().lines(), "POST")}
    texts = [outcome.message_text(each[1], each[2], options_of(each[4]),
                                  (each[5] or "").strip("'").encode())
             for each in posts.values()]
    return " | ".join(texts + [answer])


def notifications(client):
    """The messages with their payloads; a text has a line, other payloads a dump."""
    lines = client.lines()
    bodies = [line.encode() for line in lines if line.startswith('{"data"')]
    bodies += [bytes.fromhex(line[2:-2]) for line in lines if re.fullmatch("<<[0-9a-f]+>>", line)]
    for match in first_token(messages(lines, r"[2-5]\.\d\d")):
        text = (match[5] or "").strip("'").encode()
        payload = bodies.pop(0) if text and bodies else text
        yield outcome.message_text(match[1], match[2], options_of(match[4]), payload)


def run_observe(request):
    run_plain(outcome.start_of(request))
    log = outcome.ServerLog(request["path"])
    seconds = str(SETTLE_SECONDS + 3 * outcome.SLOWNESS * len(request["steps"]))
    payload = ["-e", request["payload"]] if "payload" in request else []
    client = Tool(*arguments(request, "-w", "-s", seconds, *payload))
    time.sleep(SETTLE_SECONDS - 1)
    for step in request["steps"]:
        run_plain({"method": "POST", "path": "ctl", "payload": step})
        time.sleep(CHANGE_SECONDS)
    if request["end"] == "vanish":
        client.kill()
        run_plain({"method": "POST", "path": "ctl", "payload": f"set {request['path']} 1000 gone"})
        log.wait_left(120)
    else:
        client.wait()
        log.wait_left(5)
    return " | ".join([*(list(notifications(client)) or [outcome.NO_ANSWER]), log.text()])


def run(request):
    if "steps" in request:
        return run_observe(request)
    return run_separate(request) if request.get("separate") else run_plain(request)


def main():
    for name, request in outcome.cases("libcoap"):
        try:
            outcome.tell(name, run(request))
        except Exception as error:  # the other cases go on
            outcome.tell(name, f"broken: {error!r}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
