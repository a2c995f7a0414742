"""coap:// addresses, taken apart for the library."""

from __future__ import annotations

import ipaddress
from dataclasses import dataclass
from functools import lru_cache
from urllib.parse import unquote_to_bytes, urlsplit

from ._native import ffi, lib

PORT = 5683
_CACHED_URLS = 256


@dataclass(frozen=True, slots=True)
class Address:
    """An IP address, in network order, and a UDP port."""

    ip: bytes
    port: int

    def __str__(self) -> str:
        host = ipaddress.ip_address(self.ip)
        return f"[{host}]:{self.port}" if host.version == 6 else f"{host}:{self.port}"


def address(host: str, port: int) -> Address:
    """Raises ValueError for what is no IP address or no port."""
    ip = ipaddress.ip_address(host)
    if getattr(ip, "scope_id", None):
        raise ValueError(f"an address with a zone cannot be used: {host}")
    if not 1 <= port <= 65535:
        raise ValueError(f"not a port: {port}")
    return Address(ip.packed, port)


def address_of(record: object, port: int) -> Address:
    """The address of a record of the library."""
    ip = ffi.new("uint8_t[16]")
    return Address(ffi.buffer(ip, lib.coaprpc_get_ip(record, ip))[:], port)


@dataclass(frozen=True, slots=True)
class Url:
    address: Address
    path: bytes
    query: bytes


def _unquoted(text: str, separator: bytes) -> bytes:
    """Segments or arguments, decoded one by one."""
    parts = [unquote_to_bytes(part) for part in text.split(separator.decode())]
    if any(separator in part or b"\0" in part for part in parts):
        raise ValueError(f"%-encoded {separator.decode()!r} and NUL are not supported: {text}")
    return separator.join(parts)


@lru_cache(_CACHED_URLS)
def parse(url: str) -> Url:
    """Takes ``coap://<IP address>[:port][/path][?query]`` apart."""
    if any(char <= " " or char == "\x7f" for char in url):  # which urlsplit passes over, in part
        raise ValueError(f"blanks and control characters have to be %-encoded: {url!r}")
    parts = urlsplit(url)
    if parts.scheme != "coap" or not parts.hostname or parts.username is not None or parts.fragment:
        raise ValueError(f"not of the form coap://<IP address>[:port][/path][?query]: {url}")
    server = address(parts.hostname, PORT if parts.port is None else parts.port)
    return Url(server, _unquoted(parts.path, b"/"), _unquoted(parts.query, b"&"))
