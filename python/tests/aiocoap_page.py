"""aiocoap_page.py serve | ask: the resources of docs/python.md, at the address that it names."""

import asyncio
import json
import sys

import aiocoap
from aiocoap import Code, Message, resource

PAGE = "127.0.0.4"


class Upper(resource.Resource):
    async def render_get(self, request: Message) -> Message:
        return Message(code=Code.CONTENT, payload=request.payload.upper())

    async def render_post(self, request: Message) -> Message:
        return Message(code=Code.CHANGED, payload=request.payload.upper())


class Rows(resource.Resource):
    def __init__(self) -> None:
        super().__init__()
        self.rows: dict[str, bytes] = {}

    async def render_put(self, request: Message) -> Message:
        self.rows[request.opt.uri_query[0].removeprefix("name=")] = request.payload
        return Message(code=Code.CREATED, location_path=["rows"])

    async def render_get(self, request: Message) -> Message:
        name = request.opt.uri_query[0].removeprefix("name=")
        if name not in self.rows:
            return Message(code=Code.NOT_FOUND, payload=b"no such row")
        row = {"name": name, "value": self.rows[name].decode()}
        return Message(code=Code.CONTENT, payload=json.dumps(row).encode(), content_format=50)


async def serve() -> None:
    site = resource.Site()
    site.add_resource(["upper"], Upper())
    site.add_resource(["rows"], Rows())
    context = await aiocoap.Context.create_server_context(site, bind=(PAGE, 5683))
    print("ready", flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)
    await context.shutdown()


async def ask() -> None:
    context = await aiocoap.Context.create_client_context()

    async def say(code: Code, path: str, payload: bytes = b"") -> None:
        request = Message(code=code, uri=f"coap://{PAGE}/{path}", payload=payload)
        answer = await context.request(request).response
        print(answer.code.dotted, "/".join(answer.opt.location_path), answer.payload.decode())

    await say(Code.POST, "upper", b"hi")
    await say(Code.PUT, "rows?name=a", b"1")
    await say(Code.GET, "rows?name=a")
    await say(Code.GET, "rows?name=b")
    await say(Code.POST, "slow", b"x")
    await say(Code.GET, "ports")
    await context.shutdown()


asyncio.run({"serve": serve, "ask": ask}[sys.argv[1]]())
