#!/usr/bin/env python3
"""What our client calls: the resources of store.md, with aiocoap."""

import asyncio
import logging

import aiocoap
from aiocoap import resource
from aiocoap.numbers.codes import Code

import outcome

DELAY_SECONDS = 1
TEXT, JSON = 0, 50


def text(payload, code=Code.CONTENT):
    return aiocoap.Message(code=code, payload=payload, content_format=TEXT)


class Hello(resource.Resource):
    async def render_get(self, request):
        return text(b"hello")


class Test(Hello):
    async def render_put(self, request):
        return aiocoap.Message(code=Code.CHANGED)

    async def render_post(self, request):
        return text(request.payload.upper(), Code.CHANGED)

    async def render_delete(self, request):
        return aiocoap.Message(code=Code.DELETED)


class Query(resource.Resource):
    async def render_get(self, request):
        return text(" ".join(request.opt.uri_query).encode())


class Separate(resource.Resource):
    async def render_get(self, request):
        await asyncio.sleep(DELAY_SECONDS)
        return text(b"later")


class Location(resource.Resource):
    async def render_post(self, request):
        return aiocoap.Message(code=Code.CREATED, location_path=("location", "1"))


class Accept(resource.Resource):
    async def render_get(self, request):
        if request.opt.accept in (None, TEXT):
            return text(b"hello")
        if request.opt.accept != JSON:
            return aiocoap.Message(code=Code.NOT_ACCEPTABLE)
        return aiocoap.Message(code=Code.CONTENT, payload=b'{"text":"hello"}', content_format=JSON)


class Validate(resource.Resource):
    """Its ETag is its version."""

    def __init__(self):
        super().__init__()
        self.payload, self.version = b"hello", 1

    def etag(self):
        return bytes([self.version])

    async def render_get(self, request):
        if self.etag() in request.opt.etags:
            return aiocoap.Message(code=Code.VALID, etag=self.etag())
        message = text(self.payload)
        message.opt.etag = self.etag()
        return message

    async def render_put(self, request):
        wanted = request.opt.if_match
        if request.opt.if_none_match or (wanted and self.etag() not in wanted):
            return aiocoap.Message(code=Code.PRECONDITION_FAILED)
        self.payload, self.version = request.payload, self.version + 1
        return aiocoap.Message(code=Code.CHANGED)


class Large(resource.Resource):
    async def render_get(self, request):
        return text(outcome.pattern(20000))

    async def render_put(self, request):
        is_good = request.payload == outcome.pattern(len(request.payload))
        return aiocoap.Message(code=Code.CHANGED if is_good else Code.BAD_REQUEST)

    render_post = render_put


class Echo(resource.Resource):
    async def render_post(self, request):
        return text(request.payload, Code.CHANGED)


class Observed(resource.ObservableResource):
    def __init__(self, payload):
        super().__init__()
        self.payload = payload

    async def render_get(self, request):
        return text(self.payload)

    def made(self, payload):
        return payload

    async def render_put(self, request):
        self.payload = self.made(request.payload)
        self.updated_state()
        return aiocoap.Message(code=Code.CHANGED)

    async def render_delete(self, request):
        self.updated_state(aiocoap.Message(code=Code.NOT_FOUND))
        return aiocoap.Message(code=Code.DELETED)


class ObservedPattern(Observed):
    def made(self, payload):
        return outcome.pattern(int(payload))


async def main():
    logging.disable(logging.ERROR)
    site = resource.Site()
    site.add_resource([".well-known", "core"],
                      resource.WKCResource(site.get_resources_as_linkheader))
    for path, served in {
            "test": Test(), "seg1/seg2/seg3": Hello(), "query": Query(), "separate": Separate(),
            "location": Location(), "accept": Accept(), "validate": Validate(), "large": Large(),
            "large-echo": Echo(), "obs": Observed(b"val0"), "obs-away": Observed(b"val0"),
            "obs-large": ObservedPattern(outcome.pattern(3000))}.items():
        site.add_resource(path.split("/"), served)
    await aiocoap.Context.create_server_context(site, bind=(outcome.SERVER, 5683))
    print("serving", flush=True)
    await asyncio.get_running_loop().create_future()


if __name__ == "__main__":
    asyncio.run(main())
