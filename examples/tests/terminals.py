"""terminals.py <document> <name> <language> <language>: plays the terminals of a document.

Types what a block of the document types, into terminals of its own, and compares all that they show with
what the block shows.  The first language is that of terminal 1, the second one of all others: cpp, or
python, where "./name" is "python3 name.py" and nothing is compiled.

Runs in the current folder.  Environment: TERMINALS_PATH has the folders where programs are looked for first;
TERMINALS_BUILT is set when the programs are there and lines with g++ are to be left out.
"""

from __future__ import annotations

import os
import pty
import re
import select
import signal
import struct
import sys
import termios
import time
from fcntl import ioctl
from pathlib import Path

PATIENCE = float(os.environ.get("TERMINALS_PATIENCE", "800"))  # seconds; ends a test that hangs
PROMPT = b"\x02"
ROWS, COLUMNS = 50, 100
CONTINUED = "\x1e"  # stands for a line feed in a command
PROGRAM = re.compile(r"\./(\w+)")


class Failed(Exception):
    """A terminal does not show what the document shows."""


def block_of(document: Path, name: str) -> list[str]:
    text = document.read_text(encoding="utf-8")
    found = re.search(rf"<!-- {name}\.terminals -->\n```\n(.*?)```", text, re.DOTALL)
    if not found:
        raise Failed(f"{document} has no terminals of {name}")
    return found[1].replace("\n> ", CONTINUED).split("\n")[:-1]


def in_language(line: str, language: str) -> str:
    return PROGRAM.sub(r"python3 \1.py", line) if language == "python" else line


def become_shell() -> None:
    """Makes this process an interactive shell that neither echoes nor edits."""
    settings = termios.tcgetattr(0)
    settings[3] &= ~termios.ECHO
    termios.tcsetattr(0, termios.TCSANOW, settings)
    ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
    env = {**os.environ, "PS1": PROMPT.decode(), "PS2": "", "NO_COLOR": "1", "TERM": "dumb"}
    env["PATH"] = os.environ["TERMINALS_PATH"] + ":" + env["PATH"]
    env.pop("HISTFILE", None)
    os.execvpe("bash", ["bash", "--norc", "--noprofile", "--noediting", "-i"], env)


class Terminal:
    """A shell on a terminal: at its prompt, or running a command."""

    def __init__(self, name: str, language: str) -> None:
        self.name, self.language = name, language
        self.shown: list[str] = []
        self._bytes = b""
        self._is_at_prompt = False
        self._pid, self._fd = pty.fork()
        if self._pid == 0:
            become_shell()
        os.set_inheritable(self._fd, False)

    def type(self, command: str) -> None:
        self.wait_for_prompt()
        self._is_at_prompt = False
        self._send(command.replace(CONTINUED, "\n").encode() + b"\n")

    def interrupt(self) -> None:
        self._send(b"\x03")

    def expect(self, line: str) -> None:
        shown = self._next()
        if shown != line:
            raise Failed(f"terminal {self.name} shows {shown!r} instead of {line!r}")

    def wait_for_prompt(self) -> None:
        """All that was shown is in the document."""
        if not self._is_at_prompt and (line := self._next()) is not None:
            raise Failed(f"terminal {self.name} shows {line!r}, which the document has not")
        self._is_at_prompt = True

    def rest(self) -> str:
        """What else it shows within a second, for people."""
        try:
            while True:
                self._read(time.monotonic() + 1)
        except (Failed, OSError):
            return self._bytes.decode(errors="replace").replace("\r", "")

    def close(self) -> None:
        os.kill(self._pid, signal.SIGHUP)  # which the shell passes on to what it runs
        os.close(self._fd)
        os.waitpid(self._pid, 0)

    def _send(self, data: bytes) -> None:
        os.write(self._fd, data)

    def _next(self) -> str | None:
        """The next line that is not empty; None for the prompt."""
        end = time.monotonic() + PATIENCE
        while (found := re.match(rb"(?:\r*\n)*(?:(\x02)|([^\n\x02]+)\r*\n)", self._bytes)) is None:
            self._read(end)
        self._bytes = self._bytes[found.end() :]
        if found[1]:
            return None
        line = found[2].decode(errors="replace").rstrip("\r ")
        self.shown.append(line)
        return line if line else self._next()

    def _read(self, end: float) -> None:
        ready, _, _ = select.select([self._fd], [], [], max(0.0, end - time.monotonic()))
        if not ready:
            raise Failed(f"terminal {self.name} shows nothing more but {self._bytes!r}")
        self._bytes += os.read(self._fd, 65536)


class Play:
    """The terminals of one block."""

    def __init__(self, languages: tuple[str, str], is_built: bool) -> None:
        self._languages = languages
        self._is_built = is_built
        self._terminals: dict[str, Terminal] = {}
        self._at: Terminal | None = None

    def run(self, lines: list[str]) -> None:
        for line in lines:
            self._step(line)
        for terminal in self._terminals.values():
            terminal.wait_for_prompt()

    def _step(self, line: str) -> None:
        if line.startswith("# terminal "):
            self._at = self._terminal(line.removeprefix("# terminal "))
            return
        if self._at is None:
            raise Failed(f"no terminal is named before {line!r}")
        if line == "^C":
            self._at.interrupt()
        elif line.startswith("$ "):
            self._type(self._at, line.removeprefix("$ "))
        else:
            self._at.expect(line)

    def _terminal(self, name: str) -> Terminal:
        if name not in self._terminals:
            self._terminals[name] = Terminal(name, self._languages[name != "1"])
        return self._terminals[name]

    def _type(self, terminal: Terminal, command: str) -> None:
        if command.startswith("g++ ") and (self._is_built or self._languages == ("python", "python")):
            return
        terminal.type(in_language(command, terminal.language))

    def log(self) -> str:
        return "\n".join(
            "\n  ".join([f"terminal {terminal.name} ({terminal.language}):", *terminal.shown, terminal.rest()])
            for terminal in self._terminals.values()
        )

    def close(self) -> None:
        for terminal in self._terminals.values():
            terminal.close()


def main(document: str, name: str, first: str, others: str) -> int:
    play = Play((first, others), "TERMINALS_BUILT" in os.environ)
    try:
        play.run(block_of(Path(document), name))
    except (Failed, OSError) as error:
        print(f"FAILED: {error}\n{play.log()}")
        return 1
    finally:
        play.close()
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
