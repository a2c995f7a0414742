# serve_coaprpc.py <port>: answers POSTs with 32 bytes, with the Python package of this library.
import asyncio
import sys

from coaprpc import Node, Response


async def main():
    async with Node("127.0.0.1", int(sys.argv[1])) as node:

        @node.serve("post")
        def post(request):
            return Response(bytes(32), code=201, content_format=0)

        print("ready", flush=True)
        await asyncio.get_running_loop().create_future()


asyncio.run(main())
