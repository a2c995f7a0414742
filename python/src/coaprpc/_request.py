"""What a handler gets and gives."""

from __future__ import annotations

import json
from collections.abc import Iterable
from dataclasses import dataclass
from enum import IntEnum
from typing import Any

from ._native import ffi, lib
from ._payload import Payload
from ._url import Address, address_of

TEXT, OCTETS, JSON, CBOR = 0, 42, 50, 60

_IF_MATCH, _ETAG, _LOCATION_PATH, _MAX_AGE, _URI_QUERY, _LOCATION_QUERY = 1, 4, 8, 14, 15, 20
_NO_FORMAT: int = lib.COAP_RPC_DIRECT_NO_FORMAT
_LONGEST_OPTION = 1034
_LARGEST_FORMAT = 65535


class Method(IntEnum):
    """The methods of CoAP, as on the wire."""

    GET = 1
    POST = 2
    PUT = 3
    DELETE = 4
    FETCH = 5
    PATCH = 6
    IPATCH = 7


def method_of(method: Method | str) -> Method:
    """Raises ValueError for an unknown method."""
    if not isinstance(method, str):
        return Method(method)
    if method.upper() not in Method.__members__:
        raise ValueError(f"not a method: {method!r}")
    return Method[method.upper()]


def format_of(number: int) -> int:
    """Raises ValueError for what is no Content-Format."""
    if not 0 <= number <= _LARGEST_FORMAT:
        raise ValueError(f"not a Content-Format: {number}")
    return number


def methods_of(methods: Iterable[Method | str]) -> int:
    """The bits of the library for these methods, or for one."""
    bits = 0
    for method in [methods] if isinstance(methods, str) else methods:
        bits |= 1 << method_of(method)
    return bits


# One buffer serves all requests: they are read one at a time, and copied.
_value = ffi.new("uint8_t[]", _LONGEST_OPTION)
_len = ffi.new("uint32_t *")


def _options(ctx: Any, number: int) -> list[bytes]:
    """The values of an option of the request whose callback is running."""
    values: list[bytes] = []
    while lib.COAP_RpcSerGetOption(ctx, number, len(values), _value, _LONGEST_OPTION, _len) == 0:
        values.append(ffi.buffer(_value, _len[0])[:])
    return values


class Request(Payload):
    """A request, valid for as long as it is kept."""

    __slots__ = ("_info", "_options", "_query", "payload")

    def __init__(self, ctx: Any, payload: bytes, options: tuple[int, ...]) -> None:
        """To be made while the library runs a callback for the request."""
        self._info = ffi.new("CoapRpcSerRequest *")
        lib.COAP_RpcSerGetRequest(ctx, self._info)
        self._query = _options(ctx, _URI_QUERY)
        self._options = {number: _options(ctx, number) for number in options}
        self.payload = payload

    @property
    def method(self) -> Method:
        return Method(self._info.method)

    @property
    def is_confirmable(self) -> bool:
        return bool(self._info.isConfirmable)

    @property
    def content_format(self) -> int | None:
        return None if self._info.contentFormat == _NO_FORMAT else int(self._info.contentFormat)

    @property
    def accept(self) -> int | None:
        """The format that the peer wants."""
        return None if self._info.accept == _NO_FORMAT else int(self._info.accept)

    @property
    def etag(self) -> bytes | None:
        """The first ETag."""
        return bytes(self._info.etag[0 : self._info.etagLen]) or None

    @property
    def peer(self) -> Address:
        return address_of(ffi.addressof(self._info, "peerAddr"), self._info.peerPort)

    @property
    def query(self) -> dict[str, str]:
        """The arguments ``name=value``; "" for a name alone; the first one of a name counts."""
        query: dict[str, str] = {}
        for argument in self._query:
            name, _, value = argument.decode(errors="replace").partition("=")
            query.setdefault(name, value)
        return query

    def option(self, number: int) -> list[bytes]:
        """The values of an option that ``serve`` was told to keep."""
        return self._options[number]


@dataclass(frozen=True, slots=True)
class Response:
    """An answer that says more than its payload.

    ``code`` is 201 to 205, 400 to 431 or 500 to 531; without it 205 for GET and FETCH and 204 for others.
    """

    payload: bytes | str = b""
    code: int | None = None
    content_format: int | None = None
    etag: bytes | None = None
    max_age: int | None = None
    location_path: str | None = None
    location_query: str | None = None

    @classmethod
    def json(cls, value: object, code: int | None = None) -> Response:
        return cls(json.dumps(value, separators=(",", ":")), code, JSON)

    def options(self) -> list[tuple[int, bytes]]:
        """The options, as the library takes them."""
        options: list[tuple[int, bytes]] = []
        if self.etag is not None:
            options.append((_ETAG, self.etag))
        if self.max_age is not None:
            options.append((_MAX_AGE, _number(self.max_age)))
        options += [(_LOCATION_PATH, part) for part in _parts(self.location_path, "/")]
        options += [(_LOCATION_QUERY, part) for part in _parts(self.location_query, "&")]
        return options


def _number(value: int) -> bytes:
    return value.to_bytes((value.bit_length() + 7) // 8, "big")


def _parts(text: str | None, separator: str) -> list[bytes]:
    return [part.encode() for part in text.removeprefix("/").split(separator)] if text else []


Answer = Response | bytes | bytearray | memoryview | str | None


def bytes_of(value: object) -> bytes:
    """A payload; TypeError for anything else."""
    if isinstance(value, str):
        return value.encode()
    if isinstance(value, bytes | bytearray | memoryview):
        return bytes(value)
    raise TypeError(f"a payload is bytes or str, not {type(value).__name__}")


def payload_of(value: object) -> bytes:
    """The payload of what a handler has returned."""
    if value is None:
        return b""
    return bytes_of(value.payload if isinstance(value, Response) else value)


def code_of(response: Response, method: int) -> tuple[int, int]:
    """Code and format of a response, as the library takes them."""
    is_read = method in (Method.GET, Method.FETCH)
    code = response.code if response.code is not None else (205 if is_read else 204)
    return code, _NO_FORMAT if response.content_format is None else response.content_format
