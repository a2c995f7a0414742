# serve_aiocoap.py <port>: answers POSTs with 32 bytes, with aiocoap.
import asyncio
import sys

import aiocoap
import aiocoap.resource


class Post(aiocoap.resource.Resource):
    async def render_post(self, request):
        return aiocoap.Message(code=aiocoap.CREATED, payload=bytes(32), content_format=0)


async def main():
    site = aiocoap.resource.Site()
    site.add_resource(["post"], Post())
    await aiocoap.Context.create_server_context(site, bind=("127.0.0.1", int(sys.argv[1])))
    print("ready", flush=True)
    await asyncio.get_running_loop().create_future()


asyncio.run(main())
