"""Records: dataclasses that are a fixed number of bytes on the wire."""

from __future__ import annotations

import dataclasses
import math
import re
import struct
from collections.abc import Callable
from typing import Any, Generic, TypeVar, dataclass_transform

from ._native import lib

T = TypeVar("T")

_FORMAT = re.compile(r"[!<>]((\d*)[xcbB?hHiIlLqQefds])*", re.ASCII)
_ITEM = re.compile(r"(\d*)([a-zA-Z?])", re.ASCII)
_LARGEST: int = lib.COAP_RPC_SYNC_MAX_TUPLE
_ATTRIBUTE = "__coaprpc_codec__"


@dataclass_transform(frozen_default=True)
def record(layout: str) -> Callable[[type[T]], type[T]]:
    """Makes a class a frozen dataclass whose fields are laid out as ``layout`` says.

    ``layout`` is a format of the module struct with a byte order: ``!``, ``>`` or ``<``.  A field of ``16s``
    is a str, in UTF-8 and padded with zeros, or bytes of exactly this length.
    """

    def decorate(cls: type[T]) -> type[T]:
        made: type[T] = dataclasses.dataclass(frozen=True, slots=True)(cls)
        setattr(made, _ATTRIBUTE, Codec(made, layout))
        return made

    return decorate


def codec_of(cls: type[T]) -> Codec[T]:
    """Raises TypeError for a class that is no record."""
    codec = getattr(cls, _ATTRIBUTE, None)
    if not isinstance(codec, Codec) or codec.cls is not cls:
        raise TypeError(f"{cls!r} has no layout: it needs the decorator record")
    return codec


def _struct_of(layout: str) -> struct.Struct:
    """Raises ValueError for a layout that no record can have."""
    if not _FORMAT.fullmatch(layout):
        raise ValueError(f"a layout is !, > or <, and items of the module struct: {layout!r}")
    try:
        made = struct.Struct(layout)
    except (struct.error, OverflowError, MemoryError):
        made = None
    if made is None or made.size > _LARGEST:
        raise ValueError(f"a record has at most {_LARGEST} bytes: {layout!r}")
    return made


def widths(layout: str) -> list[int | None]:
    """An item for each field: the bytes of a text, or None."""
    _struct_of(layout)
    found: list[int | None] = []
    for count, kind in _ITEM.findall(layout):
        if kind == "s":
            found.append(int(count or 1))
        elif kind != "x":
            found += [None] * int(count or 1)
    return found


def _exact_bytes(field: object, name: str, width: int) -> bytes:
    if not isinstance(field, bytes):
        raise TypeError(f"{name} is bytes, not {field!r}")
    if len(field) != width:
        raise ValueError(f"{name} has {width} bytes, not {len(field)}")
    return field


def _str_bytes(field: object, name: str, width: int) -> bytes:
    if not isinstance(field, str):
        raise TypeError(f"{name} is a str, not {field!r}")
    data = field.encode(errors="surrogateescape")
    if len(data) > width or data.endswith(b"\0"):
        raise ValueError(f"{name} has at most {width} bytes, and no NUL at its end: {field!r}")
    return data


def plain(row: Any) -> dict[str, Any]:
    """The fields of a record as JSON has them: bytes that are no text in hexadecimal, and what is no number as
    a text."""
    return {field.name: _plain(getattr(row, field.name)) for field in dataclasses.fields(row)}


def _plain(value: Any) -> Any:
    if isinstance(value, float) and not math.isfinite(value):
        return str(value)
    if isinstance(value, str) and not value.isprintable():
        return _text(value.encode(errors="surrogateescape"))
    return _text(value) if isinstance(value, bytes) else value


def _text(data: bytes) -> str | dict[str, str]:
    try:
        return data.decode()
    except ValueError:
        return {"hex": data.hex()}


class Codec(Generic[T]):
    """Turns objects of a record class into bytes and back."""

    def __init__(self, cls: type[T], layout: str) -> None:
        self.cls = cls
        self._struct = _struct_of(layout)
        self.size = self._struct.size
        fields, sizes = dataclasses.fields(cls), widths(layout)  # type: ignore[arg-type]
        if len(fields) != len(sizes):
            raise ValueError(f"{layout!r} has {len(sizes)} fields and {cls.__name__} {len(fields)}")
        self._names = tuple(field.name for field in fields)
        self._texts = {i: width for i, width in enumerate(sizes) if width is not None}
        self._strs = {i for i in self._texts if fields[i].type in (str, "str")}

    def pack(self, value: T) -> bytes:
        """Raises TypeError for an object of another class, ValueError for a field that does not fit."""
        if not isinstance(value, self.cls):
            raise TypeError(f"not a {self.cls.__name__}: {value!r}")
        fields = [getattr(value, name) for name in self._names]
        for i, width in self._texts.items():
            convert = _str_bytes if i in self._strs else _exact_bytes
            fields[i] = convert(fields[i], self._names[i], width)
        try:
            return self._struct.pack(*fields)
        except struct.error as error:
            raise ValueError(f"{value!r}: {error}") from None

    def plain(self, data: bytes) -> dict[str, Any]:
        return plain(self.unpack(data))

    def unpack(self, data: bytes) -> T:
        fields = list(self._struct.unpack(data))
        for i in self._strs:
            fields[i] = fields[i].rstrip(b"\0").decode(errors="surrogateescape")
        return self.cls(*fields)
