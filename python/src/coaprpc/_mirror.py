"""Mirrors: exact copies of another node's table.

The library keeps the copy; its rows are read from there.  A reader of changes has, for each key that changed
since it looked, the value that it knows: what it is told is the difference to the value of now.  So it
misses nothing that matters, however slow it is, and holds no more than the keys that it knows and those
that are there.
"""

from __future__ import annotations

import asyncio
from collections.abc import AsyncGenerator, Iterator, Mapping
from dataclasses import dataclass
from enum import IntEnum
from types import TracebackType
from typing import Any, Generic, Self, TypeVar
from weakref import WeakSet, WeakValueDictionary

from ._errors import CoapRpcError, NodeClosed, check
from ._instance import Instance, logger, new_id
from ._native import ffi, lib
from ._record import Codec, codec_of
from ._serve import milliseconds, new_key
from ._url import Url

K = TypeVar("K")
V = TypeVar("V")

_LONGEST_PATH = 63


class Status(IntEnum):
    """How a mirror is."""

    CONNECTING = lib.COAP_RPC_MIRROR_CONNECTING
    """it has heard nothing from the server so far"""
    FULL_SYNC = lib.COAP_RPC_MIRROR_FULL_SYNC
    """it reads everything"""
    SYNCED = lib.COAP_RPC_MIRROR_SYNCED
    """it equals the server's table, as far as the server has told"""
    BEHIND = lib.COAP_RPC_MIRROR_BEHIND
    """it lacks changes, and asks for them"""
    STALE = lib.COAP_RPC_MIRROR_STALE
    """the server does not answer; the rows stay as they are"""
    REFUSED = lib.COAP_RPC_MIRROR_REFUSED
    """the server has no table of such records there; the rows stay as they are"""


@dataclass(frozen=True, slots=True)
class MirrorState:
    """Where a mirror is."""

    status: Status
    code: int
    """why it is as it is; 0: nothing is wrong"""
    version: int
    """the mirror has all changes up to this one"""
    rows: int
    bytes: int
    full_syncs: int
    digest: int


@dataclass(frozen=True, slots=True)
class Change(Generic[K, V]):
    """A row that came (``old`` is None), went (``new`` is None) or has another value."""

    key: K
    old: V | None
    new: V | None

    @property
    def kind(self) -> str:
        if self.old is None:
            return "added"
        return "removed" if self.new is None else "changed"


class _Reader:
    """What one reader of changes has still to be told."""

    def __init__(self, keys: Iterator[bytes]) -> None:
        self._known: dict[bytes, bytes | None] = dict.fromkeys(keys)
        self._news = asyncio.Event()

    def note(self, key: bytes, old: bytes | None, new: bytes | None) -> None:
        if self._known.setdefault(key, old) == new:
            del self._known[key]
        self.wake()

    def wake(self) -> None:
        self._news.set()

    def take(self) -> tuple[bytes, bytes | None] | None:
        """A key that has changed, and the value that the reader knows."""
        if not self._known:
            return None
        key = next(iter(self._known))
        return key, self._known.pop(key)

    async def wait(self) -> None:
        await self._news.wait()
        self._news.clear()


_mirrors: WeakValueDictionary[int, Mirror[Any, Any]] = WeakValueDictionary()


def _failed(_kind: object, error: BaseException, _trace: object) -> None:
    logger.error("a change of a mirror is lost", exc_info=error)


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_row(user_data: int, key: Any, old: Any, new: Any) -> None:
    mirror = _mirrors.get(user_data)
    if mirror is not None:
        mirror.on_row(key, old, new)


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_mirror_state(user_data: int) -> None:
    mirror = _mirrors.get(user_data)
    if mirror is not None:
        mirror.wake()


@dataclass(frozen=True, slots=True)
class MirrorOptions:
    heartbeat: float | None
    max_bytes: int

    def fill(self, param: Any) -> None:
        param.maxBytes = self.max_bytes
        if self.heartbeat is not None:
            param.heartbeatMs = milliseconds(self.heartbeat)


class Mirror(Mapping[K, V]):
    """A copy of another node's table, inside ``async with``: a mapping that changes."""

    def __init__(
        self, room: Mirrors, url: Url, key: Codec[K], value: Codec[V], options: MirrorOptions
    ) -> None:
        self._room = room
        self._instance = room.instance
        self._url = url
        self._keys, self._values = key, value
        self._options = options
        self._id = new_id()
        self._handle: Any = None
        self._readers: WeakSet[_Reader] = WeakSet()
        self._news = asyncio.Event()

    # ---- life ----

    async def __aenter__(self) -> Self:
        if self._handle is not None:
            raise CoapRpcError(0, "the mirror is open")
        handle = ffi.new("CoapRpcMirror **")
        uri = new_key(_path_of(self._url), observe=0)
        addr, param = ffi.new("CoapRpcCallAddr *"), self._param()
        server = self._url.address
        lib.coaprpc_set_ip(ffi.addressof(addr, "dstIp"), server.ip, len(server.ip))
        addr.dstPort = server.port
        check(lib.COAP_RpcMirrorOpen(self._instance.ctx, uri, addr, param, handle))
        _mirrors[self._id] = self._room.open[self._id] = self
        self._handle = handle[0]
        self._instance.arm()
        return self

    def _param(self) -> Any:
        param = ffi.new(
            "CoapRpcMirrorParam *",
            {"keyLen": self._keys.size, "valLen": self._values.size, "userData": self._id},
        )
        lib.coaprpc_set_mirror_callbacks(param)
        self._options.fill(param)
        return param

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def close(self) -> None:
        """Ends the mirror; its rows are gone."""
        handle, self._handle = self._handle, None
        if handle is not None and self._instance.is_usable:
            self._instance.run(lib.COAP_RpcMirrorClose, handle)
        self._room.open.pop(self._id, None)
        _mirrors.pop(self._id, None)
        self.wake()

    def _open(self) -> Any:
        """The library's handle."""
        self._instance.check()
        if self._handle is None:
            raise NodeClosed("the mirror is not open")
        return self._handle

    # ---- what the library tells ----

    def on_row(self, key: Any, old: Any, new: Any) -> None:
        name = ffi.buffer(key, self._keys.size)[:]
        was, is_now = self._value(old), self._value(new)
        for reader in self._readers:
            reader.note(name, was, is_now)

    def _value(self, pointer: Any) -> bytes | None:
        return ffi.buffer(pointer, self._values.size)[:] if pointer else None

    def wake(self) -> None:
        """Lets those who wait look again."""
        self._news.set()
        self._news = asyncio.Event()
        for reader in self._readers:
            reader.wake()

    # ---- rows ----

    def _row(self, tuple_: Any) -> tuple[bytes, bytes]:
        data = ffi.buffer(tuple_, self._keys.size + self._values.size)[:]
        return data[: self._keys.size], data[self._keys.size :]

    def _find(self, key: bytes) -> bytes | None:
        found = lib.COAP_RpcMirrorFind(self._open(), key)
        return self._row(found)[1] if found else None

    def __getitem__(self, key: K) -> V:
        value = self._find(self._keys.pack(key))
        if value is None:
            raise KeyError(key)
        return self._values.unpack(value)

    def _names(self) -> Iterator[bytes]:
        key: Any = ffi.NULL
        while found := lib.COAP_RpcMirrorNext(self._open(), key):
            key = self._row(found)[0]
            yield key

    def __iter__(self) -> Iterator[K]:
        return map(self._keys.unpack, self._names())

    def __len__(self) -> int:
        return self.state().rows

    # ---- news ----

    def state(self) -> MirrorState:
        state = ffi.new("CoapRpcMirrorState *")
        check(lib.COAP_RpcMirrorGetState(self._open(), state))
        return MirrorState(
            status=Status(state.state),
            code=state.code,
            version=state.version,
            rows=state.numTuples,
            bytes=state.bytes,
            full_syncs=state.numFullSyncs,
            digest=state.digest,
        )

    async def synced(self) -> int:
        """Returns the version when the mirror equals the server's table, at once if it does already.

        Raises CoapRpcError when the server has no table of such records there.  The mirror goes on asking.
        """
        while (state := self.state()).status != Status.SYNCED:
            if state.status == Status.REFUSED:
                check(state.code)
            await self._news.wait()
        return state.version

    async def changes(self) -> AsyncGenerator[Change[K, V], None]:
        """Yields each change, beginning with the rows that are there.  Ends with the mirror.

        Applied one after the other to an empty dict they make it equal to the mirror.  Values that a row
        had before the reader came to it are left out.
        """
        reader = self._new_reader()
        while self._handle is not None:
            for change in self._pending(reader):
                yield change
            await reader.wait()

    async def events(self) -> AsyncGenerator[Change[K, V] | MirrorState, None]:
        """Yields the changes, as ``changes`` does, and where the mirror is: at first, and whenever its status,
        code or version is another one.

        A state comes after the changes that led to it.  A slow reader gets the latest state only.
        """
        reader = self._new_reader()
        known: tuple[Status, int, int] | None = None
        while self._handle is not None:
            for change in self._pending(reader):
                yield change
            if self._handle is None:
                return
            state = self.state()
            seen = (state.status, state.code, state.version)
            if seen == known:
                await reader.wait()
            else:
                known = seen
                yield state

    def _new_reader(self) -> _Reader:
        reader = _Reader(self._names())
        self._readers.add(reader)
        return reader

    def _pending(self, reader: _Reader) -> Iterator[Change[K, V]]:
        self._instance.check()
        while (taken := reader.take()) is not None:
            key, old = taken
            yield self._change(key, old, self._find(key))

    def _change(self, key: bytes, old: bytes | None, new: bytes | None) -> Change[K, V]:
        return Change(
            self._keys.unpack(key),
            None if old is None else self._values.unpack(old),
            None if new is None else self._values.unpack(new),
        )


def _path_of(url: Url) -> bytes:
    if url.query:
        raise ValueError("the address of a mirror has no query")
    path = url.path.removeprefix(b"/")
    if not 0 < len(path) <= _LONGEST_PATH:
        raise ValueError(f"a path has 1 to {_LONGEST_PATH} bytes: {path!r}")
    return path


class Mirrors:
    """The open mirrors of a node."""

    def __init__(self, instance: Instance) -> None:
        self.instance = instance
        self.open: dict[int, Mirror[Any, Any]] = {}

    def new(self, url: Url, key: type[K], value: type[V], options: MirrorOptions) -> Mirror[K, V]:
        """Raises for an address or records that no mirror can have."""
        _path_of(url)
        return Mirror(self, url, codec_of(key), codec_of(value), options)

    def close(self) -> None:
        for mirror in list(self.open.values()):
            mirror.close()
