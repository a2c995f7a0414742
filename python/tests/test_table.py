"""Tables: a dict whose rows the library serves."""

from __future__ import annotations

import asyncio
import json
from typing import Any

import pytest
from conftest import Run

from coaprpc import CoapRpcError, ErrorReply, Node, NodeClosed, Table, record


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


@record("!256s")
class LongKey:
    text: str


@record("!64999s")
class Large:
    text: bytes


def test_table_is_a_dict(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            table[Key(1)] = Val(10, "a")
            table.update({Key(2): Val(20, "b"), Key(3): Val(30, "c")})
            table[Key(1)] = Val(11, "a")
            assert dict(table) == {Key(1): Val(11, "a"), Key(2): Val(20, "b"), Key(3): Val(30, "c")}
            del table[Key(2)]
            assert Key(2) not in table
            assert table.pop(Key(3)) == Val(30, "c")
            with pytest.raises(KeyError):
                del table[Key(3)]
            with pytest.raises(KeyError):
                table[Key(3)]
            state = table.state()
            assert (len(table), state.rows, state.head) == (1, 1, 6)
            table[Key(1)] = Val(11, "a")
            assert table.state().head == 6

    run(main)


def test_replace_changes_only_what_differs(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            table.replace({Key(i): Val(i, "") for i in range(10)})
            assert table.state().head == 10
            wanted = {Key(i): Val(i, "x" if i == 5 else "") for i in range(1, 10)}
            table.replace(wanted)
            assert table.state().head == 12
            assert dict(table) == wanted
            with pytest.raises(TypeError):
                table.replace({Key(50): Val(50, ""), Key(51): 51})  # type: ignore[dict-item]
            assert dict(table) == wanted
            assert table.state().head == 12

    run(main)


@pytest.mark.parametrize(
    ("key", "value"),
    [
        (1, Val(1, "")),
        (Key(1), Key(1)),
        (Key(70000), Val(1, "")),
        (Key(-1), Val(1, "")),
        (Key(1), Val(1, "nine char")),
        (Key(1), Val(2**32, "")),
        (Key(1), None),
        (b"\0\1", Val(1, "")),
        (Val(1, ""), Key(1)),
    ],
)
def test_key_or_value_that_does_not_fit_changes_nothing(run: Run, port: int, key: Any, value: Any) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            with pytest.raises((TypeError, ValueError)):
                table[key] = value
            assert (len(table), table.state().head) == (0, 0)

    run(main)


def test_key_of_wrong_type_is_not_looked_up(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table: Table[Any, Val] = node.table("ports", Key, Val)
            for use in (table.__getitem__, table.__delitem__, table.get):
                with pytest.raises(TypeError):
                    use(7)

    run(main)


def test_set_of_keys_has_values_without_bytes(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("names", Key, Nothing)
            table[Key(1)] = Nothing()
            assert dict(table) == {Key(1): Nothing()}
            assert table.state().rows == 1

    run(main)


def test_record_that_no_table_can_have(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            for key, value in ((LongKey, Val), (Nothing, Val), (Key, Large)):
                with pytest.raises(ValueError, match=r"at most|1 to 255"):
                    node.table("ports", key, value)
            with pytest.raises(TypeError, match="no layout"):
                node.table("ports", int, Val)
            with pytest.raises(ValueError, match="not a time"):
                node.table("ports", Key, Val, window=-1)
            node.table("ports", Key, Val)
            with pytest.raises(ValueError, match="served already"):
                node.table("ports", Key, Val)
            with pytest.raises(ValueError, match="served already"):
                node.serve("ports")(lambda request: b"")

    run(main)


def test_keys_of_every_length_are_told_apart(run: Run, port: int) -> None:
    """Each length has a comparison of its own: the last byte counts."""

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            for length in range(1, 256):

                @record(f"!{length}s")
                class Bytes:
                    text: bytes

                table = node.table(f"t{length}", Bytes, Key)
                low, high = bytes(length), bytes(length - 1) + b"\x80"
                table[Bytes(high)], table[Bytes(low)] = Key(2), Key(1)
                table[Bytes(low)] = Key(3)
                assert (table.state().rows, table.state().head) == (2, 3)

    run(main)


def test_table_is_shown_as_json_to_who_knows_no_versions(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            url = f"coap://127.0.0.1:{port}/ports"
            assert (await node.call(url)).json() == []
            table[Key(1)] = Val(2, "é")
            reply = await node.call(url)
            assert (reply.code, reply.content_format) == (205, 50)
            assert reply.json() == [{"key": {"number": 1}, "value": {"speed": 2, "name": "é"}}]
            table.replace({Key(i): Val(i, "") for i in range(5000)})
            assert len((await node.call(url)).json()) == 5000
            with pytest.raises(ErrorReply) as caught:
                await node.call(url, b"x")
            assert caught.value.code == 405

    run(main)


@record("!4sd3s")
class Odd:
    name: str
    load: float
    raw: bytes


def test_what_json_has_not_is_a_text_or_hexadecimal(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.table("odd", Key, Odd)[Key(1)] = Odd("\udcff", float("nan"), b"\xff12")
            text = (await node.call(f"coap://127.0.0.1:{port}/odd")).text
            value = {"name": {"hex": "ff"}, "load": "nan", "raw": {"hex": "ff3132"}}
            assert json.loads(text, parse_constant=pytest.fail) == [{"key": {"number": 1}, "value": value}]

    run(main)


def test_plain_observer_is_told_of_changes_as_json(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table, names = node.table("ports", Key, Val), node.table("names", Key, Nothing)
            table[Key(1)] = Val(1, "")
            notes = [client.observe(f"coap://127.0.0.1:{port}/{name}") for name in ("ports", "names")]
            await asyncio.gather(*map(anext, notes))
            table[Key(2)] = Val(2, "\u00e9")
            del table[Key(1)]
            names[Key(1)] = Nothing()
            of_ports, of_names = await asyncio.gather(*map(anext, notes))
            assert of_ports.content_format == 50
            rows = {row["key"]["number"]: row["value"] for row in of_ports.json()["data"]}
            assert rows == {1: None, 2: {"speed": 2, "name": "\u00e9"}}
            assert of_names.json() == {"data": [{"key": {"number": 1}, "value": {}}]}
            await asyncio.gather(*(note.aclose() for note in notes))

    run(main)


def test_pages_for_people_have_the_fields(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            long = node.table("long", Long, Nothing)
            table[Key(1)] = Val(2, "\u00e9")
            long[Long("\N{SNOWMAN}" * 80)] = Nothing()
            pages = []
            for name in ("ports", "long"):
                url = f"coap://127.0.0.1:{port}/{name}?_sync=1"
                head = (await node.call(url, accept=50)).json()
                pages.append((await node.call(f"{url}&id={head[2]}&since=0", accept=50)).json())
            assert pages[0][-2:] == ["number=1", "speed=2, name=\u00e9"]
            assert pages[1][-2:] == ["text=" + "\N{SNOWMAN}" * 40, ""]

    run(main)


@record("!240s")
class Long:
    text: str


class Reader:
    """A reader of versions, as the documents describe it, without the package's own mirror."""

    def __init__(self, node: Node, url: str) -> None:
        self.node, self.url = node, url
        self.notes = node.observe(f"{url}?_sync=1")

    async def pull(self, since: int) -> None:
        head = await anext(self.notes)
        replid = head.payload[4:12].hex()
        await self.node.call(f"{self.url}?_sync=1&id={replid}&since={since}")


def test_confirmed_returns_when_the_observer_has_everything(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node, Node() as client:
            table = node.table("ports", Key, Val)
            table[Key(1)] = Val(1, "")
            assert await table.confirmed() == 1  # nobody is there
            reader = Reader(client, f"coap://127.0.0.1:{port}/ports")
            first = await anext(reader.notes)
            waiting = asyncio.create_task(table.confirmed())
            await asyncio.sleep(0.05)
            assert not waiting.done()
            assert table.state().behind == 1
            replid = first.payload[4:12].hex()
            await client.call(f"{reader.url}?_sync=1&id={replid}&since=1")
            # Confirmed are the answers to the observation's own session and port.
            await reader.notes.aclose()
            assert await waiting == 1

    run(main)


def test_confirmed_ends_with_the_node(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node() as client:
            async with Node("127.0.0.1", port) as node:
                table = node.table("ports", Key, Val)
                table[Key(1)] = Val(1, "")
                notes = client.observe(f"coap://127.0.0.1:{port}/ports?_sync=1")
                await anext(notes)
                waiting = asyncio.create_task(table.confirmed())
                await asyncio.sleep(0)
            with pytest.raises(NodeClosed):
                await waiting
            await notes.aclose()

    run(main)


def test_table_of_a_closed_node_keeps_its_rows_and_takes_no_more(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            table = node.table("ports", Key, Val)
            table[Key(1)] = Val(1, "")
        for change in (
            lambda: table.__setitem__(Key(2), Val(2, "")),
            lambda: table.__delitem__(Key(1)),
            table.state,
        ):
            with pytest.raises(NodeClosed):
                change()
        assert dict(table) == {Key(1): Val(1, "")}
        with pytest.raises(CoapRpcError):
            await table.confirmed()

    run(main)
