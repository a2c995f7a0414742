#!/usr/bin/env python3
"""What our client calls: a server on 127.0.0.2:5683 that puts the path into its answers."""

import asyncio
import json
import logging

import aiocoap
from aiocoap import resource

import outcome

SLOW_SECONDS = 1
CHECK_CODE = "_ual-checkcode="


def answer(uri, code, payload=b"", **options):
    message = aiocoap.Message(code=code, payload=payload)
    message.opt.uri_path = uri.split("/")
    for name, value in options.items():
        setattr(message.opt, name, value)
    return message


class Plain(resource.Resource):
    def __init__(self, uri, has_path=True, delay=0):
        super().__init__()
        self.uri, self.has_path, self.delay = uri, has_path, delay

    async def render_get(self, request):
        await asyncio.sleep(self.delay)
        if self.has_path:
            return answer(self.uri, aiocoap.CONTENT, request.payload)
        return aiocoap.Message(code=aiocoap.CONTENT, payload=request.payload)

    async def render_post(self, request):
        return answer(self.uri, aiocoap.CHANGED)

    async def render_put(self, request):
        return answer(self.uri, aiocoap.CHANGED)

    async def render_delete(self, request):
        return answer(self.uri, aiocoap.DELETED, b"gone")


class Large(Plain):
    async def render_get(self, request):
        return answer(self.uri, aiocoap.CONTENT, outcome.pattern(int(request.payload)))

    async def render_post(self, request):
        is_good = request.payload == outcome.pattern(len(request.payload))
        return answer(self.uri, aiocoap.CHANGED if is_good else aiocoap.BAD_REQUEST)


class Table(resource.ObservableResource):
    """A table with a check code, which stands in the ETag of all that is sent."""

    def __init__(self, uri, size):
        super().__init__()
        self.uri, self.code = uri, 100
        self.rows = {str(1000 + i): "val0" for i in range(size)}

    def content(self, rows, **options):
        payload = json.dumps({"data": rows}, separators=(",", ":")).encode()
        etag = self.code.to_bytes(8, "big").lstrip(b"\0")
        return answer(self.uri, aiocoap.CONTENT, payload, etag=etag, **options)

    def all_rows(self):
        return [{"op": "u", "key": key, "val": val} for key, val in sorted(self.rows.items())]

    async def render_get(self, request):
        codes = [text for text in request.opt.uri_query if text.startswith(CHECK_CODE)]
        if request.opt.observe != 0 or codes == [f"{CHECK_CODE}{self.code}"]:
            return answer(self.uri, aiocoap.CONTENT)
        return self.content(self.all_rows(), uri_query=codes)

    def change(self, verb, key, val=""):
        self.code += 1
        if verb == "del":
            self.rows.pop(key, None)
        else:
            self.rows[key] = val
        if verb == "set":
            self.updated_state(self.content([{"op": "u", "key": key, "val": val}]))
        elif verb == "del":
            self.updated_state(self.content([{"op": "d", "key": key}]))


class Control(resource.Resource):
    def __init__(self, tables):
        super().__init__()
        self.tables = {table.uri: table for table in tables}

    async def render_post(self, request):
        verb, uri, *rest = request.payload.decode().split()
        self.tables[uri].change(verb, *rest)
        return aiocoap.Message(code=aiocoap.CHANGED)


async def main():
    logging.disable(logging.ERROR)
    tables = [Table("table", 2), Table("refused", 2)]
    plain = [Plain("echo"), Plain("slow", delay=SLOW_SECONDS), Plain("bare", has_path=False),
             Large("large")]
    site = resource.Site()
    for each in tables + plain:
        site.add_resource([each.uri], each)
    site.add_resource(["ctl"], Control(tables))
    await aiocoap.Context.create_server_context(site, bind=(outcome.SERVER, 5683))
    print("serving", flush=True)
    await asyncio.get_running_loop().create_future()


if __name__ == "__main__":
    asyncio.run(main())
