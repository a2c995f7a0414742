#!/usr/bin/env python3
"""Reads a table whose changes have versions with aiocoap and cbor2; status 1 when a claim of
docs/sync.md does not hold.  Written from that document alone."""

import asyncio
import json
import sys

import aiocoap
import cbor2

import outcome

TABLE = "obs-large"
NUM_ROWS = 300
PAGE_BYTES = 256
AT_HEAD, RESTART, NOTIFICATION, NOT_OBSERVING = 1, 2, 4, 16
CBOR, JSON = 60, 50
MASK = 2**64 - 1


def xxh64(eight):
    """Of eight bytes, seed 0."""
    first, second, third = 0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9
    fourth, fifth = 0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5

    def turned(number, bits):
        return (number << bits | number >> (64 - bits)) & MASK

    lane = int.from_bytes(eight, "little") * second & MASK
    found = (fifth + 8) ^ (turned(lane, 31) * first & MASK)
    found = (turned(found, 27) * first + fourth) & MASK
    found = (found ^ found >> 33) * second & MASK
    found = (found ^ found >> 29) * third & MASK
    return found ^ found >> 32


class Page:
    """One message: its head, and its changes as (version, key, value)."""

    def __init__(self, message):
        claim(message.code == aiocoap.CONTENT, f"code {message.code}")
        claim(message.opt.content_format == CBOR, "format is not CBOR")
        claim(message.opt.block2 is None, "a page came in blocks")
        claim(len(message.payload) <= PAGE_BYTES, f"page of {len(message.payload)} bytes")
        items = cbor2.loads(message.payload)
        number, self.flags, self.replid, self.start, self.end, self.head = items[:6]
        self.floor, self.digest = items[6:8]
        claim(number == 1, f"format {number}")
        self.changes, version = [], self.start
        for delta, key, value in zip(*[iter(items[8:])] * 3):
            version += delta
            self.changes.append((version, key, value))
        claim(all(self.start < each[0] <= self.end for each in self.changes), "a version out of range")


class Copy:
    def __init__(self):
        self.rows, self.version = {}, 0

    def apply(self, page):
        claim(page.start <= self.version, "a gap")
        for version, key, value in page.changes:
            if version <= self.version:
                continue
            if value is None:
                self.rows.pop(key, None)
            else:
                self.rows[key] = value
        self.version = max(self.version, page.end)

    def digest(self):
        return sum(xxh64(key + value) for key, value in self.rows.items()) & MASK


def claim(holds, text):
    if not holds:
        raise AssertionError(text)


def request(*args, accept=None, observe=None):
    message = aiocoap.Message(code=aiocoap.GET, uri=f"coap://{outcome.SERVER}/{TABLE}")
    message.opt.uri_host = message.opt.uri_port = None
    message.opt.uri_query = ("_sync=1",) + args
    message.opt.accept = accept
    message.opt.observe = observe
    return message


async def ask(context, *args, **options):
    call = context.request(request(*args, **options))
    return await asyncio.wait_for(call.response, 3 * outcome.SLOWNESS)


async def order(text):
    """Has the server change its table."""
    context = await aiocoap.Context.create_client_context()
    message = aiocoap.Message(
        code=aiocoap.POST, uri=f"coap://{outcome.SERVER}/ctl", payload=text.encode())
    message.opt.uri_host = message.opt.uri_port = None
    await asyncio.wait_for(context.request(message).response, 3 * outcome.SLOWNESS)
    await context.shutdown()


async def read_all(context, replid, copy):
    """Pulls page after page, and returns how many there were."""
    for num in range(1, 100):
        page = Page(await ask(context, f"id={replid:x}", f"since={copy.version}"))
        claim(page.start == copy.version, "another page than was asked for")
        claim(not page.flags & NOT_OBSERVING, "the registration is not known")
        copy.apply(page)
        if page.flags & AT_HEAD:
            claim(page.end == page.head and copy.digest() == page.digest, "another digest")
            return num
    raise AssertionError("pages without an end")


async def follow(observation, copy, version):
    """Takes notifications until the copy has a version."""
    async for message in observation:
        page = Page(message)
        claim(page.flags == AT_HEAD | NOTIFICATION, f"flags {page.flags} of a notification")
        copy.apply(page)
        if copy.version >= version:
            claim(copy.digest() == page.digest, "another digest after a notification")
            return


async def check_edges(context, head):
    newcomer = Page(await ask(context))
    claim(not newcomer.changes, "a newcomer gets rows")
    other = Page(await ask(context, "id=1", "since=3"))
    claim(other.flags & RESTART and not other.changes, "another life does not begin again")
    ahead = Page(await ask(context, f"id={head.replid:x}", f"since={head.head + 1}"))
    claim(ahead.flags & RESTART, "a version to come does not begin again")
    some = Page(await ask(context, f"id={head.replid:x}", "since=10", "until=20"))
    claim([each[0] for each in some.changes] == list(range(11, 21)), "another range")
    for args in (["since=-1"], ["since=x"], ["since=2", "until=1"], [f"since={2**64}"]):
        answer = await ask(context, f"id={head.replid:x}", *args)
        claim(answer.code == aiocoap.BAD_REQUEST, f"{args} gets {answer.code}")
    text = await ask(context, f"id={head.replid:x}", "since=10", "until=20", accept=JSON)
    items = json.loads(text.payload)
    claim(text.opt.content_format == JSON and len(items) == 8 + 3 * 10, "another page as JSON")
    claim(items[2] == f"{head.replid:016x}" and items[9] == some.changes[0][1].hex(), "other texts")
    refused = await ask(context, accept=0)
    claim(refused.code == aiocoap.NOT_ACCEPTABLE, f"Accept 0 gets {refused.code}")


async def talk(context):
    stranger = Page(await ask(context))
    claim(stranger.flags & NOT_OBSERVING, "a stranger observes")
    call = context.request(request(observe=0))
    head = Page(await asyncio.wait_for(call.response, 3 * outcome.SLOWNESS))
    claim(head.flags == 0 and not head.changes, "another answer to a registration")
    copy = Copy()
    numPages = await read_all(context, head.replid, copy)
    claim(len(copy.rows) == NUM_ROWS, f"{len(copy.rows)} rows")
    await check_edges(context, head)
    follower = asyncio.create_task(follow(call.observation, copy, head.head + 2))
    await asyncio.sleep(0)
    await order(f"set {TABLE} 1000 seen")
    await order(f"del {TABLE} 1001")
    await asyncio.wait_for(follower, 10 * outcome.SLOWNESS)
    claim(copy.rows[b"1000"] == b"seen" and b"1001" not in copy.rows, "other rows")
    claim(await read_all(context, head.replid, copy) == 1, "more than was told")
    call.observation.cancel()
    return f"{NUM_ROWS} rows in {numPages} pages, then by notifications"


async def main():
    context = await aiocoap.Context.create_client_context()
    try:
        print(await talk(context))
        return 0
    except (AssertionError, aiocoap.error.Error, asyncio.TimeoutError) as problem:
        print(f"aiocoap: versions: {problem!r}")
        return 1
    finally:
        await context.shutdown()


if __name__ == "__main__":
    sys.exit(asyncio.run(main()))
