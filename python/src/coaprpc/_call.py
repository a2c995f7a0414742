"""Calls and observations: requests to any CoAP server.

A call is known to the library by a number, by which its answer finds the future that awaits it.  The
library answers each call once, so its number leaves the table with the answer, or before, when the awaiting
task is cancelled.  An observation keeps its number until it ends, and the latest of its notes until they
are taken.

A node that is closed ends all of them: the library says so of each.
"""

from __future__ import annotations

import asyncio
from collections import deque
from collections.abc import AsyncGenerator, Callable
from dataclasses import dataclass
from typing import Any

from ._errors import CoapRpcError, ErrorReply, check, error_of_status
from ._instance import Instance, logger, new_id
from ._native import ffi, lib
from ._reply import Reply
from ._request import Method, bytes_of, format_of, method_of
from ._serve import milliseconds
from ._url import Url, parse

_FIRST_ERROR = 400


def _reply_of(rsp: Any) -> Reply:
    return Reply(
        code=rsp.code,
        payload=ffi.buffer(rsp.payload, rsp.payloadLen)[:] if rsp.payload else b"",
        content_format=rsp.contentFormat if rsp.has & lib.COAP_RPC_CALL_HAS_FORMAT else None,
        etag=bytes(rsp.etag.bytes[0 : rsp.etag.len]) or None,
        max_age=rsp.maxAge,
        location_path=ffi.string(rsp.locationPath).decode(errors="replace") if rsp.locationPath else None,
        rtt=rsp.rttUs / 1e6,
    )


Outcome = Reply | CoapRpcError
Taker = Callable[[Outcome, bool], None]


def _outcome_of(rsp: Any) -> Outcome:
    if rsp.status != lib.COAP_RPC_CALL_ANSWERED:
        return error_of_status(rsp.status)
    reply = _reply_of(rsp)
    return ErrorReply(reply) if reply.code >= _FIRST_ERROR else reply


_takers: dict[int, Taker] = {}


def _failed(_kind: object, error: BaseException, _trace: object) -> None:
    logger.error("an answer cannot be handed out", exc_info=error)


@ffi.def_extern(onerror=_failed)  # type: ignore[untyped-decorator]
def coaprpc_on_reply(user_data: int, rsp: Any) -> None:
    is_last = bool(rsp.isLast)
    take = _takers.pop(user_data, None) if is_last else _takers.get(user_data)
    if take is not None:
        take(_outcome_of(rsp), is_last)


@dataclass(frozen=True, slots=True)
class Ask:
    """A request, as the caller describes it."""

    url: Url
    method: Method
    payload: bytes = b""
    timeout: float | None = None
    content_format: int | None = None
    accept: int | None = None
    etag: bytes | None = None
    if_match: bytes | None = None
    if_none_match: bool = False
    is_non: bool = False

    def fill(self, call: Any, kept: list[Any]) -> None:
        """Fills the library's record; what it points at is kept in the list."""
        call.method = self.method
        call.isNon = self.is_non
        call.path = _keep(kept, "char[]", self.url.path)
        call.query = _keep(kept, "char[]", self.url.query)
        if self.payload:
            call.payload = _keep(kept, "uint8_t[]", self.payload)
            call.payloadLen = len(self.payload)
        if self.timeout is not None:
            call.deadlineMs = milliseconds(self.timeout)
        self._fill_options(call, kept)

    def _fill_options(self, call: Any, kept: list[Any]) -> None:
        if self.content_format is not None:
            call.has |= lib.COAP_RPC_CALL_HAS_FORMAT
            call.contentFormat = format_of(self.content_format)
        if self.accept is not None:
            call.has |= lib.COAP_RPC_CALL_HAS_ACCEPT
            call.accept = format_of(self.accept)
        if self.if_none_match:
            call.has |= lib.COAP_RPC_CALL_HAS_IF_NONE_MATCH
        if self.etag is not None:
            call.etags, call.numEtags = _etag(kept, self.etag, 1), 1
        if self.if_match is not None:
            call.ifMatch, call.numIfMatch = _etag(kept, self.if_match, 0), 1


def _keep(kept: list[Any], kind: str, value: Any) -> Any:
    kept.append(ffi.new(kind, value))
    return kept[-1]


def _etag(kept: list[Any], value: bytes, shortest: int) -> Any:
    if not shortest <= len(value) <= 8:
        raise ValueError(f"an ETag has 1 to 8 bytes: {value!r}")
    return _keep(kept, "CoapRpcCallEtag *", {"len": len(value), "bytes": value.ljust(8, b"\0")})


def ask_of(url: str, payload: bytes | str, method: Method | str | None, **options: Any) -> Ask:
    if not isinstance(url, str):
        raise TypeError(f"a URL is a str, not {type(url).__name__}")
    data = bytes_of(payload)
    default = Method.POST if data else Method.GET
    return Ask(parse(url), default if method is None else method_of(method), data, **options)


class _Notes:
    """The latest notes of an observation, until its reader takes them."""

    def __init__(self, keep: int) -> None:
        self._kept: deque[Outcome] = deque(maxlen=keep)
        self._is_ended = False
        self._news = asyncio.Event()

    def take(self, note: Outcome, is_last: bool) -> None:
        self._kept.append(note)
        self._is_ended = is_last
        self._news.set()

    async def next(self) -> Outcome | None:
        """The oldest one that is kept; None at the end."""
        while not self._kept and not self._is_ended:
            self._news.clear()
            await self._news.wait()
        return self._kept.popleft() if self._kept else None


class Calls:
    """The calls of a node."""

    def __init__(self, instance: Instance) -> None:
        self._instance = instance

    def _start(self, start: Callable[..., int], ask: Ask, take: Taker) -> tuple[int, int]:
        """Returns our number of the call, and the library's."""
        kept: list[Any] = []
        call, number, addr = ffi.new("CoapRpcCall *"), ffi.new("uint64_t *"), ffi.new("CoapRpcCallAddr *")
        ask.fill(call, kept)
        server = ask.url.address
        lib.coaprpc_set_ip(ffi.addressof(addr, "dstIp"), server.ip, len(server.ip))
        addr.dstPort = server.port
        call.userData = own = new_id()
        call.onRsp = lib.coaprpc_on_reply
        check(start(self._instance.ctx, addr, call, number))
        _takers[own] = take
        self._instance.arm()
        return own, number[0]

    def _end(self, own: int, number: int) -> None:
        """Ends what is still under way; nobody is told."""
        if _takers.pop(own, None) is not None:
            self._instance.run_with_ctx(lib.COAP_RpcCallCancel, number)

    async def call(self, ask: Ask) -> Reply:
        future: asyncio.Future[Reply] = self._instance.loop.create_future()

        def take(outcome: Outcome, _is_last: bool) -> None:
            if not future.done():
                _settle(future, outcome)

        own, number = self._start(lib.COAP_RpcCall, ask, take)
        try:
            return await future
        finally:
            self._end(own, number)
            _retrieve(future)

    async def observe(self, ask: Ask, keep: int) -> AsyncGenerator[Reply, None]:
        notes = _Notes(keep)
        own, number = self._start(lib.COAP_RpcCallObserve, ask, notes.take)
        try:
            while (note := await notes.next()) is not None:
                if isinstance(note, CoapRpcError):
                    raise note
                yield note
        finally:
            self._end(own, number)


def _retrieve(future: asyncio.Future[Reply]) -> None:
    """An answer that came while the task was cancelled is not reported as lost."""
    if future.done() and not future.cancelled():
        future.exception()


def _settle(future: asyncio.Future[Reply], outcome: Outcome) -> None:
    if isinstance(outcome, Reply):
        future.set_result(outcome)
    else:
        future.set_exception(outcome)
