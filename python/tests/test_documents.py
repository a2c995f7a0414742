"""The examples of the documents: they run, and print what they say."""

from __future__ import annotations

import ast
import asyncio
import contextlib
import inspect
import io
import os
import re
import sys
from pathlib import Path
from typing import Any

from conftest import Run

ROOT = Path(__file__).resolve().parents[2]
README, DOCUMENT = ROOT / "README.md", ROOT / "docs" / "python.md"
PROGRAM = re.compile(r"<!-- (\S+\.py) -->\n```python\n(.*?)```", re.DOTALL)
EXAMPLE = re.compile(r"(?<!-->\n)```python\n(.*?)```", re.DOTALL)
PRINTED = re.compile(r"^ *print\(.*  # (.*)$", re.MULTILINE)


def example_of(text: str) -> Any:
    return compile(text, str(DOCUMENT), "exec", flags=ast.PyCF_ALLOW_TOP_LEVEL_AWAIT)


def test_examples_print_what_they_say(run: Run) -> None:
    examples = EXAMPLE.findall(DOCUMENT.read_text())
    assert len(examples) >= 8

    async def main() -> None:
        names: dict[str, Any] = {"__name__": "__main__"}
        for example in examples:
            said = io.StringIO()
            with contextlib.redirect_stdout(said):
                result = eval(example_of(example), names)
                if inspect.isawaitable(result):
                    await result
            assert said.getvalue().splitlines() == PRINTED.findall(example)

    run(main)


async def start(program: str, *arguments: str) -> asyncio.subprocess.Process:
    env = dict(os.environ)
    if "COAPRPC_PRELOAD" in env:
        env["LD_PRELOAD"] = env["COAPRPC_PRELOAD"]
    return await asyncio.create_subprocess_exec(
        sys.executable, "-X", "dev", "-c", program, *arguments, env=env, stdout=asyncio.subprocess.PIPE
    )


def test_program_serves_calls_and_mirrors(run: Run) -> None:
    programs = dict(PROGRAM.findall(README.read_text()))
    program = programs["hello.py"]
    assert len([line for line in program.splitlines() if line]) <= 20

    async def main() -> None:
        both = [await start(program, f"127.0.0.{a}", f"127.0.0.{b}") for a, b in ((2, 3), (3, 2))]
        try:
            for process, other in zip(both, (3, 2), strict=True):
                assert process.stdout is not None
                assert await process.stdout.readline() == b"HELLO\n"
                change = f"Change(key=Port(number=1), old=None, new=Port(number={other}))\n"
                assert await process.stdout.readline() == change.encode()
        finally:
            for process in both:
                process.kill()
                await process.communicate()

    run(main)
