"""The node: what a program serves and calls with."""

from __future__ import annotations

from collections.abc import AsyncGenerator, Callable, Iterable
from types import TracebackType
from typing import Any, Self, TypeVar

from ._call import Calls, ask_of
from ._errors import CoapRpcError, NodeClosed
from ._instance import Instance
from ._mirror import Mirror, MirrorOptions, Mirrors
from ._native import lib
from ._reply import Reply
from ._request import Method
from ._serve import Handler, Server, check_path, milliseconds
from ._stats import read_stats
from ._table import Table
from ._url import PORT, address, parse

H = TypeVar("H", bound=Handler)
K = TypeVar("K")
V = TypeVar("V")


class _Open:
    """What an open node has."""

    def __init__(self, node: Node) -> None:
        self.instance = Instance(node.name, node.console)
        self.server = Server(self.instance, node.address)
        self.calls = Calls(self.instance)
        self.tables: list[Table[Any, Any]] = []
        self.mirrors = Mirrors(self.instance)

    async def close(self) -> None:
        if not self.instance.is_usable:
            return
        try:
            await self.server.close()
            self.instance.run(lib.COAP_RpcProcIo, self.instance.ctx)  # sends what they have answered
        finally:
            self.mirrors.close()
            self.instance.close()
            for table in self.tables:
                table.close()
            await self.server.close()


class Node:
    """A server and a client of CoAP, for asyncio.

    ``host``, an IP address, and ``port`` are where it serves; the port is opened when something is served.
    ``console`` is the path of a UNIX socket for the program kestrel-console.

    A node is open inside ``async with``, once, on one loop.  Everything raises NodeClosed before and after,
    and NodeForked in a child process.
    """

    def __init__(
        self,
        host: str = "127.0.0.1",
        port: int = PORT,
        *,
        name: str = "coaprpc",
        console: str | None = None,
    ) -> None:
        self.address = address(host, port)
        self.name = name
        self.console = console
        self._opened: _Open | None = None

    async def __aenter__(self) -> Self:
        if self._opened is not None:
            raise CoapRpcError(0, "a node is opened once")
        self._opened = _Open(self)
        return self

    async def __aexit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        if self._opened is not None:
            await self._opened.close()

    def _room(self) -> _Open:
        if self._opened is None:
            raise NodeClosed
        self._opened.instance.check()
        return self._opened

    def serve(
        self,
        path: str,
        *,
        methods: Iterable[Method | str] = (Method.GET, Method.POST),
        timeout: float = 60.0,
        options: Iterable[int] = (),
    ) -> Callable[[H], H]:
        """A decorator: the function, def or async def, answers requests of the path.

        It gets a Request and returns bytes, str, Response or None.  If it raises, or returns anything else,
        the peer gets 5.00 and the log the reason.  An async def that has not answered after ``timeout``
        seconds is cancelled, and the peer gets 5.04.  ``options`` are the numbers of options that
        ``Request.option`` can be asked for.
        """
        server = self._room().server
        check_path(path)

        def decorate(handler: H) -> H:
            server.add(path, handler, methods, timeout, options)
            return handler

        return decorate

    def stats(self) -> dict[str, Any]:
        """The node's counters and gauges, by the names of coap_rpc_stats.h: numbers, lists and dicts."""
        return read_stats(self._room().instance.ctx)

    async def call(
        self,
        url: str,
        payload: bytes | str = b"",
        *,
        method: Method | str | None = None,
        timeout: float | None = None,
        content_format: int | None = None,
        accept: int | None = None,
        etag: bytes | None = None,
        if_match: bytes | None = None,
        if_none_match: bool = False,
        is_non: bool = False,
    ) -> Reply:
        """Asks a server, by GET, or by POST if there is a payload, unless ``method`` says otherwise.

        Raises ErrorReply for an answer of 4.00 and above, CallTimeout after ``timeout`` (93) seconds,
        CallReset and CallUnreachable, all of which are CallErrors.  Cancelling the task ends the call.
        """
        ask = ask_of(
            url,
            payload,
            method,
            timeout=timeout,
            content_format=content_format,
            accept=accept,
            etag=etag,
            if_match=if_match,
            if_none_match=if_none_match,
            is_non=is_non,
        )
        return await self._room().calls.call(ask)

    def observe(
        self, url: str, *, timeout: float | None = None, accept: int | None = None, keep: int = 16
    ) -> AsyncGenerator[Reply, None]:
        """Yields the state of a resource, and again when it changes (RFC 7641).

        Raises as ``call``; ``timeout`` is for the answer to each registration.  Ends after the first answer
        of a server that does not observe.  Who takes longer than the notes need to come gets the latest
        ``keep`` of them.
        """
        if keep < 1:
            raise ValueError("at least one note is kept")
        ask = ask_of(url, b"", Method.GET, timeout=timeout, accept=accept)
        return self._room().calls.observe(ask, keep)

    def table(self, path: str, key: type[K], value: type[V], *, window: float = 0.0) -> Table[K, V]:
        """Serves a table of records, which mirrors copy exactly.

        ``window``: for how many seconds changes are collected before observers are told.
        """
        room = self._room()
        table = Table(room.server, path, key, value, milliseconds(window) if window else 0)
        room.tables.append(table)
        return table

    def mirror(
        self,
        url: str,
        key: type[K],
        value: type[V],
        *,
        heartbeat: float | None = None,
        max_bytes: int = 0,
    ) -> Mirror[K, V]:
        """A copy of another node's table, for ``async with``.

        ``heartbeat``: how often the server is asked although all is well (30 s).  ``max_bytes``: of memory
        for rows; 0: no limit.
        """
        return self._room().mirrors.new(parse(url), key, value, MirrorOptions(heartbeat, max_bytes))
