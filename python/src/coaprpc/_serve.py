"""Handlers: each path of a node has one, def or async def.

A handler is known to the library by a number, by which the callbacks find it.  A def handler answers inside
the callback.  An async def handler runs as a task, which ends in one of three ways: it answers; the library
gives its request up (timeout, or the listen has closed) and the task is cancelled; or the node closes and
cancels it.  What a handler raises is logged, and the peer gets 5.00.
"""

from __future__ import annotations

import asyncio
import inspect
import socket
from collections.abc import Awaitable, Callable, Iterable
from typing import Any
from urllib.parse import quote
from weakref import WeakValueDictionary

from ._errors import check
from ._instance import Instance, logger, new_id
from ._native import ffi, lib
from ._request import Answer, Method, Request, Response, code_of, methods_of, payload_of
from ._url import Address

Handler = Callable[[Request], Answer | Awaitable[Answer]]

_FAILED = -1
_LONGEST_PATH = 63
_PLAIN = "/!$'()*+,;=:@&"  # beside letters, digits and -._~
_LONGEST_TIME = 4_294_967  # seconds whose milliseconds fit 32 bits
_LONGEST_ANSWER: int = lib.COAP_RPC_MAX_PAYLOAD

_entries: WeakValueDictionary[int, Entry] = WeakValueDictionary()


class Entry:
    """One path and its handler."""

    def __init__(self, server: Server, path: str, handler: Handler, options: tuple[int, ...]) -> None:
        self.id = new_id()
        self.path = path
        self._server = server
        self._handler = handler
        self._options = options
        # By the library's handles, which are never used again.
        self._open: set[Any] = set()
        self._tasks: dict[Any, asyncio.Task[None]] = {}

    def request(self, payload: bytes) -> Request:
        return Request(self._server.instance.ctx, payload, self._options)

    # ---- def ----

    def answer(self, payload: bytes, out: Any) -> int:
        """Writes the answer and returns its length, or a negative number."""
        try:
            request = self.request(payload)
            value = self._handler(request)
            data = payload_of(value)
            if len(data) > _LONGEST_ANSWER:
                raise ValueError(f"an answer of a def handler has at most {_LONGEST_ANSWER} bytes")
            if isinstance(value, Response):
                self._set_answer(request, value)
        except Exception:
            self.log_failure()
            return _FAILED
        ffi.memmove(out, data, len(data))
        return len(data)

    def _set_answer(self, request: Request, response: Response) -> None:
        ctx = self._server.instance.ctx
        check(lib.COAP_RpcSerSetAnswer(ctx, *code_of(response, request.method)))
        for number, value in response.options():
            check(lib.COAP_RpcSerAddAnswerOption(ctx, number, value, len(value)))

    # ---- async def ----

    def begin(self, payload: bytes, handle: Any) -> None:
        """Starts the task that answers later."""
        request = self.request(payload)
        self._open.add(handle)
        task = self._server.instance.loop.create_task(self._run(request, handle))
        if not task.done():
            self._tasks[handle] = task

    async def _run(self, request: Request, handle: Any) -> None:
        try:
            value = await self._handler(request)  # type: ignore[misc]
            self._end(handle, self._send, request, value)
        except asyncio.CancelledError:
            self._end(handle, lib.COAP_RpcSerAbortAsyncResponse)
            raise
        except Exception:
            self.log_failure()
            self._end(handle, lib.COAP_RpcSerFailAsync, 500, ffi.NULL)
        finally:
            self._open.discard(handle)
            self._tasks.pop(handle, None)

    def _end(self, handle: Any, end: Callable[..., object], *args: object) -> None:
        """Answers a request, unless it was given up."""
        if handle in self._open and self._server.instance.is_usable:
            end(self._server.instance.ctx, handle, *args)
            self._server.instance.arm()

    def _send(self, ctx: Any, handle: Any, request: Request, value: object) -> None:
        data = payload_of(value)
        if isinstance(value, Response):
            check(lib.COAP_RpcSerSetAsyncAnswer(ctx, handle, *code_of(value, request.method)))
            for number, option in value.options():
                check(lib.COAP_RpcSerAddAsyncAnswerOption(ctx, handle, number, option, len(option)))
        check(lib.COAP_RpcSerSendAsyncResponse(ctx, handle, data, len(data)))

    def give_up(self, handle: Any) -> None:
        """Nobody waits for this answer any more."""
        self._open.discard(handle)
        if handle in self._tasks:
            self._tasks[handle].cancel()

    def tasks(self) -> set[asyncio.Task[None]]:
        return set(self._tasks.values())

    def log_failure(self) -> None:
        logger.exception("the handler of %r has failed", self.path)

    def keep(self, error: BaseException) -> None:
        self._server.instance.keep(error)


def _failed(_kind: object, error: BaseException, _trace: object) -> None:
    """What a callback must not hide: the end of the program.  (Handlers catch the rest.)"""
    if isinstance(error, Exception):
        logger.error("a callback has failed", exc_info=error)


@ffi.def_extern(error=_FAILED, onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_request(user_data: int, _info: Any, payload: Any, length: int, out: Any, _size: int) -> int:
    entry = _entries[user_data]
    try:
        return entry.answer(ffi.buffer(payload, length)[:], out)
    except BaseException as error:  # KeyboardInterrupt, SystemExit
        entry.keep(error)
        return _FAILED


@ffi.def_extern(error=0, onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_async_request(user_data: int, payload: Any, length: int, handle: Any) -> int:
    _entries[user_data].begin(ffi.buffer(payload, length)[:], handle)
    return 0


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_async_end(user_data: int, handle: Any, _reason: int) -> None:
    _entries[user_data].give_up(handle)


def check_path(path: object) -> str:
    """Returns the library's form of a path, which is percent-encoded as libcoap does it."""
    if not isinstance(path, str):
        raise TypeError(f'a path is a str, not {type(path).__name__}: write @node.serve("path")')
    name = quote(path.removeprefix("/"), safe=_PLAIN)
    if not 0 < len(name) <= _LONGEST_PATH or "\0" in path:
        raise ValueError(f"a path has 1 to {_LONGEST_PATH} bytes, percent-encoded: {path!r}")
    return name


def _probe(where: Address) -> None:
    """Raises OSError if an address is not here, or its port in use.  The library would try for three seconds."""
    family = socket.AF_INET if len(where.ip) == 4 else socket.AF_INET6
    with socket.socket(family, socket.SOCK_DGRAM) as probe:
        try:
            probe.bind((socket.inet_ntop(family, where.ip), where.port))
        except OSError as error:
            raise type(error)(error.errno, f"{error.strerror}: {where}") from None


class Server:
    """The handlers of a node."""

    def __init__(self, instance: Instance, where: Address) -> None:
        self.instance = instance
        self._where = where
        self._paths: set[str] = set()
        self._entries: list[Entry] = []

    def reserve(self, path: str) -> str:
        """Returns the library's form of a path, for one registration, which cannot be taken back."""
        name = check_path(path)
        if name in self._paths:
            raise ValueError(f"the path is served already: {path!r}")
        if not self._paths:
            _probe(self._where)
        self._paths.add(name)
        return name

    def add(
        self,
        path: str,
        handler: Handler,
        methods: Iterable[Method | str],
        timeout: float,
        options: Iterable[int],
    ) -> None:
        param, numbers = direct_param(methods, timeout), tuple(options)
        entry = Entry(self, self.reserve(path), handler, numbers)
        key = new_key(entry.path.encode(), observe=0)
        self.register(key, entry, ffi.NULL, is_async=_is_async(handler))
        check(lib.COAP_RpcSerSetDirect(self.instance.ctx, key, param))
        self.attach(key)

    def register(self, key: Any, entry: Entry, tuples: Any, *, is_async: bool) -> None:
        """`tuples` describes those of a table; null for a handler alone."""
        reg = ffi.new("CoapRpcSerVtblReg *")
        _entries[entry.id] = entry
        self._entries.append(entry)
        on_request = ffi.NULL if is_async else lib.coaprpc_on_request
        on_async_request = lib.coaprpc_on_async_request if is_async else ffi.NULL
        lib.coaprpc_set_handler(reg, entry.id, on_request, on_async_request)
        check(lib.COAP_RpcSerRegVtbl(self.instance.ctx, key, reg, tuples))

    def attach(self, key: Any) -> None:
        """Serves a registered key at the node's address."""
        listen = ffi.new("CoapRpcSerListenAddr *")
        lib.coaprpc_set_listen(listen, self._where.ip, len(self._where.ip), self._where.port)
        check(lib.COAP_RpcSerSetUri(self.instance.ctx, key, listen))
        self.instance.arm()

    async def close(self) -> None:
        """Cancels what the handlers still do, and waits for it."""
        tasks = {task for entry in self._entries for task in entry.tasks()}
        tasks.discard(asyncio.current_task())
        for task in tasks:
            task.cancel()
        await asyncio.gather(*tasks, return_exceptions=True)


def direct_param(methods: Iterable[Method | str], timeout: float) -> Any:
    return ffi.new(
        "CoapRpcSerDirectParam *",
        {
            "methods": methods_of(methods),
            "timeoutMs": milliseconds(timeout),
            "onAsyncEnd": lib.coaprpc_on_async_end,
        },
    )


def new_key(path: bytes, *, observe: int) -> Any:
    key = ffi.new("CoapRpcUriKey *")
    lib.coaprpc_set_key(key, path, observe)
    return key


def milliseconds(seconds: float) -> int:
    """Raises ValueError for a time that is not positive, or too long to count."""
    if not 0 < seconds <= _LONGEST_TIME:
        raise ValueError(f"not a time of up to {_LONGEST_TIME} s: {seconds}")
    return max(1, round(seconds * 1000))


def _is_async(handler: Handler) -> bool:
    """Also of an object whose ``__call__`` is async."""
    return any(map(inspect.iscoroutinefunction, (handler, type(handler).__call__)))
