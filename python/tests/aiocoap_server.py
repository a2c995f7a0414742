"""aiocoap_server.py <port>: what the client of test_peers.py asks.  Ends with its standard input."""

import asyncio
import sys

import aiocoap
from aiocoap import Code, Message, resource


class Upper(resource.Resource):
    async def render_get(self, request: Message) -> Message:
        return Message(code=Code.CONTENT, payload=b"text", content_format=0, etag=b"v1")

    async def render_post(self, request: Message) -> Message:
        return Message(code=Code.CHANGED, payload=request.payload.upper())


class Later(resource.Resource):
    async def render_post(self, request: Message) -> Message:
        await asyncio.sleep(0.3)  # more than aiocoap keeps an acknowledgement back
        return Message(code=Code.CHANGED, payload=b"later")


class Counter(resource.ObservableResource):
    count = 0

    async def render_get(self, request: Message) -> Message:
        return Message(code=Code.CONTENT, payload=str(self.count).encode())

    async def render_post(self, request: Message) -> Message:
        self.count += 1
        self.updated_state()
        return Message(code=Code.CHANGED)


async def main(port: int) -> None:
    site = resource.Site()
    site.add_resource(["upper"], Upper())
    site.add_resource(["later"], Later())
    site.add_resource(["counter"], Counter())
    context = await aiocoap.Context.create_server_context(site, bind=("127.0.0.1", port))
    print("ready", flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.read)
    await context.shutdown()


asyncio.run(main(int(sys.argv[1])))
