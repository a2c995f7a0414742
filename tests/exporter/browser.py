"""A headless browser that a script drives, by the browser's own protocol over two pipes."""
import base64
import fcntl
import json
import os
import select
import shutil
import subprocess
import tempfile
import time

PATIENCE = 120


def moved_up(descriptor):
    copy = fcntl.fcntl(descriptor, fcntl.F_DUPFD, 10)
    os.close(descriptor)
    return copy


class Browser:
    """Browser has one page open.  `errors` are the errors of its scripts so far."""

    @staticmethod
    def program():
        return shutil.which("chromium") or shutil.which("chromium-headless-shell")

    def __init__(self, url, width=1400, height=1000):
        self.profile = tempfile.mkdtemp(prefix="browser.")
        to_browser, self.to = os.pipe()
        self.back, from_browser = os.pipe()
        # The browser has its ends at 3 and 4, which ours must not be.
        to_browser, from_browser = moved_up(to_browser), moved_up(from_browser)
        command = [self.program(), "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                   "--disable-dev-shm-usage", "--disable-background-networking", "--disable-extensions",
                   f"--window-size={width},{height}", f"--user-data-dir={self.profile}",
                   "--remote-debugging-pipe", "about:blank"]
        shell = f'exec "$@" 3<&{to_browser} 4>&{from_browser} {to_browser}<&- {from_browser}>&-'
        self.process = subprocess.Popen(["bash", "-c", shell, "bash", *command],
                                        pass_fds=(to_browser, from_browser),
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.received, self.number, self.session, self.errors = b"", 0, None, []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Runtime", "Log", "Page"):
            self.call(domain + ".enable")
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=False)
        self.call("Page.navigate", url=url)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.process.kill()
        self.process.wait()
        os.close(self.to)
        os.close(self.back)
        shutil.rmtree(self.profile, ignore_errors=True)

    def call(self, method, **params):
        self.number += 1
        message = {"id": self.number, "method": method, "params": params}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.next_message()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]

    def next_message(self):
        end = time.monotonic() + PATIENCE
        while b"\0" not in self.received:
            ready, _, _ = select.select([self.back], [], [], max(0, end - time.monotonic()))
            piece = os.read(self.back, 1 << 16) if ready else b""
            if not piece:
                raise RuntimeError("the browser has gone or hangs")
            self.received += piece
        text, self.received = self.received.split(b"\0", 1)
        message = json.loads(text)
        self.note_error(message)
        return message

    def note_error(self, message):
        params = message.get("params", {})
        if message.get("method") == "Runtime.exceptionThrown":
            details = params["exceptionDetails"]
            self.errors.append(details.get("exception", {}).get("description", details["text"]))
        if message.get("method") == "Log.entryAdded" and params["entry"]["level"] == "error":
            self.errors.append(params["entry"]["text"] + " " + params["entry"].get("url", ""))

    def value(self, expression):
        """The value of a script's expression; none when it throws."""
        answer = self.call("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        return answer["result"].get("value")

    def screenshot(self, path):
        picture = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(picture))
