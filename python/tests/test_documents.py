"""The examples of the documents: they run, and print what they say."""

from __future__ import annotations

import ast
import asyncio
import contextlib
import inspect
import io
import os
import re
import shutil
import sys
from collections.abc import AsyncIterator
from contextlib import AbstractAsyncContextManager
from pathlib import Path
from typing import Any

import pytest
from conftest import Run

ROOT = Path(__file__).resolve().parents[2]
EXAMPLES = Path(os.environ["COAPRPC_EXAMPLES"])
README, DOCUMENT = ROOT / "README.md", ROOT / "docs" / "python.md"
PROGRAM = re.compile(r"<!-- (\S+\.py) -->\n```python\n(.*?)```", re.DOTALL)
PROGRAM_IN_CPP = re.compile(r"<!-- (\S+\.cpp) -->\n```cpp\n(.*?)```", re.DOTALL)
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


@contextlib.asynccontextmanager
async def running(*command: str) -> AsyncIterator[asyncio.StreamReader]:
    """A program's output, until the end of the block."""
    env = dict(os.environ)
    env.pop("LD_PRELOAD", None)  # Python's; a program in C++ has its own sanitizer
    if command[0] == sys.executable and "COAPRPC_PRELOAD" in env:
        env["LD_PRELOAD"] = env["COAPRPC_PRELOAD"]
    process = await asyncio.create_subprocess_exec(*command, env=env, stdout=asyncio.subprocess.PIPE)
    assert process.stdout is not None
    try:
        yield process.stdout
    finally:
        with contextlib.suppress(ProcessLookupError):
            process.kill()
        await process.communicate()


def program_of(pattern: re.Pattern[str], name: str) -> str:
    program: str = dict(pattern.findall(README.read_text()))[name]
    assert len([line for line in program.splitlines() if line]) <= 20
    return program


def python(*arguments: str) -> AbstractAsyncContextManager[asyncio.StreamReader]:
    """The README's program in Python."""
    return running(sys.executable, "-X", "dev", "-c", program_of(PROGRAM, "hello.py"), *arguments)


async def says_python(said: asyncio.StreamReader, value: int) -> None:
    assert await said.readline() == b"HELLO\n"
    change = f"Change(key=Port(number=1), old=None, new=Port(number={value}))\n"
    assert await said.readline() == change.encode()


def cpp(*arguments: str) -> AbstractAsyncContextManager[asyncio.StreamReader]:
    """The README's program in C++, which the build has extracted."""
    program_of(PROGRAM_IN_CPP, "twin.cpp")
    program = EXAMPLES / "readme_twin"
    stdbuf = shutil.which("stdbuf")
    if not program.exists() or not stdbuf:
        pytest.skip(f"no {program.name}: build the examples")
    return running(stdbuf, "-oL", str(program), *arguments)


async def says_cpp(said: asyncio.StreamReader, value: int) -> None:
    assert await said.readline() == f"1: {value}\n".encode()
    assert await said.readline() == b"HELLO\n"


def test_program_serves_calls_and_mirrors(run: Run) -> None:
    async def main() -> None:
        async with python("127.0.0.2", "127.0.0.3") as first, python("127.0.0.3", "127.0.0.2") as second:
            await says_python(first, 3)
            await says_python(second, 2)

    run(main)


@pytest.mark.parametrize("cpp_is_first", [True, False])
def test_both_languages_serve_call_and_mirror_each_other(run: Run, cpp_is_first: bool) -> None:
    async def main() -> None:
        async with contextlib.AsyncExitStack() as stack:
            said = {}
            for program in (cpp, python) if cpp_is_first else (python, cpp):
                ends = ("127.0.0.2", "127.0.0.3") if program is cpp else ("127.0.0.3", "127.0.0.2")
                said[program] = await stack.enter_async_context(program(*ends))
            await says_cpp(said[cpp], 3)
            await says_python(said[python], 2)

    run(main)
