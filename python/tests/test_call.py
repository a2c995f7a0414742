"""Calls and observations: how each way to end reaches the caller, and that nothing is left."""

from __future__ import annotations

import asyncio
import gc
import socket
import threading
from collections.abc import AsyncGenerator, Callable
from typing import Any

import pytest
from conftest import Run

from coaprpc import (
    CallError,
    CallReset,
    CallTimeout,
    CallUnreachable,
    CoapRpcError,
    ErrorReply,
    Node,
    NodeClosed,
    Reply,
    Request,
    Response,
    record,
)
from coaprpc._native import lib

RESET, ACK = 0x70, 0x60


@record("!H")
class Key:
    number: int


@record("!I")
class Val:
    number: int


class Peer(asyncio.DatagramProtocol):
    """Notes what comes, and answers with what ``answer`` makes of it."""

    def __init__(self, answer: Callable[[bytes], bytes | None]) -> None:
        self.answer = answer
        self.seen: asyncio.Queue[bytes] = asyncio.Queue()

    def connection_made(self, transport: Any) -> None:
        self.transport = transport

    def datagram_received(self, data: bytes, peer: Any) -> None:
        self.asker = peer
        self.seen.put_nowait(data)
        answer = self.answer(data)
        if answer is not None:
            self.transport.sendto(answer, peer)


async def listen(port: int, answer: Callable[[bytes], bytes | None]) -> Peer:
    loop = asyncio.get_running_loop()
    _, peer = await loop.create_datagram_endpoint(lambda: Peer(answer), ("127.0.0.1", port))
    return peer


def acknowledge(request: bytes) -> bytes:
    """2.05 in the acknowledgement, with the request's token."""
    token_len = request[0] & 15
    return bytes([ACK | token_len, 0x45, *request[2 : 4 + token_len]])


def calls_of(node: Node) -> int:
    """How many calls the library has under way."""
    opened = node._opened
    assert opened is not None
    return int(lib.COAP_RpcGetCallNum(opened.instance.ctx))


def test_nobody_answers_in_time(run: Run, port: int) -> None:
    async def main() -> None:
        peer = await listen(port, lambda data: None)
        async with Node() as node:
            with pytest.raises(CallTimeout) as caught:
                await node.call(f"coap://127.0.0.1:{port}/a", timeout=0.4)
            assert isinstance(caught.value, TimeoutError)
            assert (caught.value.code, str(caught.value)) == (0, "no answer in time")
            assert calls_of(node) == 0
        peer.transport.close()

    run(main)


def test_peer_that_refuses_the_message(run: Run, port: int) -> None:
    async def main() -> None:
        peer = await listen(port, lambda data: bytes([RESET, 0, *data[2:4]]))
        async with Node() as node:
            with pytest.raises(CallReset):
                await node.call(f"coap://127.0.0.1:{port}/a")
        peer.transport.close()

    run(main)


def test_nobody_listens(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node() as node:
            with pytest.raises(CallUnreachable) as caught:
                await node.call(f"coap://127.0.0.1:{port}/a")
            assert isinstance(caught.value, ConnectionError)

    run(main)


def test_error_code_is_an_exception_with_code_and_text(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("no")(lambda request: Response("no such row", 404))
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/no")
            assert (caught.value.code, caught.value.text) == (404, "no such row")
            assert str(caught.value) == "no such row (404)"
            assert caught.value.reply.dotted == "4.04"
            assert isinstance(caught.value, CallError)
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/missing")
            assert caught.value.code == 404

    run(main)


def test_cancelled_task_ends_its_call(run: Run, port: int) -> None:
    async def main() -> None:
        peer = await listen(port, lambda data: bytes([ACK, 0, *data[2:4]]))
        async with Node() as node:
            call = asyncio.create_task(node.call(f"coap://127.0.0.1:{port}/a"))
            await peer.seen.get()
            assert calls_of(node) == 1
            call.cancel()
            with pytest.raises(asyncio.CancelledError):
                await call
            assert calls_of(node) == 0
            with pytest.raises(TimeoutError):
                async with asyncio.timeout(0.01):
                    await node.call(f"coap://127.0.0.1:{port}/b")
            assert calls_of(node) == 0
        peer.transport.close()

    run(main)


def test_answer_after_the_cancel_reaches_nobody(run: Run, port: int) -> None:
    async def main() -> None:
        peer = await listen(port, lambda data: None)
        async with Node() as node:
            call = asyncio.create_task(node.call(f"coap://127.0.0.1:{port}/a"))
            request = await peer.seen.get()
            call.cancel()
            await asyncio.gather(call, return_exceptions=True)
            peer.answer = acknowledge
            peer.transport.sendto(acknowledge(request), peer.asker)
            assert (await node.call(f"coap://127.0.0.1:{port}/b")).code == 205
        peer.transport.close()

    run(main)


def test_garbage_collected_task_and_node_are_no_trap(run: Run, port: int) -> None:
    """Only the loop knows the task, and nobody the node: both live until the answer."""
    answers: list[bytes] = []

    async def main() -> None:
        async with Node("127.0.0.1", port) as server:
            gate = asyncio.Event()

            @server.serve("slow")
            async def slow(request: Request) -> bytes:
                await gate.wait()
                return b"slow"

            async def ask() -> None:
                async with Node() as node:
                    answers.append((await node.call(f"coap://127.0.0.1:{port}/slow", b"x" * 5000)).payload)

            tasks = [asyncio.create_task(ask()) for _ in range(20)]
            for _ in range(20):
                gc.collect()
                await asyncio.sleep(0.001)
            gate.set()
            await asyncio.gather(*tasks)

    run(main)
    assert answers == [b"slow"] * 20


def test_collecting_garbage_in_a_handler(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("gc")
            def collect(request: Request) -> bytes:
                gc.collect()
                return request.payload

            async def collect_later(request: Request) -> bytes:
                gc.collect()
                return request.payload

            node.serve("later")(collect_later)
            for path in ("gc", "later") * 10:
                assert (
                    await node.call(f"coap://127.0.0.1:{port}/{path}", b"x" * 3000)
                ).payload == b"x" * 3000

    run(main)


def test_closing_the_node_ends_calls_and_observations(run: Run, port: int) -> None:
    async def main() -> None:
        peer = await listen(port, lambda data: None)
        async with Node() as node:
            url = f"coap://127.0.0.1:{port}/a"

            async def observe() -> None:
                async for _ in node.observe(url):
                    pass

            tasks = [asyncio.create_task(node.call(url)), asyncio.create_task(observe())]
            await peer.seen.get()
        results = await asyncio.gather(*tasks, return_exceptions=True)
        assert [type(result) for result in results] == [NodeClosed, NodeClosed]
        peer.transport.close()

    run(main)


@pytest.mark.parametrize(
    "url",
    [
        "",
        "a",
        "http://127.0.0.1/a",
        "coaps://127.0.0.1/a",
        "coap:///a",
        "coap://localhost/a",
        "coap://127.0.0.1:0/a",
        "coap://127.0.0.1:65536/a",
        "coap://127.0.0.1:x/a",
        "coap://me@127.0.0.1/a",
        "coap://127.0.0.1/a#b",
        "coap://127.0.0.1/a%2Fb",
        "coap://127.0.0.1/a\nb",
        "coap://127.0.0.1/a\x7fb",
        " coap://127.0.0.1/a",
        "coap://127.0.0.1/a b",
        "coap://127.0.0.1/a%00b",
        "coap://127.0.0.1/a?b=%26",
        "coap://[fe80::1%251]/a",
        "coap://[::1/a",
    ],
)
def test_bad_url_raises_value_error(run: Run, url: str) -> None:
    async def main() -> None:
        async with Node() as node:
            with pytest.raises(ValueError, match=r"."):
                await node.call(url)
            with pytest.raises(ValueError, match=r"."):
                node.observe(url)

    run(main)


@pytest.mark.parametrize(
    "options",
    [
        {"timeout": 0},
        {"timeout": -1},
        {"timeout": float("nan")},
        {"timeout": float("inf")},
        {"etag": b""},
        {"etag": b"123456789"},
        {"if_match": b"123456789"},
        {"accept": -1},
        {"accept": 65536},
        {"payload": b"x", "content_format": 65536},
    ],
)
def test_bad_option_raises_value_error(run: Run, port: int, options: dict[str, Any]) -> None:
    async def main() -> None:
        async with Node() as node:
            with pytest.raises(ValueError, match=r"."):
                await node.call(f"coap://127.0.0.1:{port}/a", **options)
            assert calls_of(node) == 0

    run(main)


@pytest.mark.parametrize(
    ("url", "options", "code"),
    [
        ("/" + "a" * 256, {}, 1900001488),
        ("/a?" + "b" * 256, {}, 1900001489),
        ("/" + "/".join(["a" * 255] * 6), {}, 1900001492),
        ("/a", {"payload": bytes(16777217)}, 1900001491),
    ],
)
def test_call_that_the_library_refuses_has_its_code(
    run: Run, port: int, url: str, options: dict[str, Any], code: int
) -> None:
    async def main() -> None:
        async with Node() as node:
            with pytest.raises(CoapRpcError) as caught:
                await node.call(f"coap://127.0.0.1:{port}{url}", **options)
            assert caught.value.code == code
            assert len(caught.value.text) > 10

    run(main)


@pytest.mark.parametrize(
    "options",
    [{"payload": 7}, {"method": "HEAD"}, {"method": 9}, {"accept": "50"}, {"timeout": "2"}],
)
def test_argument_of_wrong_kind_raises(run: Run, port: int, options: dict[str, Any]) -> None:
    async def main() -> None:
        async with Node() as node:
            with pytest.raises((TypeError, ValueError)):
                await node.call(f"coap://127.0.0.1:{port}/a", **options)
            with pytest.raises(TypeError, match="a URL is a str, not tuple"):
                await node.call(("127.0.0.1", port))  # type: ignore[arg-type]
            assert calls_of(node) == 0

    run(main)


def test_payload_in_blocks_both_ways(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("echo")
            async def echo(request: Request) -> bytes:
                return request.payload

            data = bytes(range(256)) * 1000
            assert (await node.call(f"coap://127.0.0.1:{port}/echo", data)).payload == data

    run(main)


def test_many_calls_at_once(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("echo")(lambda request: request.payload)
            url = f"coap://127.0.0.1:{port}/echo"
            replies = await asyncio.gather(*(node.call(url, str(i)) for i in range(1000)))
            assert [reply.text for reply in replies] == [str(i) for i in range(1000)]

    run(main)


def test_use_by_another_thread_raises(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("rows", Key, Val)
            caught: list[BaseException] = []

            def use() -> None:
                try:
                    table[Key(1)] = Val(1)
                except CoapRpcError as error:
                    caught.append(error)

            thread = threading.Thread(target=use)
            thread.start()
            thread.join()
            assert "thread" in str(caught[0])

    run(main)


# ---- observations ----


def test_observation_yields_changes_until_it_is_left(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("rows", Key, Val)
            notes = node.observe(f"coap://127.0.0.1:{port}/rows?_sync=1")
            first = await anext(notes)
            assert first.code == 205
            assert table.state().observers == 1
            table[Key(1)] = Val(7)
            second = await anext(notes)
            assert second.payload != first.payload
            assert bytes.fromhex("42 0001 44 00000007") in second.payload
            await notes.aclose()
            while calls_of(node):
                await asyncio.sleep(0.001)
            assert table.state().observers == 0

    run(main)


def test_observations_of_one_resource_in_one_node_hear_all(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as server, Node() as node:
            table = server.table("rows", Key, Val)
            url = f"coap://127.0.0.1:{port}/rows?_sync=1"
            first, second = node.observe(url), node.observe(url)

            async def hear(notes: AsyncGenerator[Reply, None], value: int) -> None:
                while bytes.fromhex(f"44 {value:08x}") not in (await anext(notes)).payload:
                    pass

            await asyncio.gather(anext(first), anext(second))
            table[Key(1)] = Val(7)
            await hear(first, 7)
            await hear(second, 7)
            assert table.state().observers == 1
            await first.aclose()
            table[Key(1)] = Val(8)
            await hear(second, 8)
            await second.aclose()
            while table.state().observers:
                await asyncio.sleep(0.001)

    run(main)


def test_observation_that_is_dropped_ends(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("rows", Key, Val)

            async def look_once() -> None:
                async for _ in node.observe(f"coap://127.0.0.1:{port}/rows?_sync=1"):
                    return

            await look_once()
            gc.collect()
            while table.state().observers:
                await asyncio.sleep(0.001)

    run(main)


def test_slow_reader_gets_the_latest_notes(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as slow, Node() as quick:
            table = node.table("rows", Key, Val)
            url = f"coap://127.0.0.1:{port}/rows?_sync=1"
            notes = slow.observe(url, keep=2)
            await anext(notes)
            other = quick.observe(url)
            await anext(other)
            for i in range(10):
                table[Key(1)] = Val(i)
                await anext(other)
            await slow.call(url)  # its notes have come before this answer
            kept = [await anext(notes) for _ in range(2)]
            assert bytes.fromhex("44 00000009") in kept[-1].payload
            assert not any(bytes.fromhex("44 00000003") in note.payload for note in kept)
            for generator in (notes, other):
                await generator.aclose()

    run(main)


def test_resource_that_is_not_observable_is_asked_once(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("once")(lambda request: b"once")
            notes = [note.text async for note in node.observe(f"coap://127.0.0.1:{port}/once")]
            assert notes == ["once"]
            with pytest.raises(ErrorReply):
                await anext(node.observe(f"coap://127.0.0.1:{port}/none"))
            with pytest.raises(ValueError, match="at least one"):
                node.observe(f"coap://127.0.0.1:{port}/once", keep=0)

    run(main)


def test_observation_that_nobody_answers(run: Run, port: int) -> None:
    async def main() -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", port))
            async with Node() as node:
                with pytest.raises(CallTimeout):
                    await anext(node.observe(f"coap://127.0.0.1:{port}/a", timeout=0.05))
                assert calls_of(node) == 0

    run(main)
