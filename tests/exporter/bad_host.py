"""A console's socket that does what no host does, for the tests of this folder."""
import socket
import threading
import time


class BadHost:
    """BadHost greets, and answers what is asked of it; a command of its is run as `run(client)` says."""

    def __init__(self, path, run=None, greets_only=False):
        self.run, self.greets_only = run, greets_only
        self.is_running = threading.Event()
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client, _ = self.listener.accept()
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        try:
            client.sendall(b"* kestrel-console 1\n")
            for line in client.makefile("rb"):
                if not self.greets_only:
                    self.answer(client, line)
        except ConnectionError:
            pass

    def answer(self, client, line):
        if line == b"commands\n":
            client.sendall(b"c shop\tdisp x\n")
        elif line == b"objects\n":
            client.sendall(b"o shop\n")
        elif line.startswith(b"run "):
            self.is_running.set()
            self.run(client)
        if line != b"stop\n":
            client.sendall(b". 0 success\n")


def for_ever(line, pause=0):
    def run(client):
        while True:
            client.sendall(line)
            time.sleep(pause)
    return run


ENDLESS_ROWS = for_ever(b"= r[0]: uri(a)/n(1)\n" * 1000)
ENDLESS_LINE = for_ever(b"- " + b"x" * 30000 + b"\n")
ENDLESS_ERRORS = for_ever(b"! " + b"x" * 30000 + b"\n")
SLOW_ROWS = for_ever(b"= r[0]: uri(a)/n(1)\n", 1)
