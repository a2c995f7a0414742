"""aiocoap_client.py <url>: asks the server of test_peers.py, and prints what it got."""

import asyncio
import sys

import aiocoap
from aiocoap import Code, Message


async def main(url: str) -> None:
    context = await aiocoap.Context.create_client_context()

    async def ask(code: Code, path: str, **options: object) -> None:
        response = await context.request(Message(code=code, uri=f"{url}/{path}", **options)).response
        form = response.opt.content_format
        shown = None if form is None else form.value
        print(path, response.code.dotted, shown, response.payload[:20], len(response.payload))

    await ask(Code.GET, "upper?a=b")
    await ask(Code.POST, "upper", payload=b"hi")
    await ask(Code.POST, "later", payload=b"x" * 5000)
    await ask(Code.PUT, "upper")
    await ask(Code.GET, "json")
    await ask(Code.GET, "fails")
    await ask(Code.GET, ".well-known/core")
    request = context.request(Message(code=Code.GET, uri=f"{url}/rows?_sync=1", observe=0))
    first = await request.response
    print("rows", first.code.dotted, first.opt.content_format.value)
    await ask(Code.POST, "change")
    async for note in request.observation:
        print("note", b"\x42\x00\x01\x42\x00\x02" in note.payload)
        break
    await context.shutdown()


asyncio.run(main(sys.argv[1]))
