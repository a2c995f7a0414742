"""consumer.py <folder>: uses the installed Python package, whose libraries have to lie in this folder."""

import asyncio
import ctypes
import os
import re
import sys
from typing import Any

from coaprpc import Node, record


@record("!H")
class Key:
    number: int


async def main() -> None:
    async with Node("127.0.0.1") as node:
        node.serve("upper")(lambda request: request.text.upper())
        reply = await node.call("coap://127.0.0.1/upper", b"hi", timeout=10)
        assert reply.text == "HI", reply
        table = node.table("numbers", Key, Key)
        table[Key(1)] = Key(2)
        assert table.state().rows == 1


class Loaded(ctypes.Structure):
    _fields_ = (("address", ctypes.c_void_p), ("name", ctypes.c_char_p))


def loaded_files() -> list[str]:
    """The shared libraries of this process."""
    names: list[str] = []

    @ctypes.CFUNCTYPE(ctypes.c_int, ctypes.POINTER(Loaded), ctypes.c_size_t, ctypes.c_void_p)
    def note(info: Any, _size: int, _data: None) -> int:
        names.append(os.fsdecode(info.contents.name))
        return 0

    ctypes.CDLL(None).dl_iterate_phdr(note, None)
    return names


def check_libraries(folder: str) -> None:
    used = [name for name in loaded_files() if re.search(r"/lib(coap_svc|kestrel|jansson|uv|cbor)", name)]
    assert len(used) >= 5, used
    assert all(os.path.realpath(name).startswith(folder) for name in used), used


asyncio.run(main())
check_libraries(sys.argv[1])
