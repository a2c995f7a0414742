#!/usr/bin/env python3
"""Runs the cases with aiocoap, and prints what it saw of each."""

import asyncio
import logging
import sys
from urllib.parse import urlsplit

import aiocoap
import aiocoap.resource
from aiocoap import error
from aiocoap.tokenmanager import TokenManager

import outcome

SETTLE_SECONDS = 3 * outcome.SLOWNESS
CHANGE_SECONDS = 2.5 * outcome.SLOWNESS



def options_of(message):
    found = []
    if message.opt.etag is not None:
        found.append(("ETag", ""))
    if message.opt.observe is not None:
        found.append(("Observe", ""))
    # The site takes the path off a request.
    path = message.opt.uri_path or urlsplit(message.get_request_uri()).path.split("/")[1:]
    if message.opt.uri_path or message.code.is_request():
        found.append(("Uri-Path", "/".join(path)))
    if message.opt.content_format is not None:
        found.append(("Content-Format", int(message.opt.content_format)))
    if message.opt.uri_query:
        found.append(("Uri-Query", "&".join(message.opt.uri_query)))
    if message.opt.location_path:
        found.append(("Location-Path", "/".join(message.opt.location_path)))
    if message.opt.location_query:
        found.append(("Location-Query", "&".join(message.opt.location_query)))
    return found


def text_of(message):
    code = message.code.dotted if message.code.is_response() else message.code.name
    return outcome.message_text(message.mtype.name, code, options_of(message), message.payload)


def message_of(request):
    host = outcome.RELAY if request.get("lossy") else outcome.SERVER
    message = aiocoap.Message(
        code=aiocoap.Code[request.get("method", "GET")],
        uri=f"coap://{host}/{request['path']}",
        payload=outcome.payload_of(request),
        transport_tuning=aiocoap.Unreliable if request.get("non") else aiocoap.Reliable,
    )
    # Uri-Host and Uri-Port are those of the address anyway.
    message.opt.uri_host = message.opt.uri_port = None
    message.opt.uri_query = request.get("query", [])
    for each in request.get("checkCode", []):
        message.opt.uri_query += (f"_ual-checkcode={each}",)
    for name, value in request.get("options", {}).items():
        set_option(message, name, value)
    return message


def set_option(message, name, value):
    if name == "accept":
        message.opt.accept = value
    elif name == "etag":
        message.opt.etags = [bytes.fromhex(value)]
    elif name == "if-match":
        message.opt.if_match = [bytes.fromhex(value)]
    elif name == "if-none-match":
        message.opt.if_none_match = True
    elif name == "block2":
        message.opt.block2 = (0, False, value)
    elif name == "block1":
        message.remote.maximum_block_size_exp = value


class Inbox(aiocoap.resource.Resource):
    """Where the answers of later arrive."""

    def __init__(self):
        super().__init__()
        self.texts = []

    async def render_post(self, request):
        self.texts.append(text_of(request))
        return aiocoap.Message(code=aiocoap.CHANGED)


async def ask(context, request):
    call = context.request(message_of(request))
    try:
        return text_of(await asyncio.wait_for(call.response, outcome.patience(request)))
    except (asyncio.TimeoutError, error.Error) as problem:
        return outcome.NO_ANSWER if isinstance(problem, asyncio.TimeoutError) else repr(problem)


async def run_plain(request):
    context = await aiocoap.Context.create_client_context()
    if request.get("tokenless"):
        next(each for each in context.request_interfaces
             if isinstance(each, TokenManager)).next_token = lambda: b""
    try:
        return await ask(context, request)
    finally:
        await context.shutdown()


async def run_separate(request):
    inbox, site = Inbox(), aiocoap.resource.Site()
    site.add_resource(["separate"], inbox)
    context = await aiocoap.Context.create_server_context(site, bind=("127.0.0.1", 5683))
    try:
        answer = await ask(context, request)
        return " | ".join(inbox.texts + [answer])
    finally:
        await context.shutdown()


async def follow(observation, texts):
    try:
        async for message in observation:
            texts.append(text_of(message))
    except error.Error as problem:
        texts.append(repr(problem))


async def change(path, value):
    await run_plain({"method": "POST", "path": "ctl", "payload": f"set {path} 1000 {value}"})
    await asyncio.sleep(CHANGE_SECONDS)


async def end_observation(context, call, request):
    """After a cancel aiocoap takes one more notification, and answers the next with a reset."""
    if request["end"] == "vanish":
        await context.shutdown()
        await change(request["path"], "gone")
        return
    if request["end"] == "gone":
        return
    call.observation.cancel()
    await change(request["path"], "end1")
    await change(request["path"], "end2")


async def run_observe(request):
    await run_plain(outcome.start_of(request))
    log = outcome.ServerLog(request["path"])
    context = await aiocoap.Context.create_client_context()
    message = message_of(request)
    message.opt.observe = 0
    call = context.request(message)
    texts, follower = [], None
    try:
        texts.append(text_of(await asyncio.wait_for(call.response, SETTLE_SECONDS)))
        follower = asyncio.create_task(follow(call.observation, texts))
        await asyncio.sleep(SETTLE_SECONDS)
        for step in request["steps"]:
            await run_plain({"method": "POST", "path": "ctl", "payload": step})
            await asyncio.sleep(CHANGE_SECONDS)
        follower.cancel()
        await end_observation(context, call, request)
    except asyncio.TimeoutError:
        texts.append(outcome.NO_ANSWER)
    if request["end"] != "vanish":
        await context.shutdown()
    await asyncio.to_thread(log.wait_left, 120 if request["end"] == "vanish" else 5)
    return " | ".join([*texts, log.text()])


async def run(request):
    if "steps" in request:
        return await run_observe(request)
    return await (run_separate(request) if request.get("separate") else run_plain(request))


async def main():
    logging.disable(logging.ERROR)
    for name, request in outcome.cases("aiocoap"):
        try:
            outcome.tell(name, await run(request))
        except Exception as problem:  # the other cases go on
            outcome.tell(name, f"broken: {problem!r}")


if __name__ == "__main__":
    sys.exit(asyncio.run(main()))
