"""Mirrors of tables: exact copies, and what their readers are told."""

from __future__ import annotations

import asyncio
import gc
import random
from collections.abc import Callable
from typing import Any

import pytest
from conftest import Run

from coaprpc import Change, CoapRpcError, Mirror, MirrorState, MirrorStatus, Node, NodeClosed, record


@record("!H")
class Key:
    number: int


@record("!I8s")
class Val:
    speed: int
    name: str


@record("!")
class Nothing:
    pass


def test_mirror_equals_the_table_and_follows_it(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table = node.table("ports", Key, Val)
            table.replace({Key(i): Val(i, f"p{i}") for i in range(1000)})
            async with client.mirror(f"coap://127.0.0.1:{port}/ports", Key, Val) as mirror:
                await mirror.synced()
                assert dict(mirror) == dict(table)
                assert mirror[Key(7)] == Val(7, "p7")
                assert Key(1000) not in mirror
                assert list(mirror) == sorted(table, key=lambda key: key.number)
                table[Key(7)] = Val(70, "new")
                del table[Key(8)]
                version = await table.confirmed()
                state = mirror.state()
                assert (state.status, state.code, state.rows) == (MirrorStatus.SYNCED, 0, 999)
                assert (state.version, state.digest) == (version, table.state().digest)
                assert dict(mirror) == dict(table)

    run(main)


def test_two_nodes_mirror_each_other(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as one, Node("127.0.0.2", port) as two:
            left, right = one.table("t", Key, Val), two.table("t", Key, Val)
            left[Key(1)], right[Key(2)] = Val(1, "left"), Val(2, "right")
            async with (
                one.mirror(f"coap://127.0.0.2:{port}/t", Key, Val) as from_right,
                two.mirror(f"coap://127.0.0.1:{port}/t", Key, Val) as from_left,
            ):
                await from_left.synced()
                await from_right.synced()
                assert (dict(from_left), dict(from_right)) == (dict(left), dict(right))

    run(main)


async def apply(mirror: Mirror[Key, Val], copy: dict[Key, Val], pause: float) -> None:
    """Applies each change, and checks that it fits what came before."""
    async for change in mirror.changes():
        assert copy.get(change.key) == change.old
        assert (
            change.kind
            == {(True, False): "added", (False, False): "changed", (False, True): "removed"}[
                (change.old is None, change.new is None)
            ]
        )
        if change.new is None:
            del copy[change.key]
        else:
            copy[change.key] = change.new
        await asyncio.sleep(pause)


@pytest.mark.parametrize("pause", [0, 0.01], ids=["quick", "slow"])
def test_changes_make_an_equal_copy(run: Run, port: int, pause: float) -> None:
    """Of readers that keep up and of those that do not."""
    dice = random.Random(1)

    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table = node.table("ports", Key, Val)
            async with client.mirror(f"coap://127.0.0.1:{port}/ports", Key, Val) as mirror:
                copy: dict[Key, Val] = {}
                readers = [asyncio.create_task(apply(mirror, copy, pause))]
                for step in range(300):
                    key = Key(dice.randrange(10))
                    if dice.random() < 0.4:
                        table.pop(key, None)
                    else:
                        table[key] = Val(dice.randrange(4), "")
                    if step % 10 == 0:
                        await asyncio.sleep(0.001)
                    if step == 150:
                        late: dict[Key, Val] = {}
                        readers.append(asyncio.create_task(apply(mirror, late, 0)))
                await table.confirmed()
                while copy != dict(table) or late != dict(table):
                    await asyncio.sleep(0.01)
                    assert not any(reader.done() for reader in readers)
            await asyncio.gather(*readers)

    run(main)


def test_events_tell_a_state_after_the_changes_that_led_to_it(run: Run, port: int) -> None:
    """Through two lives of the server: the copy is whole whenever a state is told."""

    async def main() -> None:
        told: list[tuple[MirrorStatus, int]] = []
        url = f"coap://127.0.0.1:{port}/ports"
        async with Node() as client, client.mirror(url, Key, Val, heartbeat=0.1) as mirror:
            copy: dict[Key, Val] = {}

            async def follow() -> None:
                async for event in mirror.events():
                    if isinstance(event, MirrorState):
                        assert copy == dict(mirror)
                        told.append((event.status, event.version))
                    elif event.new is None:
                        assert copy.pop(event.key) == event.old
                    else:
                        assert copy.get(event.key) == event.old
                        copy[event.key] = event.new

            reader = asyncio.create_task(follow())

            async def until(is_told: Callable[[], bool]) -> None:
                while not is_told():
                    await asyncio.sleep(0.01)
                    assert not reader.done()

            for life in range(2):
                async with Node("127.0.0.1", port) as node:
                    table = node.table("ports", Key, Val)
                    table.replace({Key(i): Val(life, "") for i in range(life, 300)})
                    whole = (MirrorStatus.SYNCED, table.state().head)
                    await until(lambda: whole in told)  # noqa: B023
                    assert copy == dict(table)
                await until(lambda: told[-1][0] == MirrorStatus.STALE)
        await reader
        states = [status for status, _ in told]
        assert states[0] == MirrorStatus.CONNECTING
        assert MirrorStatus.STALE in states

    run(main)


def test_reader_that_never_comes_holds_only_the_keys_that_are_there(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table = node.table("ports", Key, Val)
            table[Key(0)] = Val(0, "")
            async with client.mirror(f"coap://127.0.0.1:{port}/ports", Key, Val) as mirror:
                await mirror.synced()
                changes = mirror.changes()
                await anext(changes)
                for i in range(1, 20):
                    table[Key(i)] = Val(i, "")
                    await table.confirmed()
                    del table[Key(i)]
                    await table.confirmed()
                (reader,) = mirror._readers
                assert reader._known == {}
                table[Key(0)] = Val(1, "")
                assert await anext(changes) == Change(Key(0), Val(0, ""), Val(1, ""))
                await changes.aclose()
                del changes, reader
                gc.collect()
                assert len(mirror._readers) == 0

    run(main)


def test_values_without_bytes(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            names = node.table("names", Key, Nothing)
            names[Key(3)] = Nothing()
            async with client.mirror(f"coap://127.0.0.1:{port}/names", Key, Nothing) as mirror:
                await mirror.synced()
                assert dict(mirror) == {Key(3): Nothing()}
                assert await anext(mirror.changes()) == Change(Key(3), None, Nothing())

    run(main)


@pytest.mark.parametrize("path", ["none", "upper", "ports", "%ff"])
def test_server_without_such_a_table(run: Run, port: int, path: str) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            node.serve("upper")(lambda request: request.payload)
            node.table("ports", Key, Key)[Key(1)] = Key(1)
            async with client.mirror(f"coap://127.0.0.1:{port}/{path}", Key, Val) as mirror:
                with pytest.raises(CoapRpcError) as caught:
                    await mirror.synced()
                assert caught.value.code in (1900001618, 1900001619, 1900001620, 1900001621)
                assert mirror.state().status == MirrorStatus.REFUSED
                assert dict(mirror) == {}

    run(main)


def test_server_that_comes_later_and_again(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node() as client:
            url = f"coap://127.0.0.1:{port}/ports"
            async with client.mirror(url, Key, Val, heartbeat=0.1) as mirror:
                for life in range(2):
                    async with Node("127.0.0.1", port) as node:
                        table = node.table("ports", Key, Val)
                        table[Key(life)] = Val(life, "")
                        while dict(mirror) != dict(table):
                            await asyncio.sleep(0.01)
                assert dict(mirror) == {Key(1): Val(1, "")}

    run(main)


def test_mirror_that_is_not_open_raises(run: Run, port: int) -> None:
    async def use(mirror: Mirror[Key, Val]) -> None:
        for read in (mirror.state, lambda: mirror[Key(1)], lambda: list(mirror), lambda: len(mirror)):
            with pytest.raises(NodeClosed):
                read()
        with pytest.raises(NodeClosed):
            await mirror.synced()

    async def main() -> None:
        async with Node() as client:
            mirror = client.mirror(f"coap://127.0.0.1:{port}/ports", Key, Val)
            await use(mirror)
            async with mirror:
                with pytest.raises(CoapRpcError, match="is open"):
                    await mirror.__aenter__()
                waiting = asyncio.create_task(mirror.synced())
                await asyncio.sleep(0)
            with pytest.raises(NodeClosed):
                await waiting
            await use(mirror)
            async with mirror:
                assert len(mirror) == 0
            left = await mirror.__aenter__()
            changes = asyncio.create_task(anext(left.changes()))
            await asyncio.sleep(0)
        with pytest.raises((NodeClosed, StopAsyncIteration)):
            await changes
        await use(left)
        left.close()

    run(main)


@pytest.mark.parametrize(
    "url", ["coap://127.0.0.1", "coap://127.0.0.1/", "coap://127.0.0.1/a?b", "coap://127.0.0.1/" + "a" * 64]
)
def test_address_that_no_mirror_can_have(run: Run, url: str) -> None:
    async def main() -> None:
        async with Node() as client:
            with pytest.raises(ValueError, match=r"a mirror has no query|1 to 63 bytes"):
                client.mirror(url, Key, Val)

    run(main)


def test_bad_arguments(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node() as client:
            url = f"coap://127.0.0.1:{port}/a"
            with pytest.raises(TypeError, match="no layout"):
                client.mirror(url, int, Val)
            with pytest.raises(CoapRpcError) as caught:
                await client.mirror(url, Nothing, Val).__aenter__()
            assert caught.value.code == 1900001605
            with pytest.raises(CoapRpcError) as caught:
                await client.mirror(url, Key, Val, heartbeat=0.001).__aenter__()
            assert caught.value.code == 1900001606
            mirror: Mirror[Any, Any] = client.mirror(url, Key, Val)
            async with mirror:
                with pytest.raises(TypeError):
                    mirror[7]

    run(main)
