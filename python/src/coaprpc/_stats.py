"""The numbers of a node, as the library counts them."""

from __future__ import annotations

from typing import Any

from ._native import ffi, lib

_HEAD = ("size", "version")


def _plain(value: Any) -> Any:
    """A number, a list of an array, or a dict of a record."""
    if isinstance(value, int):
        return value
    kind = ffi.typeof(value)
    if kind.kind == "array":
        return [_plain(item) for item in value]
    return _record(value, kind)


def _record(value: Any, kind: Any) -> dict[str, Any]:
    return {name: _plain(getattr(value, name)) for name, _ in kind.fields if name not in _HEAD}


def read_stats(ctx: Any) -> dict[str, Any]:
    """All numbers, by the names of coap_rpc_stats.h."""
    stats = ffi.new("CoapRpcStats *", {"size": ffi.sizeof("CoapRpcStats")})
    lib.COAP_RpcGetStats(ctx, stats)
    return _record(stats, ffi.typeof("CoapRpcStats"))
