"""What is left of many uses: in the heap, which has Python's objects as well, and in the library's pool."""

from __future__ import annotations

import asyncio
import ctypes
import gc
import logging
import socket
from collections.abc import Awaitable, Callable

import pytest
from conftest import Run

from coaprpc import CoapRpcError, Node, Request, _call, _serve, _table, record

CALLS = 10_000
ROUNDS = 8


@record("!I")
class Key:
    number: int


class Mallinfo2(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in ["arena", "ordblks", "smblks", "hblks", "hblkhd"]] + [
        (name, ctypes.c_size_t) for name in ["usmblks", "fsmblks", "uordblks", "fordblks", "keepcost"]
    ]


def heap_bytes() -> int:
    """Bytes in use in the C heap of the process: exact with the address sanitizer."""
    process = ctypes.CDLL(None)
    if hasattr(process, "__sanitizer_get_current_allocated_bytes"):
        count = process.__sanitizer_get_current_allocated_bytes
        count.restype = ctypes.c_size_t
        return int(count())
    process.mallinfo2.restype = Mallinfo2
    info = process.mallinfo2()
    return int(info.uordblks + info.hblkhd)


def live_allocations(node: Node) -> int:
    """Pieces of memory from the node's pool."""
    assert node._opened is not None
    return node._opened.instance.live_allocations()


def assert_nothing_grew(before: int, times: int) -> None:
    """The smallest piece of memory, left each time, would take more."""
    gc.collect()
    grown = heap_bytes() - before
    assert grown < 16 * times, f"{grown} bytes more after {times} times"


async def assert_leaves_nothing(use: Callable[[int], Awaitable[None]], times: int) -> None:
    """A leak grows in every round; what malloc and Python keep for the next use does not."""
    grown: list[int] = []
    while len(grown) < ROUNDS and min(grown, default=16 * times) >= 16 * times:
        gc.collect()
        before = heap_bytes()
        await use(times)
        gc.collect()
        grown.append(heap_bytes() - before)
    assert min(grown) < 16 * times, f"{grown} bytes more after {times} times each"


def test_objects_of_python_are_in_the_heap_that_is_counted() -> None:
    before = heap_bytes()
    kept = [object() for _ in range(CALLS)]
    assert heap_bytes() - before > 16 * len(kept)


def test_ten_thousand_calls_leave_nothing(run_often: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            async def later(request: Request) -> bytes:
                return request.payload

            def bad(request: Request) -> bytes:
                return 7  # type: ignore[return-value]

            node.serve("now", methods=["FETCH"])(lambda request: request.payload)
            node.serve("later", methods=["FETCH"])(later)
            node.serve("bad", methods=["FETCH"])(bad)

            async def ask(times: int) -> None:
                for i in range(times // 50):
                    url = f"coap://127.0.0.1:{port}/{('now', 'later', 'bad')[i % 3]}?a=1"
                    calls = (node.call(url, b"x" * 100, method="FETCH", is_non=True) for _ in range(50))
                    await asyncio.gather(*calls, return_exceptions=True)

            await ask(CALLS // 10)
            gc.collect()
            live, before = live_allocations(node), heap_bytes()
            await ask(CALLS)
            assert_nothing_grew(before, CALLS)
            assert live_allocations(node) - live < 100

    logging.disable()
    run_often(main)
    logging.disable(logging.NOTSET)
    gc.collect()
    assert (_call._takers, dict(_serve._entries), dict(_table._tables)) == ({}, {}, {})


def test_cancelled_and_refused_calls_leave_nothing(run_often: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as server, Node() as node:
            server.table("t", Key, Key)
            silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            silent.bind(("127.0.0.1", 0))

            async def cancel(times: int) -> None:
                for _ in range(times):
                    url = f"coap://127.0.0.1:{silent.getsockname()[1]}/never"
                    call = asyncio.create_task(node.call(url, is_non=True))
                    await asyncio.sleep(0)
                    call.cancel()
                    await asyncio.gather(call, return_exceptions=True)
                    notes = node.observe(f"coap://127.0.0.1:{port}/t?_sync=1")
                    await anext(notes)
                    await notes.aclose()
                    with pytest.raises(CoapRpcError):
                        await node.call(f"coap://127.0.0.1:{port}/{'a' * 300}")

            await cancel(200)
            assert _call._takers == {}
            live = live_allocations(node)
            await assert_leaves_nothing(cancel, 500)
            assert live_allocations(node) - live < 100
            silent.close()

    run_often(main)


def test_nodes_leave_nothing(run_often: Run, port: int) -> None:
    async def main() -> None:
        async def use(times: int) -> None:
            for _ in range(times):
                async with Node("127.0.0.1", port) as node:
                    node.serve("a")(lambda request: b"a")
                    node.table("t", Key, Key).replace({Key(i): Key(i) for i in range(10)})
                    await node.call(f"coap://127.0.0.1:{port}/a")

        await use(100)
        gc.collect()
        before = heap_bytes()
        await use(1000)
        assert_nothing_grew(before, 1000)

    run_often(main)


def test_mirrors_leave_nothing(run_often: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table = node.table("t", Key, Key)
            table.replace({Key(i): Key(i) for i in range(100)})

            async def copy(times: int) -> None:
                for i in range(times):
                    async with client.mirror(f"coap://127.0.0.1:{port}/t", Key, Key) as mirror:
                        await mirror.synced()
                        changes = mirror.changes()
                        await anext(changes)
                        table[Key(0)] = Key(i)
                        await changes.aclose()

            def counts() -> tuple[int, int]:
                gc.collect()
                return live_allocations(client), len(gc.get_objects())

            await copy(50)
            before = counts()
            await copy(200)
            after = counts()
            # The server keeps a thousand idle peers, and each mirror has a port: the heap would tell of those.
            assert max(is_now - was for was, is_now in zip(before, after, strict=True)) < 100

    run_often(main)


def test_changes_of_a_table_leave_nothing(run_often: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("t", Key, Key)

            async def change(times: int) -> None:
                for i in range(times):
                    table[Key(i % 100)] = Key(i)
                    if i % 3 == 0:
                        del table[Key(i % 100)]
                    if i % 1000 == 0:
                        await asyncio.sleep(0.01)

            await change(CALLS)
            gc.collect()
            live, before = live_allocations(node), heap_bytes()
            await change(CALLS)
            assert_nothing_grew(before, CALLS)
            assert live_allocations(node) - live < 100

    run_often(main)
