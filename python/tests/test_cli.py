"""python -m coaprpc, as people type it."""

from __future__ import annotations

import array
import asyncio
import bisect
import fcntl
import json
import os
import signal
import sys
import termios
from pathlib import Path
from typing import Any

import pytest
from conftest import Run

from coaprpc import Method, Node, Reply, Request, Response, record
from coaprpc.__main__ import _say, _shown
from coaprpc.__main__ import main as command_line


@record("!H")
class Key:
    number: int


@record("!4sB")
class Text:
    text: str
    number: int


async def start(*arguments: object, **options: Any) -> asyncio.subprocess.Process:
    env = dict(os.environ)
    if "COAPRPC_PRELOAD" in env:
        env["LD_PRELOAD"] = env["COAPRPC_PRELOAD"]
    return await asyncio.create_subprocess_exec(
        sys.executable,
        "-W",
        "error",
        "-m",
        "coaprpc",
        *map(str, arguments),
        env=env,
        **{"stdout": asyncio.subprocess.PIPE, "stderr": asyncio.subprocess.PIPE, **options},
    )


async def say(*arguments: object, data: bytes | None = None) -> tuple[int | None, list[Any], str]:
    """Runs it to its end: the status, the lines of JSON, and what it complained of."""
    process = await start(*arguments, stdin=asyncio.subprocess.PIPE if data is not None else None)
    out, err = await process.communicate(data)
    return process.returncode, [json.loads(line) for line in out.splitlines()], err.decode()


def without_times(line: dict[str, Any]) -> dict[str, Any]:
    return {name: value for name, value in line.items() if name not in ("ms", "max_age")}


def test_answers_are_lines_of_json(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("echo")(
                lambda request: Response(request.payload, content_format=request.content_format)
            )
            node.serve("version")(lambda request: Response.json({"v": request.accept}))
            node.serve("raw")(lambda request: Response(b"\xff\0", etag=b"\1\2", location_path="a/b"))
            url = f"coap://127.0.0.1:{port}"
            results = await asyncio.gather(
                say("post", f"{url}/echo", "hé"),
                say("post", f"{url}/echo", "-", "--format", 50, data=b"[1]"),
                say("get", f"coap://localhost:{port}/version", "--accept", 50),
                say("post", f"{url}/raw"),
                say("get", f"{url}/none"),
            )
        assert [(status, [*map(without_times, lines)], err) for status, lines, err in results] == [
            (0, [{"code": "2.04", "payload": "hé"}], ""),
            (0, [{"code": "2.04", "payload": [1], "format": 50}], ""),
            (0, [{"code": "2.05", "payload": {"v": 50}, "format": 50}], ""),
            (0, [{"code": "2.04", "payload_hex": "ff00", "etag": "0102", "location": "a/b"}], ""),
            (1, [{"code": "4.04", "payload": "Not Found"}], ""),
        ]

    run(main)


def test_nobody_there_and_wrong_arguments(run: Run, port: int) -> None:
    async def main() -> None:
        refused, bad_url, bad_host, bad_command = await asyncio.gather(
            say("get", f"coap://127.0.0.1:{port}/a"),
            say("get", f"http://127.0.0.1:{port}/a"),
            say("get", "coap://no.such.host.invalid/a"),
            say("head", f"coap://127.0.0.1:{port}/a"),
        )
        assert refused[0] == 1
        assert refused[1] == [{"error": "CallUnreachable", "text": "the peer cannot be reached"}]
        assert [result[0] for result in (bad_url, bad_host, bad_command)] == [2, 2, 2]
        assert "not of the form coap://" in bad_url[2]

    run(main)


def test_observe_shows_changes_until_it_is_interrupted(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("t", Key, Key)
            url = f"coap://127.0.0.1:{port}/t?_sync=1"
            watching = await start("observe", url)
            counting = asyncio.create_task(say("observe", url, "--count", 1))
            assert watching.stdout is not None
            first = json.loads(await watching.stdout.readline())
            table[Key(1)] = Key(2)
            second = json.loads(await watching.stdout.readline())
            assert (first["code"], first["format"]) == ("2.05", 60)
            assert "4200014200 02".replace(" ", "") in second["payload_hex"]
            watching.send_signal(signal.SIGINT)
            _, err = await watching.communicate()
            assert (watching.returncode, err) == (130, b"")
            status, lines, _ = await counting
            assert (status, len(lines)) == (0, 1)

    run(main)


def test_mirror_shows_a_table_and_its_changes(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("t", Key, Text)
            table[Key(1)] = Text("a", 2)
            url = f"coap://127.0.0.1:{port}/t"
            layouts = ("--key", "!H", "--value", "!4sB")
            status, lines, err = await say("mirror", url, *layouts, "--once")
            assert (status, err) == (0, "")
            assert lines == [{"change": "added", "key": [1], "value": ["a", 2]}, {"synced": 1}]
            refused, lines, _ = await say("mirror", url, "--key", "!I", "--value", "!4sB")
            assert (refused, lines[0]["error"]) == (1, "CoapRpcError")
            assert (await say("mirror", url, "--key", "H", "--value", "!4sB"))[0] == 2
            watching = await start("mirror", url, *layouts)
            assert watching.stdout is not None
            for expected in ("added", "synced"):
                assert expected in (await watching.stdout.readline()).decode()
            table[Key(1)] = Text("b", 3)
            changed = {"change": "changed", "key": [1], "value": ["b", 3]}
            assert json.loads(await watching.stdout.readline()) == changed
            del table[Key(1)]
            assert json.loads(await watching.stdout.readline())["change"] == "removed"
            watching.send_signal(signal.SIGINT)
            _, err_bytes = await watching.communicate()
            assert (watching.returncode, err_bytes) == (130, b"")

    run(main)


@record("!4sd")
class Strange:
    data: bytes
    number: float


def test_what_json_has_not_is_hexadecimal_or_text(run: Run, port: int) -> None:
    bodies = [b"{no", b"[NaN]", b"[1e999]", b"[" * 20000 + b"]" * 20000, b"1" * 5000]

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("json")(lambda request: Response(bodies[int(request.query["n"])], content_format=50))
            node.table("t", Key, Strange)[Key(1)] = Strange(b"\xff\0\0\1", float("nan"))
            url = f"coap://127.0.0.1:{port}"
            results = await asyncio.gather(*(say("get", f"{url}/json?n={n}") for n in range(len(bodies))))
            layouts = ("--key", "!H", "--value", "!4sd")
            status, lines, err = await say("mirror", f"{url}/t", *layouts, "--once")
        for (result, [line], complaint), body in zip(results, bodies, strict=True):
            assert (result, line["payload_hex"], complaint) == (0, body.hex(), "")
        assert (status, lines[0]["value"], err) == (0, [{"hex": "ff000001"}, "nan"], "")

    run(main)


def test_json_of_any_depth_is_shown_in_some_way(capfd: pytest.CaptureFixture[str]) -> None:
    """Since Python 3.12 the deepest that can be read is a level more than what a line can hold."""

    def nested(depth: int) -> Reply:
        return Reply(205, b"[" * depth + b"]" * depth, 50, None, 60, None, 0.0)

    def is_hexadecimal(depth: int) -> bool:
        return "payload_hex" in _shown(nested(depth))

    deepest = bisect.bisect_left(range(20000), True, key=is_hexadecimal)
    for depth in range(deepest - 20, deepest + 50):
        _say(_shown(nested(depth)))
    lines = capfd.readouterr().out
    assert (lines.count('"payload"') > 0, lines.count('"payload_hex"') > 0) == (True, True)
    assert len(lines.splitlines()) == 70


def test_every_method(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("m", methods=list(Method))(lambda request: f"{request.method.name} {request.text}")
            url = f"coap://127.0.0.1:{port}/m"
            data = [say(name, url, "x", "--format", 0) for name in ("post", "put", "fetch")]
            lines = await asyncio.gather(*data, say("delete", url))
        said = [line["payload"] for _, [line], _ in lines]
        assert said == ["POST x", "PUT x", "FETCH x", "DELETE "]
        assert [status for status, _, _ in lines] == [0, 0, 0, 0]

    run(main)


@pytest.mark.parametrize(
    "arguments",
    [
        "get coap://",
        "get coap://me@127.0.0.1/a",
        "get coap://127.0.0.1:99999/a",
        "get coap://127.0.0.1:x/a",
        "get coap://[::1/a",
        "get coap://127.0.0.1/a#b",
        "get coap://..../a",
        "get coap://127.0.0.1/a --timeout 0",
        "get coap://127.0.0.1/a --timeout nan",
        "get coap://127.0.0.1/a --timeout 1e10",
        "get coap://127.0.0.1/a --accept -1",
        "post coap://127.0.0.1/a x --format 65536",
        "observe coap://127.0.0.1/a --count 0",
        "mirror coap://127.0.0.1/a --key !H --value !H --timeout -1",
        "mirror coap://127.0.0.1/a --key !H --value !999999999999s",
        "mirror coap://127.0.0.1/a?b --key !H --value !H",
        "delete coap://127.0.0.1/a data",
        "",
    ],
)
def test_wrong_arguments_are_said_in_a_line(capsys: pytest.CaptureFixture[str], arguments: str) -> None:
    with pytest.raises(SystemExit) as caught:
        command_line(arguments.split())
    out, err = capsys.readouterr()
    assert (caught.value.code, out) == (2, "")
    assert "error: " in err.splitlines()[-1]


@pytest.mark.parametrize("where", ["closed pipe", "/dev/full"])
def test_output_that_fails_ends_it(run: Run, port: int, where: str) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: "x" * 60000)
            reader, writer = os.pipe()
            os.close(reader)
            out = writer if where == "closed pipe" else os.open(where, os.O_WRONLY)
            process = await start("get", f"coap://127.0.0.1:{port}/a", stdout=out)
            _, err = await process.communicate()
        for fd in {out, writer}:
            os.close(fd)
        assert process.returncode == 1
        assert err == (b"" if where == "closed pipe" else b"coaprpc: [Errno 28] No space left on device\n")

    run(main)


def test_no_standard_output(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: "a")
            process = await start("get", f"coap://127.0.0.1:{port}/a", preexec_fn=lambda: os.close(1))
            _, err = await process.communicate()
        assert (process.returncode, err) == (1, b"coaprpc: [Errno 9] there is no standard output\n")

    run(main)


def is_pending(pid: int) -> bool:
    """Whether a process has not seen a signal that it was sent."""
    return "ShdPnd:\t0000000000000000" not in Path(f"/proc/{pid}/status").read_text()


def test_line_that_waits_is_written_to_its_end_when_interrupted(run: Run, port: int) -> None:
    async def main() -> None:
        reader, writer = os.pipe()
        async with Node("127.0.0.1", port) as node:

            @node.serve("a")
            async def large(request: Request) -> str:
                return "x" * 400_000

            process = await start("get", f"coap://127.0.0.1:{port}/a", stdout=writer)
            os.close(writer)
            waiting = array.array("i", [0])
            while waiting[0] < fcntl.fcntl(reader, fcntl.F_GETPIPE_SZ):
                await asyncio.sleep(0.01)
                fcntl.ioctl(reader, termios.FIONREAD, waiting)
            process.send_signal(signal.SIGINT)
            while is_pending(process.pid):
                await asyncio.sleep(0.01)
            with os.fdopen(reader, "rb") as pipe:
                out = await asyncio.to_thread(pipe.read)
            await process.wait()
        assert json.loads(out)["payload"] == "x" * 400_000

    run(main)


def test_data_that_no_call_takes_is_not_read_for_ever(run: Run, port: int) -> None:
    async def main() -> None:
        endless = os.open("/dev/zero", os.O_RDONLY)
        process = await start("post", f"coap://127.0.0.1:{port}/a", "-", stdin=endless)
        os.close(endless)
        out, _ = await process.communicate()
        assert (process.returncode, json.loads(out)["error"]) == (1, "CoapRpcError")

    run(main)


def test_no_standard_input(run: Run, port: int) -> None:
    async def main() -> None:
        process = await start("post", f"coap://127.0.0.1:{port}/a", "-", preexec_fn=lambda: os.close(0))
        _, err = await process.communicate()
        assert process.returncode == 2
        assert err.endswith(b"error: there is no standard input\n")

    run(main)


def test_interrupted_and_too_late(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            asked = asyncio.Event()

            @node.serve("never")
            async def never(request: Request) -> None:
                asked.set()
                await asyncio.sleep(1000)

            url = f"coap://127.0.0.1:{port}/never"
            assert (await say("get", url, "--timeout", "0.1"))[:2] == (
                1,
                [{"error": "CallTimeout", "text": "no answer in time"}],
            )
            asked.clear()
            waiting = await start("get", url)
            await asked.wait()
            waiting.send_signal(signal.SIGINT)
            assert await waiting.communicate() == (b"", b"")
            assert waiting.returncode == 130

    run(main)


def test_ipv6(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("::1", port) as node:
            node.serve("a")(lambda request: "six")
            for url in (f"coap://[::1]:{port}/a", f"[::1]:{port}/a"):
                status, lines, err = await say("get", url)
                assert (status, lines[0]["payload"], err) == (0, "six", "")

    run(main)


@pytest.mark.parametrize("argument", ["--help", "get --help"])
def test_help(run: Run, argument: str) -> None:
    async def main() -> None:
        process = await start(*argument.split())
        out, _ = await process.communicate()
        assert process.returncode == 0
        assert b"usage: python -m coaprpc" in out

    run(main)


def test_request_reaches_the_handler_as_it_is_typed(run: Run, port: int) -> None:
    seen: list[Request] = []

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("note")(seen.append)
            await say("post", f"coap://127.0.0.1:{port}/note?a=b", "text", "--format", "0", "--timeout", "9")

    run(main)
    assert [(request.text, request.content_format, request.query) for request in seen] == [
        ("text", 0, {"a": "b"})
    ]
