"""RPC and exact tables over CoAP, for asyncio.

async with Node("127.0.0.2") as node:
    @node.serve("upper")
    def upper(request: Request) -> str:
        return request.text.upper()

    reply = await node.call("coap://127.0.0.3/upper", b"hi", timeout=2)
"""

from ._errors import (
    CallError,
    CallReset,
    CallTimeout,
    CallUnreachable,
    CoapRpcError,
    ErrorReply,
    NodeClosed,
    NodeForked,
)
from ._mirror import Change, Mirror, MirrorState
from ._mirror import Status as MirrorStatus
from ._node import Node
from ._record import record
from ._reply import Reply
from ._request import CBOR, JSON, OCTETS, TEXT, Answer, Method, Request, Response
from ._table import Table, TableState
from ._url import Address

__all__ = [
    "CBOR",
    "JSON",
    "OCTETS",
    "TEXT",
    "Address",
    "Answer",
    "CallError",
    "CallReset",
    "CallTimeout",
    "CallUnreachable",
    "Change",
    "CoapRpcError",
    "ErrorReply",
    "Method",
    "Mirror",
    "MirrorState",
    "MirrorStatus",
    "Node",
    "NodeClosed",
    "NodeForked",
    "Reply",
    "Request",
    "Response",
    "Table",
    "TableState",
    "record",
]
