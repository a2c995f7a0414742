"""Programs that know nothing of the library, on either side: aiocoap, and libcoap's own tools."""

from __future__ import annotations

import asyncio
import shutil
from collections.abc import AsyncIterator
from contextlib import asynccontextmanager
from pathlib import Path

import pytest
from conftest import Run
from tools import aiocoap

from coaprpc import ErrorReply, Node, Request, Response, record

HERE = Path(__file__).resolve().parent


@record("!H")
class Key:
    number: int


@asynccontextmanager
async def program(*command: object, ready: bytes = b"") -> AsyncIterator[asyncio.subprocess.Process]:
    """A program that runs until the end of the block, from when it has said that it is ready."""
    process = await asyncio.create_subprocess_exec(
        *map(str, command), stdin=asyncio.subprocess.PIPE, stdout=asyncio.subprocess.PIPE, env={}
    )
    assert process.stdout is not None
    while ready and ready not in await process.stdout.readline():
        assert process.returncode is None
    try:
        yield process
    finally:
        if process.returncode is None:
            process.kill()
        await process.communicate()


async def output_of(*command: object) -> str:
    async with program(*command) as process:
        out, _ = await process.communicate()
        return out.decode()


def serve_everything(node: Node) -> None:
    node.serve("upper")(lambda request: request.text.upper() + request.query.get("a", ""))
    node.serve("json")(lambda request: Response.json({"a": 1}))
    node.serve("fails")(lambda request: Response("no", 404))

    @node.serve("later")
    async def later(request: Request) -> bytes:
        await asyncio.sleep(0.01)
        return request.payload

    table = node.table("rows", Key, Key)

    @node.serve("change")
    def change(request: Request) -> None:
        table[Key(1)] = Key(2)


def test_aiocoap_asks(run: Run, port: int) -> None:
    python = aiocoap()

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            serve_everything(node)
            said = await output_of(python, HERE / "aiocoap_client.py", f"coap://127.0.0.1:{port}")
        lines = said.splitlines()
        assert lines[:6] == [
            "upper?a=b 2.05 None b'b' 1",
            "upper 2.04 None b'HI' 2",
            "later 2.04 None b'xxxxxxxxxxxxxxxxxxxx' 5000",
            "upper 4.05 None b'Method Not Allowed' 18",
            "json 2.05 50 b'{\"a\":1}' 7",
            "fails 4.04 None b'no' 2",
        ]
        assert lines[6].startswith(".well-known/core 2.05")
        assert lines[7:] == ["rows 2.05 60", "change 2.04 None b'' 0", "note True"]

    run(main)


def test_aiocoap_is_asked(run: Run, port: int) -> None:
    python = aiocoap()

    async def main() -> None:
        async with program(python, HERE / "aiocoap_server.py", port, ready=b"ready"), Node() as node:
            url = f"coap://127.0.0.1:{port}"
            reply = await node.call(f"{url}/upper")
            assert (reply.code, reply.text, reply.content_format, reply.etag) == (205, "text", 0, b"v1")
            assert (await node.call(f"{url}/upper", b"x" * 5000)).payload == b"X" * 5000
            assert (await node.call(f"{url}/later", b"x")).text == "later"
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"{url}/upper", method="DELETE")
            assert caught.value.code == 405
            notes = node.observe(f"{url}/counter")
            assert (await anext(notes)).text == "0"
            await node.call(f"{url}/counter", method="POST")
            assert (await anext(notes)).text == "1"
            await notes.aclose()

    run(main)


def libcoap(name: str) -> str:
    for program_name in (f"{name}-notls", name):
        if shutil.which(program_name):
            return program_name
    pytest.skip(f"no {name} (package libcoap3-bin)")


def test_libcoap_asks(run: Run, port: int) -> None:
    client = libcoap("coap-client")

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            serve_everything(node)
            url = f"coap://127.0.0.1:{port}"
            said = await asyncio.gather(
                output_of(client, "-m", "get", f"{url}/upper?a=b"),
                output_of(client, "-m", "post", "-e", "hi", f"{url}/upper"),
                output_of(client, "-m", "post", "-e", "x" * 3000, f"{url}/later"),
                output_of(client, "-N", "-m", "get", f"{url}/json"),
            )
        assert [text.strip() for text in said] == ["b", "HI", "x" * 3000, '{"a":1}']

    run(main)


def test_libcoap_is_asked(run: Run, port: int) -> None:
    server = libcoap("coap-server")

    async def main() -> None:
        async with program(server, "-A", "127.0.0.1", "-p", port, "-d", "10"), Node() as node:
            url = f"coap://127.0.0.1:{port}"
            while True:
                try:
                    core = await node.call(f"{url}/.well-known/core")
                    break
                except ConnectionError:  # it has only just been started
                    await asyncio.sleep(0.01)
            assert (core.code, core.content_format) == (205, 40)
            reply = await node.call(f"{url}/new", b"made", method="PUT", content_format=0)
            assert reply.code == 201
            assert (await node.call(f"{url}/new")).text == "made"
            times = node.observe(f"{url}/time")
            first, second = (await anext(times)).text, (await anext(times)).text
            assert first != second
            await times.aclose()
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"{url}/none")
            assert (caught.value.code, caught.value.text) == (404, "Not Found")

    run(main)
