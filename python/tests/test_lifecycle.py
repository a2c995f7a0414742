"""Nodes from their opening to their end, also the ends that nobody wants."""

from __future__ import annotations

import asyncio
import concurrent.futures
import gc
import os
import re
import subprocess
import sys
import threading
import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from conftest import Run, free_port

from coaprpc import CoapRpcError, Node, NodeClosed, NodeForked, Request, record
from coaprpc._native import lib

NODES = 10_000


@record("!H")
class Key:
    number: int


def run_script(text: str, *arguments: str, status: int = 0) -> str:
    """Runs a program as users do and returns what it said.  With the sanitizer, nothing of ours may leak."""
    env = dict(os.environ)
    if "COAPRPC_PRELOAD" in env:
        env["LD_PRELOAD"] = env["COAPRPC_PRELOAD"]
        env["ASAN_OPTIONS"] = env["ASAN_OPTIONS"].replace("detect_leaks=0", "detect_leaks=1")
        env["LSAN_OPTIONS"] = "exitcode=0"  # Python leaves something at its end
    done = subprocess.run(
        [sys.executable, "-X", "dev", "-c", text, *arguments],
        env=env,
        capture_output=True,
        text=True,
        timeout=120,
        check=False,
    )
    assert done.returncode == status, done.stderr
    leaks = [
        line for line in done.stderr.splitlines() if re.search(r"#\d+ .*(_native|coap_svc|kestrel)", line)
    ]
    assert leaks == [], done.stderr
    return done.stdout + done.stderr


# ---- closed nodes ----


async def use_everything(node: Node) -> None:
    """Each use has to raise NodeClosed."""
    uses: list[Callable[[], Any]] = [
        lambda: node.serve("a"),
        lambda: node.observe("coap://127.0.0.1/a"),
        lambda: node.table("t", Key, Key),
    ]
    for use in uses:
        with pytest.raises(NodeClosed):
            use()
    with pytest.raises(NodeClosed):
        await node.call("coap://127.0.0.1/a")


def test_node_raises_before_and_after_it_is_open(run: Run) -> None:
    async def main() -> None:
        node = Node()
        await use_everything(node)
        async with node:
            pass
        await use_everything(node)
        with pytest.raises(CoapRpcError, match="opened once"):
            await node.__aenter__()
        await node.__aexit__(None, None, None)

    run(main)


def test_decorator_of_a_closed_node_raises(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            serve = node.serve("a")
            notes = node.observe(f"coap://127.0.0.1:{port}/a")
        with pytest.raises(NodeClosed):
            serve(lambda request: b"")
        with pytest.raises(NodeClosed):
            await anext(notes)

    run(main)


def test_body_that_raises_closes_the_node(run: Run, port: int) -> None:
    async def fail() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: b"")
            raise LookupError

    async def main() -> None:
        with pytest.raises(LookupError):
            await fail()
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: b"again")
            assert (await node.call(f"coap://127.0.0.1:{port}/a")).text == "again"

    run(main)


def test_handler_that_closes_its_node(run: Run, port: int) -> None:
    async def main() -> None:
        closed = asyncio.Event()
        async with Node() as client, Node("127.0.0.1", port) as node:

            @node.serve("close")
            async def close(request: Request) -> bytes:
                await node.__aexit__(None, None, None)
                closed.set()
                return b"too late"

            with pytest.raises(CoapRpcError):
                await client.call(f"coap://127.0.0.1:{port}/close", b"x", timeout=0.2)
            await closed.wait()
            await use_everything(node)

    run(main)


def test_cancelled_while_closing_the_node_is_closed(run: Run, port: int) -> None:
    async def main() -> None:
        node = Node("127.0.0.1", port)
        started, release = asyncio.Event(), asyncio.Event()

        async def stay() -> None:
            async with node:

                @node.serve("stubborn")
                async def stubborn(request: Request) -> bytes:
                    started.set()
                    while not release.is_set():
                        try:
                            await release.wait()
                        except asyncio.CancelledError:
                            asyncio.get_running_loop().call_later(0.01, release.set)
                    return b""

                with pytest.raises(CoapRpcError):
                    await node.call(f"coap://127.0.0.1:{port}/stubborn", b"", timeout=0.05)

        task = asyncio.create_task(stay())
        await started.wait()
        while not release.is_set():
            await asyncio.sleep(0.001)
        task.cancel()
        await asyncio.gather(task, return_exceptions=True)
        await use_everything(node)

    run(main)


# ---- many ----


def test_ten_thousand_nodes(run_often: Run, port: int) -> None:
    """Opened and closed one after the other, in the state in which a program would leave them."""

    async def main() -> None:
        descriptors = len(os.listdir("/proc/self/fd"))
        for i in range(NODES):
            async with Node("127.0.0.1", port) as node:
                if i % 100 == 0:
                    node.serve("a")(lambda request: b"a")
                    await node.call(f"coap://127.0.0.1:{port}/a")
        assert len(os.listdir("/proc/self/fd")) == descriptors

    run_often(main)


def test_hundred_nodes_at_once(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as server:
            server.serve("a")(lambda request: request.payload)

            async def ask(i: int) -> None:
                async with Node() as node:
                    assert (await node.call(f"coap://127.0.0.1:{port}/a", str(i))).text == str(i)

            await asyncio.gather(*map(ask, range(100)))

    run(main)


class BareHandle:
    """A handle of a timer that can be cancelled and nothing else, as uvloop has them."""

    _source_traceback = None

    def __init__(self, handle: asyncio.TimerHandle) -> None:
        self.cancel = handle.cancel


class OtherLoop(asyncio.SelectorEventLoop):
    def call_at(self, *args: Any, **kwargs: Any) -> Any:  # type: ignore[override]
        return BareHandle(super().call_at(*args, **kwargs))


def test_loop_of_another_kind(port: int) -> None:
    async def main() -> bytes:
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: request.payload)
            return (await node.call(f"coap://127.0.0.1:{port}/a", b"hi")).payload

    with asyncio.Runner(loop_factory=OtherLoop) as runner:
        assert runner.run(main()) == b"hi"


def test_nodes_of_two_threads_do_not_wait_for_each_other(run: Run, port: int) -> None:
    """One is opened, used and closed while a handler of the other one is running."""

    async def use_another(other: int) -> bytes:
        async with Node("127.0.0.1", other) as node:
            node.serve("b")(lambda request: b"done")
            return (await node.call(f"coap://127.0.0.1:{other}/b")).payload

    async def main() -> None:
        with concurrent.futures.ThreadPoolExecutor() as pool:
            async with Node("127.0.0.1", port) as node:

                @node.serve("a")
                def wait(request: Request) -> bytes:
                    return pool.submit(asyncio.run, use_another(free_port())).result()

                assert (await node.call(f"coap://127.0.0.1:{port}/a", timeout=60)).payload == b"done"

    run(main)


def test_call_that_another_thread_drops_is_ended_by_its_own(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node() as node:
            assert node._opened is not None
            ctx = node._opened.instance.ctx
            seen: list[int] = []
            call = node.call(f"coap://127.0.0.1:{port}/a", is_non=True, timeout=60)
            call.send(None)

            def drop() -> None:
                call.close()
                seen.append(lib.COAP_RpcGetCallNum(ctx))

            thread = threading.Thread(target=drop)
            thread.start()
            thread.join()
            assert seen == [1]
            await asyncio.sleep(0)
            assert lib.COAP_RpcGetCallNum(ctx) == 0

    run(main)


# ---- nobody closes them ----


def abandon(port: int) -> None:
    """Leaves a node behind, open and in the middle of a call, with its loop."""

    async def main() -> None:
        node = await Node("127.0.0.1", port).__aenter__()
        arrived = asyncio.Event()

        @node.serve("never")
        async def never(request: Request) -> bytes:
            arrived.set()
            await asyncio.get_running_loop().create_future()
            return b""

        node.table("t", Key, Key)[Key(1)] = Key(2)
        call = asyncio.create_task(node.call(f"coap://127.0.0.1:{port}/never", b"x"))
        await arrived.wait()
        call.cancel()

    asyncio.run(main())


def test_node_that_nobody_closes_is_released(port: int) -> None:
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        descriptors = len(os.listdir("/proc/self/fd"))
        for _ in range(20):
            abandon(port)
            gc.collect()
        assert len(os.listdir("/proc/self/fd")) == descriptors
    assert [str(warning.message) for warning in caught if warning.category is ResourceWarning] == [
        "a node was not closed"
    ] * 20


def test_garbage_that_is_collected_inside_the_library_is_released_after_it(run: Run, port: int) -> None:
    async def main() -> None:
        left: list[object] = []
        async with Node("127.0.0.1", port) as node:

            @node.serve("collect")
            def collect(request: Request) -> bytes:
                descriptors = len(os.listdir("/proc/self/fd"))
                left.clear()
                gc.collect()
                assert len(os.listdir("/proc/self/fd")) == descriptors
                return b"done"

            other = await Node().__aenter__()
            opened = other._opened
            assert opened is not None
            asyncio.get_running_loop().remove_reader(opened.instance._fd)
            opened.instance._disarm()
            left.append(other)
            del other, opened
            descriptors = len(os.listdir("/proc/self/fd"))
            with pytest.warns(ResourceWarning):
                assert (await node.call(f"coap://127.0.0.1:{port}/collect", b"x")).text == "done"
            assert len(os.listdir("/proc/self/fd")) < descriptors

    run(main)


OPEN_AT_EXIT = """
import asyncio, sys
from coaprpc import Node, record

@record("!H")
class Key:
    number: int

async def main():
    port = int(sys.argv[2])
    node = await Node("127.0.0.1", port).__aenter__()
    arrived = asyncio.Event()

    @node.serve("never")
    async def never(request):
        arrived.set()
        await asyncio.get_running_loop().create_future()

    @node.serve("exit")
    def leave(request):
        sys.exit(5)

    node.table("t", Key, Key)[Key(1)] = Key(2)
    keep.append(asyncio.create_task(node.call(f"coap://127.0.0.1:{port}/never", b"x")))
    keep.append(node)
    await arrived.wait()
    if sys.argv[1] == "exit":
        sys.exit(5)
    if sys.argv[1] == "handler":
        await node.call(f"coap://127.0.0.1:{port}/exit")

keep = []
loop = asyncio.new_event_loop()
if sys.argv[1] == "loop":
    loop.run_until_complete(main())
else:
    asyncio.run(main())
"""


@pytest.mark.parametrize(("how", "status"), [("end", 0), ("exit", 5), ("handler", 5), ("loop", 0)])
def test_end_of_the_interpreter_with_an_open_node(port: int, how: str, status: int) -> None:
    said = run_script(OPEN_AT_EXIT, how, str(port), status=status)
    assert "a node was not closed" in said
    assert "Fatal" not in said
    assert "ERROR: AddressSanitizer" not in said


# ---- fork ----

FORK = """
import asyncio, gc, os, sys
from coaprpc import Node, NodeForked, record

@record("!H")
class Key:
    number: int

async def main():
    port = int(sys.argv[1])
    url = f"coap://127.0.0.1:{port}/upper"
    async with Node("127.0.0.1", port) as node:
        node.serve("upper")(lambda request: request.payload.upper())
        table = node.table("t", Key, Key)
        table[Key(1)] = Key(1)
        await node.call(url, b"x")
        child = os.fork()
        if child == 0:
            raised = 0
            uses = [lambda: table.__setitem__(Key(2), Key(2)), lambda: table.__delitem__(Key(1)), table.state,
                    lambda: node.serve("b"), lambda: node.observe(url)]
            for use in uses:
                try:
                    use()
                except NodeForked:
                    raised += 1
            for coroutine in (node.call(url, b"x"), table.confirmed()):
                try:
                    coroutine.send(None)
                except NodeForked:
                    raised += 1
            try:
                node.__aexit__(None, None, None).send(None)
            except StopIteration:
                raised += 1
            del node, table
            gc.collect()
            sys.stdout.write(f"child: {raised}\\n")
            sys.stdout.flush()
            if sys.argv[2] == "os":
                os._exit(0)
            sys.exit(0)
        os.waitpid(child, 0)
        assert (await node.call(url, b"still")).payload == b"STILL"
        table[Key(3)] = Key(3)
        print("parent goes on")

asyncio.run(main())
"""


@pytest.mark.parametrize("leave", ["os", "sys"])
def test_child_process_can_use_nothing_and_harms_nothing(port: int, leave: str) -> None:
    said = run_script(FORK, str(port), leave)
    assert "child: 8" in said
    assert "parent goes on" in said


def test_fork_before_a_node_is_opened_is_none(port: int) -> None:
    script = """
import asyncio, os, sys
from coaprpc import Node

async def main():
    async with Node("127.0.0.1", int(sys.argv[1])) as node:
        node.serve("a")(lambda request: b"child")
        print((await node.call(f"coap://127.0.0.1:{sys.argv[1]}/a")).text)

child = os.fork()
if child == 0:
    asyncio.run(main())
else:
    sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
"""
    assert "child" in run_script(script, str(port))


def test_sources_import_nothing_that_makes_threads() -> None:
    package = Path(sys.modules["coaprpc"].__file__ or "").parent
    for source in package.glob("*.py"):
        text = source.read_text()
        assert "to_thread" not in text
        assert "run_in_executor" not in text
        assert "getaddrinfo" not in text or source.name == "__main__.py"


def test_forked_is_a_kind_of_closed() -> None:
    assert issubclass(NodeForked, NodeClosed)
