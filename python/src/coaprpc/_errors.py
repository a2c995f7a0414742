"""Every failure is an exception with a number and a text."""

from __future__ import annotations

from ._native import ffi, lib
from ._reply import Reply


class CoapRpcError(Exception):
    """A call of the library has failed.

    ``code`` is the library's result code (1900000000 and above), or the CoAP code of an answer (404), or
    0 when there is neither.
    """

    def __init__(self, code: int, text: str) -> None:
        super().__init__(code, text)
        self.code = code
        self.text = text

    def __str__(self) -> str:
        return f"{self.text} ({self.code})" if self.code else self.text


class NodeClosed(CoapRpcError):
    """The node is not open."""

    def __init__(self, text: str = "the node is not open") -> None:
        super().__init__(0, text)


class NodeForked(NodeClosed):
    """The node belongs to the parent of this process."""

    def __init__(self) -> None:
        super().__init__("the node belongs to the parent process")


class CallError(CoapRpcError):
    """A call has ended without a good answer."""


class CallTimeout(CallError, TimeoutError):
    """Nobody has answered in time."""


class CallReset(CallError, ConnectionError):
    """The peer has refused the message."""


class CallUnreachable(CallError, ConnectionError):
    """Nobody listens there, or the message could not be sent."""


class ErrorReply(CallError):
    """The peer has answered with an error: ``code`` is 400 to 599, ``text`` what the peer said."""

    def __init__(self, reply: Reply) -> None:
        super().__init__(reply.code, reply.payload.decode(errors="replace") or f"answered {reply.dotted}")
        self.reply = reply


_BY_STATUS: dict[int, tuple[type[CoapRpcError], str]] = {
    lib.COAP_RPC_CALL_TIMEOUT: (CallTimeout, "no answer in time"),
    lib.COAP_RPC_CALL_RESET: (CallReset, "the peer refused the message"),
    lib.COAP_RPC_CALL_UNREACHABLE: (CallUnreachable, "the peer cannot be reached"),
}


def error_of_status(status: int) -> CoapRpcError:
    """What a call that was not answered raises."""
    if status not in _BY_STATUS:
        return NodeClosed("the node was closed")
    kind, text = _BY_STATUS[status]
    return kind(0, text)


def check(code: int) -> None:
    """Raises what a result of the library stands for."""
    if code != 0:
        raise CoapRpcError(code, ffi.string(lib.COAP_RpcErrStr(code)).decode())
