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
from test_peers import libcoap, output_of, program
from tools import aiocoap

import coaprpc
from coaprpc import Node

ROOT = Path(__file__).resolve().parents[2]
HERE = Path(__file__).resolve().parent
EXAMPLES = Path(os.environ["COAPRPC_EXAMPLES"])
README, DOCUMENT = ROOT / "README.md", ROOT / "docs" / "python.md"
PROGRAM = re.compile(r"<!-- (\S+\.py) -->\n```python\n(.*?)```", re.DOTALL)
PROGRAM_IN_CPP = re.compile(r"<!-- (\S+\.cpp) -->\n```cpp\n(.*?)```", re.DOTALL)
EXAMPLE = re.compile(r"(?<!-->\n)```python\n(.*?)```", re.DOTALL)
PRINTED = re.compile(r"^ *print\(.*  # (.*)$", re.MULTILINE)


def example_of(text: str) -> Any:
    return compile(text, str(DOCUMENT), "exec", flags=ast.PyCF_ALLOW_TOP_LEVEL_AWAIT)


def examples() -> list[str]:
    """Those of the page, in order: the node, handlers, calls and so on; the last one closes the node."""
    found: list[str] = EXAMPLE.findall(DOCUMENT.read_text())
    assert len(found) >= 8
    return found


async def tell(example: str, names: dict[str, Any]) -> None:
    """Runs an example, which prints what it says."""
    said = io.StringIO()
    with contextlib.redirect_stdout(said):
        result = eval(example_of(example), names)
        if inspect.isawaitable(result):
            await result
    assert said.getvalue().splitlines() == PRINTED.findall(example)


def test_examples_print_what_they_say(run: Run) -> None:
    async def main() -> None:
        names: dict[str, Any] = {"__name__": "__main__"}
        for example in examples():
            await tell(example, names)

    run(main)


def example_with(text: str) -> str:
    [example] = [example for example in examples() if text in example]
    return example


def test_aiocoap_asks_what_the_page_serves(run: Run) -> None:
    async def main() -> None:
        names: dict[str, Any] = {"__name__": "__main__"}
        for text in ("import asyncio", '@node.serve("upper")', "class Port", "node.table("):
            await tell(example_with(text), names)
        said = await output_of(aiocoap(), HERE / "aiocoap_page.py", "ask")
        await tell(examples()[-1], names)
        assert said.splitlines() == [
            "2.04  HI",
            "2.01 rows ",
            '2.05  {"name":"a","value":"1"}',
            "4.04  no such row",
            "2.04  x",
            *[line for line in said.splitlines() if line.startswith('2.05  [{"key": {"number": 1,')],
        ]
        assert len(said.splitlines()) == 6

    run(main)


def test_libcoap_asks_what_the_page_serves(run: Run) -> None:
    client = libcoap("coap-client")

    async def main() -> None:
        names: dict[str, Any] = {"__name__": "__main__"}
        for text in ("import asyncio", '@node.serve("upper")', "class Port", "node.table("):
            await tell(example_with(text), names)
        said = [
            await output_of(client, "-B", "60", "-m", method, *data, f"coap://127.0.0.4/{path}")
            for method, data, path in (
                ("post", ("-e", "hi"), "upper"),
                ("put", ("-e", "1"), "rows?name=a"),
                ("get", (), "rows?name=a"),
                ("post", ("-e", "x"), "slow"),
            )
        ]
        await tell(examples()[-1], names)
        assert [text.strip() for text in said] == ["HI", "", '{"name":"a","value":"1"}', "x"]

    run(main)


def test_calls_of_the_page_are_answered_by_aiocoap(run: Run) -> None:
    async def main() -> None:
        page = program(aiocoap(), HERE / "aiocoap_page.py", "serve", ready=b"ready")
        async with page, Node("127.0.0.5") as node:
            names = {**vars(coaprpc), "node": node}
            await tell(example_with('await node.call("coap://127.0.0.4/upper", "hi", timeout=2)'), names)
            await tell(example_with("node.observe("), names)

    run(main)


def test_program_ends_when_nobody_is_there(run: Run) -> None:
    async def main() -> None:
        alone = await start(*python_hello("127.0.0.4", "127.0.0.5", "0.5"), stderr=asyncio.subprocess.PIPE)
        _, said = await alone.communicate()
        assert said.strip() == b"nobody is there"
        assert alone.returncode == 1

    run(main)


async def start(*command: str, stderr: int | None = None) -> asyncio.subprocess.Process:
    env = dict(os.environ)
    env.pop("LD_PRELOAD", None)  # Python's; a program in C++ has its own sanitizer
    if command[0] == sys.executable and "COAPRPC_PRELOAD" in env:
        env["LD_PRELOAD"] = env["COAPRPC_PRELOAD"]
    return await asyncio.create_subprocess_exec(
        *command, env=env, stdout=asyncio.subprocess.PIPE, stderr=stderr
    )


@contextlib.asynccontextmanager
async def running(*command: str) -> AsyncIterator[asyncio.StreamReader]:
    """A program's output, until the end of the block."""
    process = await start(*command)
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


def python_hello(*arguments: str) -> tuple[str, ...]:
    return (sys.executable, "-X", "dev", "-c", program_of(PROGRAM, "hello.py"), *arguments)


def python(*arguments: str) -> AbstractAsyncContextManager[asyncio.StreamReader]:
    """The README's program in Python."""
    return running(*python_hello(*arguments))


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
