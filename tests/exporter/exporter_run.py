"""The exporter and its hosts, for the tests of this folder."""
import os
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

PATIENCE = 120  # seconds; a verdict never depends on less


def check(is_true, what):
    if not is_true:
        print(f"FAILED: {what}", flush=True)
        sys.exit(1)
    print(f"ok: {what}", flush=True)


def until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            check(False, what)
        time.sleep(0.05)
    check(True, what)


class Host:
    def __init__(self, program, path, num_uris):
        self.process = subprocess.Popen([program, path, str(num_uris)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        check(self.process.stdout.readline() == b"ready\n", f"a host with {num_uris} uris")

    def kill(self):
        self.process.kill()
        self.process.wait()


class Exporter:
    """Exporter runs the program with hosts of the given numbers of uris, named h0, h1, ..."""

    def __init__(self, program, server, *num_uris):
        self.folder = tempfile.mkdtemp(prefix="exporter.")
        self.server = server
        self.hosts = [Host(server, self.path(i), num) for i, num in enumerate(num_uris)]
        self.program = program
        self.others = []  # further hosts
        self.start()

    def start(self):
        sockets = [f"h{i}={self.path(i)}" for i in range(len(self.hosts))] + self.others
        self.process = subprocess.Popen([self.program, "--port", "0", *sockets], stdout=subprocess.PIPE)
        line = self.process.stdout.readline().decode()
        check(line.startswith("listening at http://127.0.0.1:"), "the exporter listens")
        self.base = line.split()[-1].rstrip("/")
        self.port = int(self.base.rsplit(":", 1)[1])

    def path(self, i):
        return os.path.join(self.folder, f"socket{i}")

    def restart(self):
        self.process.terminate()
        self.process.wait(PATIENCE)
        self.start()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        for host in self.hosts:
            host.kill()
        self.process.terminate()
        status = self.process.wait(PATIENCE)
        shutil.rmtree(self.folder)
        check(status == 0, "the exporter ends when asked to")

    def get(self, path, **headers):
        """Returns status, headers and text."""
        request = urllib.request.Request(self.base + path, headers=headers)
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return answer.status, answer.headers, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.headers, error.read().decode()

    def is_up(self, i=0):
        return f'"h{i}" up' in self.get("/healthz")[2]
