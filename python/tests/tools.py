"""Programs that scripts/test puts into the cache folder."""

from __future__ import annotations

import os
from pathlib import Path

import pytest

CACHE = Path(os.environ.get("COAPRPC_CACHE", "/nonexistent"))


def tool(name: str) -> str:
    """A program of the tools for Python; the test is skipped where it is not installed."""
    path = CACHE / "python" / "bin" / name
    if not path.exists():
        pytest.skip(f"no {name} in the cache; scripts/test puts it there")
    return str(path)


def aiocoap() -> str:
    """A Python that has aiocoap; the test is skipped where it is not installed."""
    path = CACHE / "aiocoap" / "bin" / "python3"
    if not path.exists():
        pytest.skip("no aiocoap in the cache; scripts/test puts it there")
    return str(path)
