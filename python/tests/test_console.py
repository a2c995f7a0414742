"""A node as its operator sees it: the console's socket, and the numbers."""

from __future__ import annotations

import asyncio
from pathlib import Path

import pytest
from conftest import Run

from coaprpc import CoapRpcError, Node


async def said(path: Path, request: str) -> str:
    """What a node says to a console that sends a request."""
    reader, writer = await asyncio.open_unix_connection(path)
    writer.write(request.encode())
    writer.write_eof()
    text = await reader.read()
    writer.close()
    await writer.wait_closed()
    return text.decode()


def test_console_shows_the_node_and_its_numbers(run: Run, port: int, tmp_path: Path) -> None:
    async def main() -> None:
        path = tmp_path / "console"
        async with Node("127.0.0.1", port, name="switch", console=str(path)) as node:
            node.serve("upper")(lambda request: request.text.upper())
            await node.call(f"coap://127.0.0.1:{port}/upper", "hi")
            assert "o switch" in await said(path, "objects\n")
            assert "uri(upper)" in await said(path, "run disp server resource\n")
            assert "name(in.requests)/of(post)/kind(counter)/unit(-)/value(1)" in await said(
                path, "run disp server stats\n"
            )
        assert not path.exists()

    run(main)


def test_console_that_is_served_already_raises(run: Run, tmp_path: Path) -> None:
    async def main() -> None:
        path = str(tmp_path / "console")
        async with Node(console=path):
            with pytest.raises(CoapRpcError, match="no console at"):
                await Node(console=path).__aenter__()

    run(main)
