"""consumer.py <folder>: uses the installed Python package, whose libraries have to lie in this folder."""

import asyncio
import re
import sys
from pathlib import Path

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


def check_libraries(folder: str) -> None:
    loaded = set(re.findall(r"/\S*/lib(?:coap_svc|kestrel|jansson|uv)\S*", Path("/proc/self/maps").read_text()))
    assert loaded, "no library"
    assert all(path.startswith(folder) for path in loaded), loaded


asyncio.run(main())
check_libraries(sys.argv[1])
