"""What the tests share."""

from __future__ import annotations

import asyncio
import socket
from collections.abc import Awaitable, Callable

import pytest

PATIENCE = 120  # seconds; ends a test that hangs


def free_port(host: str = "127.0.0.1") -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind((host, 0))
        port: int = probe.getsockname()[1]
        return port


@pytest.fixture
def port() -> int:
    return free_port()


def _run_to_end(function: Callable[[], Awaitable[None]], debug: bool | None = None) -> None:
    async def within_patience() -> None:
        async with asyncio.timeout(PATIENCE):
            await function()

    asyncio.run(within_patience(), debug=debug)


Run = Callable[[Callable[[], Awaitable[None]]], None]


@pytest.fixture
def run() -> Run:
    """Runs an async function to its end."""
    return _run_to_end


@pytest.fixture
def run_often() -> Run:
    """The same without asyncio's debug mode, which takes most of the time of what is done often."""
    return lambda function: _run_to_end(function, debug=False)
