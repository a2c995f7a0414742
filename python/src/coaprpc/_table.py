"""Tables: sets of tuples that mirrors copy exactly.

The rows are kept here as bytes, so that the table can be read; the library has its own copy, from which it
serves.  A row that the library refuses is not kept.
"""

from __future__ import annotations

import asyncio
import json
from collections.abc import Iterator, Mapping, MutableMapping
from dataclasses import dataclass
from typing import Any, TypeVar
from weakref import WeakValueDictionary

from ._errors import NodeClosed, check
from ._instance import logger
from ._native import ffi, lib
from ._record import Codec, codec_of
from ._request import JSON, Method, Request, Response
from ._serve import Entry, Server, direct_param, new_key

K = TypeVar("K")
V = TypeVar("V")

_ANSWER_SECONDS = 60.0


@dataclass(frozen=True, slots=True)
class TableState:
    """Where a table is, and its observers."""

    head: int
    """version of the last change"""
    confirmed: int
    """the version that every observer has, or more; 0 without observers"""
    rows: int
    observers: int
    behind: int
    """observers that have not confirmed the head"""
    digest: int


_tables: WeakValueDictionary[int, Table[Any, Any]] = WeakValueDictionary()


def _failed(_kind: object, error: BaseException, _trace: object) -> None:
    logger.error("a table cannot be told of its observers", exc_info=error)


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_confirmed(user_data: int, _version: int) -> None:
    _wake(user_data)


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_observer_num(user_data: int, _num: int) -> None:
    _wake(user_data)


@ffi.def_extern(error=1, onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_build_update(user_data: int, key: Any, value: Any, out: Any) -> int:
    return _tables[user_data].build(key, value, out)


@ffi.def_extern(error=1, onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_build_delete(user_data: int, key: Any, out: Any) -> int:
    return _tables[user_data].build(key, None, out)


def _text_function(codec: Codec[Any]) -> Any:
    """A function of C that shows keys or values: it is told their bytes alone, so each table needs its own."""

    def show(data: Any, out: Any, size: int) -> Any:
        fields = codec.plain(ffi.buffer(data, codec.size)[:]).items()
        text = ", ".join(f"{name}={value}" for name, value in fields).replace("\0", " ")
        fitting = text.encode()[: size - 1].decode(errors="ignore").encode()
        ffi.memmove(out, fitting + b"\0", len(fitting) + 1)
        return out

    return ffi.callback("CoapRpcTupleToStr", show, error=ffi.NULL, onerror=_failed)


def _set_member(out: Any, name: bytes, value: Any) -> int:
    text = json.dumps(value).encode()
    result: int = lib.COAP_RpcSerSetMember(out, name, text, len(text))
    return result


def _wake(user_data: int) -> None:
    table = _tables.get(user_data)
    if table is not None:
        table.wake()


class Table(MutableMapping[K, V]):
    """A table of a node: a dict whose changes reach every mirror."""

    def __init__(self, server: Server, path: str, key: type[K], value: type[V], window_ms: int) -> None:
        """Registers and serves the table."""
        self._instance = server.instance
        self._keys, self._values = codec_of(key), codec_of(value)
        self._check_size()
        self.path = server.reserve(path)
        self._uri = new_key(self.path.encode(), observe=1)
        self._rows: dict[bytes, bytes] = {}
        self._news = asyncio.Event()
        self._register(server)
        self._keep_versions(window_ms)
        server.attach(self._uri)

    def _check_size(self) -> None:
        if not 0 < self._keys.size <= lib.COAPRPC_MAX_KEY:
            raise ValueError(f"a key has 1 to {lib.COAPRPC_MAX_KEY} bytes, not {self._keys.size}")
        if self._keys.size + self._values.size > lib.COAP_RPC_SYNC_MAX_TUPLE:
            raise ValueError(f"key and value have at most {lib.COAP_RPC_SYNC_MAX_TUPLE} bytes")

    def _register(self, server: Server) -> None:
        entry = Entry(server, self.path, self._show, ())
        self._texts = _text_function(self._keys), _text_function(self._values)
        self._id = entry.id
        _tables[entry.id] = self
        tuples = ffi.new(
            "CoapRpcSerObVtblReg *",
            {
                "keyLen": self._keys.size,
                "valLen": self._values.size,
                "tupleKeyCmp": lib.coaprpc_key_cmp(self._keys.size),
                "keyToStr": self._texts[0],
                "valToStr": self._texts[1],
                "buildUpdate": lib.coaprpc_build_update,
                "buildDelete": lib.coaprpc_build_delete,
                "onObserverNum": lib.coaprpc_on_observer_num,
            },
        )
        server.register(self._uri, entry, tuples, is_async=True)
        direct = direct_param((Method.GET,), _ANSWER_SECONDS)
        check(lib.COAP_RpcSerSetDirect(self._instance.ctx, self._uri, direct))

    async def _show(self, _request: Request) -> Response:
        """Answers who asks for the table without its versions."""
        show_key, show_value = self._keys.plain, self._values.plain
        rows = [{"key": show_key(key), "value": show_value(value)} for key, value in self._rows.items()]
        return Response(json.dumps(rows), content_format=JSON)

    def build(self, key: Any, value: Any, out: Any) -> int:
        """Fills the element that tells plain observers of a change; no value: the row is gone."""
        data = None if value is None else ffi.buffer(value, self._values.size)[:] if value else b""
        failed = _set_member(out, b"key", self._keys.plain(ffi.buffer(key, self._keys.size)[:]))
        return failed or _set_member(out, b"value", None if data is None else self._values.plain(data))

    def _keep_versions(self, window_ms: int) -> None:
        param = ffi.new(
            "CoapRpcSerSyncParam *",
            {"windowMs": window_ms, "userData": self._id, "onConfirmed": lib.coaprpc_on_confirmed},
        )
        check(lib.COAP_RpcSerSetUriSync(self._instance.ctx, self._uri, param))

    def close(self) -> None:
        """Tells who waits that the node is closed."""
        self.wake()

    def wake(self) -> None:
        """Lets those who wait look again."""
        self._news.set()
        self._news = asyncio.Event()

    # ---- rows ----

    def __getitem__(self, key: K) -> V:
        row = self._rows.get(self._keys.pack(key))
        if row is None:
            raise KeyError(key)
        return self._values.unpack(row)

    def __setitem__(self, key: K, value: V) -> None:
        self._set(self._keys.pack(key), self._values.pack(value))

    def __delitem__(self, key: K) -> None:
        packed = self._keys.pack(key)
        if packed not in self._rows:
            raise KeyError(key)
        self._remove(packed)

    def __iter__(self) -> Iterator[K]:
        return map(self._keys.unpack, list(self._rows))

    def __len__(self) -> int:
        return len(self._rows)

    def replace(self, rows: Mapping[K, V]) -> None:
        """Makes the table equal to ``rows``; only what differs is a change.

        A key or value of wrong type or size raises, and nothing has changed.
        """
        wanted = {self._keys.pack(key): self._values.pack(value) for key, value in rows.items()}
        for key in [key for key in self._rows if key not in wanted]:
            self._remove(key)
        for key, value in wanted.items():
            self._set(key, value)

    def _set(self, key: bytes, value: bytes) -> None:
        ctx = self._instance.ctx
        if self._rows.get(key) == value:
            return
        check(lib.COAP_RpcSerObserveDataUpdate(ctx, self._uri, key, value))
        self._rows[key] = value
        self._instance.arm()

    def _remove(self, key: bytes) -> None:
        lib.COAP_RpcSerObserveDataDel(self._instance.ctx, self._uri, key)
        del self._rows[key]
        self._instance.arm()

    # ---- observers ----

    def state(self) -> TableState:
        state = ffi.new("CoapRpcSerSyncState *")
        check(lib.COAP_RpcSerGetSyncState(self._instance.ctx, self._uri, state))
        return TableState(
            head=state.head,
            confirmed=state.confirmed,
            rows=state.numLive,
            observers=state.numObservers,
            behind=state.numBehind,
            digest=state.digest,
        )

    async def confirmed(self) -> int:
        """Returns the table's version when every observer has it; at once if there is no observer."""
        version = self.state().head
        while self._is_awaited(version):
            await self._news.wait()
            if not self._instance.is_usable:
                raise NodeClosed
        return version

    def _is_awaited(self, version: int) -> bool:
        state = self.state()
        return state.observers > 0 and state.confirmed < version
