"""The package's types and style, as its users' tools see them."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest
from tools import tool

PACKAGE = Path(__file__).resolve().parent.parent

COMMANDS = [
    ("mypy", "--cache-dir=/dev/null", "--python-executable", sys.executable, "src", "tests"),
    ("ruff", "check", "--no-cache", "."),
    ("ruff", "format", "--no-cache", "--check", "."),
]


@pytest.mark.parametrize("command", COMMANDS, ids=" ".join)
def test_tool_is_content(command: tuple[str, ...]) -> None:
    program, *arguments = command
    done = subprocess.run(
        [tool(program), *arguments], cwd=PACKAGE, capture_output=True, text=True, timeout=600, check=False
    )
    assert done.returncode == 0, done.stdout + done.stderr


def test_types_reach_the_user(tmp_path: Path) -> None:
    """A program with a type error is found out, through py.typed."""
    program = tmp_path / "program.py"
    program.write_text("from coaprpc import Node\nnode: int = Node()\n")
    done = subprocess.run(
        [tool("mypy"), "--strict", "--cache-dir=/dev/null", str(program)],
        cwd=tmp_path,
        env={"MYPYPATH": str(PACKAGE / "src")},
        capture_output=True,
        text=True,
        timeout=600,
        check=False,
    )
    assert 'expression has type "Node", variable has type "int"' in done.stdout
    assert (PACKAGE / "src" / "coaprpc" / "py.typed").exists()
