"""Handlers, asked by the package's own calls and by raw datagrams."""

from __future__ import annotations

import asyncio
import errno
import functools
import logging
import random
import socket
from typing import Any
from urllib.parse import quote

import pytest
from conftest import Run

from coaprpc import ErrorReply, Method, Node, Request, Response, record


@record("!H")
class Key:
    number: int


def test_def_and_async_def_answer_alike(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("now")
            def now(request: Request) -> str:
                return request.text.upper()

            @node.serve("/later")
            async def later(request: Request) -> str:
                await asyncio.sleep(0)
                return request.text.upper()

            for path in ("now", "later"):
                reply = await node.call(f"coap://127.0.0.1:{port}/{path}", "hi")
                assert (reply.code, reply.payload, reply.content_format) == (204, b"HI", None)
                reply = await node.call(f"coap://127.0.0.1:{port}/{path}")
                assert (reply.code, reply.payload) == (205, b"")
            assert now(Answering(b"x")) == "X"  # type: ignore[arg-type]  # the decorator leaves it as it is

    run(main)


class Answering:
    def __init__(self, payload: bytes) -> None:
        self.payload = payload
        self.text = payload.decode()


class AsyncObject:
    async def __call__(self, request: Request) -> bytes:
        await asyncio.sleep(0)
        return b"object"


async def _partial(answer: bytes, request: Request) -> bytes:
    return answer


def test_every_kind_of_callable_answers(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("lambda")(lambda request: b"lambda")
            node.serve("object")(AsyncObject())
            node.serve("partial")(functools.partial(_partial, b"partial"))
            for path in ("lambda", "object", "partial"):
                assert (await node.call(f"coap://127.0.0.1:{port}/{path}")).text == path

    run(main)


@pytest.mark.parametrize("is_async", [False, True])
def test_request_says_what_was_asked(run: Run, port: int, is_async: bool) -> None:
    seen: list[Request] = []

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            def note(request: Request) -> None:
                seen.append(request)

            async def note_later(request: Request) -> None:
                await asyncio.sleep(0.01)
                seen.append(request)

            node.serve("note", methods=("PUT", Method.GET), options=(1, 4, 15))(
                note_later if is_async else note
            )
            url = f"coap://127.0.0.1:{port}/note?a=1&b&a=2&%C3%A9=%26"
            with pytest.raises(ValueError, match="%-encoded"):
                await node.call(url)
            await node.call(
                f"coap://127.0.0.1:{port}/note?a=1&b&a=2&%C3%A9=x%20y",
                b"{}",
                method="put",
                content_format=50,
                accept=60,
                if_match=b"v1",
            )
            await node.call(f"coap://127.0.0.1:{port}/note", etag=b"12345678", is_non=True)

    run(main)
    first, second = seen
    assert first.method is Method.PUT
    assert first.json() == {}
    assert first.query == {"a": "1", "b": "", "é": "x y"}
    assert (first.content_format, first.accept, first.etag) == (50, 60, None)
    assert first.option(1) == [b"v1"]
    assert first.option(15) == [b"a=1", b"b", b"a=2", "é=x y".encode()]
    assert first.is_confirmable
    assert first.peer.ip == bytes([127, 0, 0, 1])
    assert str(first.peer) == f"127.0.0.1:{first.peer.port}"
    assert (second.method, second.etag, second.is_confirmable) == (Method.GET, b"12345678", False)
    assert (second.content_format, second.accept, second.query) == (None, None, {})
    with pytest.raises(KeyError):
        second.option(11)


@pytest.mark.parametrize("is_async", [False, True])
def test_response_has_code_format_and_options(run: Run, port: int, is_async: bool) -> None:
    response = Response(
        "made", 201, 0, etag=b"\1\2", max_age=300, location_path="/rows/7", location_query="a=1&b"
    )

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            async def later(request: Request) -> Response:
                return response

            node.serve("new")(later if is_async else lambda request: response)
            reply = await node.call(f"coap://127.0.0.1:{port}/new", b"x")
            assert (reply.code, reply.text, reply.content_format) == (201, "made", 0)
            assert (reply.etag, reply.max_age, reply.location_path) == (b"\1\2", 300, "rows/7")
            assert reply.dotted == "2.01"

    run(main)


def test_json_response(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("json")(lambda request: Response.json({"é": [1, None]}))
            reply = await node.call(f"coap://127.0.0.1:{port}/json")
            assert reply.json() == {"é": [1, None]}
            assert (reply.code, reply.content_format) == (205, 50)

    run(main)


@pytest.mark.parametrize(
    "answer",
    [
        7,
        [b"x"],
        object(),
        Response(3),  # type: ignore[arg-type]
        Response(b"", 299),
        Response(b"", 1),
        Response(b"", -1),
        Response(b"", 2**40),
        Response(b"", "205"),  # type: ignore[arg-type]
        Response(b"x", content_format=70000),
        Response(etag=b""),
        Response(etag=b"123456789"),
        Response(max_age=2**32),
        Response(max_age=-1),
        Response(location_path="a" * 256),
        Response(location_path="/".join("abcdefghi")),
        Response(location_path="a/../b"),
    ],
    ids=repr,
)
@pytest.mark.parametrize("is_async", [False, True])
def test_nonsense_answers_5_00_and_is_logged(
    run: Run, port: int, caplog: Any, answer: Any, is_async: bool
) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            async def later(request: Request) -> Any:
                return answer

            node.serve("bad")(later if is_async else lambda request: answer)
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/bad", b"x")
            assert (caught.value.code, caught.value.reply.payload) == (500, b"")
            node.serve("good")(lambda request: b"good")
            assert (await node.call(f"coap://127.0.0.1:{port}/good")).text == "good"

    run(main)
    assert "the handler of 'bad' has failed" in caplog.text


@pytest.mark.parametrize("is_async", [False, True])
def test_exception_answers_5_00_without_its_text(run: Run, port: int, caplog: Any, is_async: bool) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            def bad(request: Request) -> bytes:
                raise LookupError("the secret reason")

            async def bad_later(request: Request) -> bytes:
                await asyncio.sleep(0)
                return bad(request)

            node.serve("bad")(bad_later if is_async else bad)
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/bad", b"x")
            assert (caught.value.code, caught.value.text) == (500, "answered 5.00")

    run(main)
    assert "the secret reason" in caplog.text


@pytest.mark.parametrize("is_async", [False, True])
def test_handler_of_wrong_signature_answers_5_00(run: Run, port: int, is_async: bool) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            async def later() -> bytes:
                return b""

            node.serve("bad")(later if is_async else lambda: b"")  # type: ignore[type-var]
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/bad", b"x")
            assert caught.value.code == 500

    run(main)


def test_handler_may_end_the_program(port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("end")
            def end(request: Request) -> bytes:
                raise SystemExit(3)

            await node.call(f"coap://127.0.0.1:{port}/end")

    with pytest.raises(SystemExit) as caught:
        asyncio.run(main())
    assert caught.value.code == 3


def test_answer_of_a_def_handler_has_at_most_65470_bytes(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("large")(lambda request: bytes(int(request.text)))
            reply = await node.call(f"coap://127.0.0.1:{port}/large", b"65470")
            assert reply.payload == bytes(65470)
            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/large", b"65471")
            assert caught.value.code == 500

    run(main)


def test_method_that_is_not_served_gets_4_05(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("get", methods=["get"])(lambda request: b"")
            for method in (Method.POST, "put", "delete", Method.FETCH, "ipatch"):
                with pytest.raises(ErrorReply) as caught:
                    await node.call(f"coap://127.0.0.1:{port}/get", b"x", method=method)
                assert caught.value.code == 405

    run(main)


def test_async_handler_without_answer_in_time_is_cancelled(run: Run, port: int) -> None:
    ended = asyncio.Event()

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("never", timeout=0.1)
            async def never(request: Request) -> bytes:
                try:
                    await asyncio.get_running_loop().create_future()
                finally:
                    ended.set()
                return b""

            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/never", b"x")
            assert caught.value.code == 504
            await ended.wait()

    run(main)


def test_handler_that_goes_on_after_it_was_given_up(run: Run, port: int, caplog: Any) -> None:
    ended = asyncio.Event()

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("stubborn", timeout=0.1)
            async def stubborn(request: Request) -> bytes:
                try:
                    await asyncio.get_running_loop().create_future()
                except asyncio.CancelledError:
                    ended.set()
                return b"too late"

            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/stubborn", b"x")
            assert caught.value.code == 504
            await ended.wait()

    run(main)
    assert "has failed" not in caplog.text


def test_handler_that_cancels_itself_answers_5_03(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:

            @node.serve("gone")
            async def gone(request: Request) -> bytes:
                raise asyncio.CancelledError

            with pytest.raises(ErrorReply) as caught:
                await node.call(f"coap://127.0.0.1:{port}/gone", b"x")
            assert caught.value.code == 503

    run(main)


def test_closing_the_node_ends_its_handlers_and_tells_the_peer(run: Run, port: int) -> None:
    started, ended = asyncio.Event(), asyncio.Event()

    async def main() -> None:
        async with Node() as client:
            async with Node("127.0.0.1", port) as node:

                @node.serve("slow")
                async def slow(request: Request) -> bytes:
                    started.set()
                    try:
                        await asyncio.get_running_loop().create_future()
                    finally:
                        ended.set()
                    return b""

                call = asyncio.create_task(client.call(f"coap://127.0.0.1:{port}/slow", b"x"))
                await started.wait()
            assert ended.is_set()
            with pytest.raises(ErrorReply) as caught:
                await call
            assert caught.value.code == 503

    run(main)


def test_handler_may_call_other_nodes_and_its_own(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("inner")(lambda request: request.payload + b"!")

            @node.serve("outer")
            async def outer(request: Request) -> bytes:
                return (await node.call(f"coap://127.0.0.1:{port}/inner", request.payload)).payload

            assert (await node.call(f"coap://127.0.0.1:{port}/outer", b"hi")).payload == b"hi!"

    run(main)


@pytest.mark.parametrize(
    "path", ["a b", "a%20b", "\N{SNOWMAN}/\u00e9", "a?b", "#", "-._~!$'()*+,;=:@&", "\x7f"]
)
def test_path_of_any_characters_is_found(run: Run, port: int, path: str) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve(path)(lambda request: b"found")
            node.table(f"t/{path}", Key, Key)[Key(1)] = Key(2)
            url = f"coap://127.0.0.1:{port}"
            assert (await node.call(f"{url}/{quote(path)}")).payload == b"found"
            async with node.mirror(f"{url}/t/{quote(path)}", Key, Key) as mirror:
                await mirror.synced()
                assert dict(mirror) == {Key(1): Key(2)}

    run(main)


@pytest.mark.parametrize("path", ["", "/", "a" * 64, "\N{SNOWMAN}" * 8, "a\0b", "\udcff"])
def test_path_of_wrong_size_is_refused(run: Run, port: int, path: str) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            with pytest.raises(ValueError, match=r"a path has 1 to 63 bytes|surrogates not allowed"):
                node.serve(path)(lambda request: b"")

    run(main)


def test_bad_arguments_are_refused_and_serve_nothing(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            with pytest.raises(ValueError, match="not a method"):
                node.serve("a", methods=["HEAD"])(lambda request: b"")
            for timeout in (0, -1, float("nan"), float("inf"), 1e10):
                with pytest.raises(ValueError, match="not a time"):
                    node.serve("a", timeout=timeout)(lambda request: b"")
            with pytest.raises(TypeError, match=r"""write @node\.serve\("path"\)"""):
                node.serve(lambda request: b"")  # type: ignore[arg-type]
            node.serve("a", methods="PUT")(lambda request: b"a")
            assert (await node.call(f"coap://127.0.0.1:{port}/a", method="PUT")).text == "a"
            with pytest.raises(ErrorReply):
                await node.call(f"coap://127.0.0.1:{port}/a")
            with pytest.raises(ValueError, match="served already"):
                node.serve("/a")(lambda request: b"")

    run(main)


def test_port_in_use_raises_at_once(run: Run, port: int) -> None:
    async def main() -> None:
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("127.0.0.1", port))
            async with Node("127.0.0.1", port) as node:
                with pytest.raises(OSError, match=rf"in use: 127\.0\.0\.1:{port}$") as caught:
                    node.serve("a")(lambda request: b"")
                assert caught.value.errno == errno.EADDRINUSE
                other.close()
                node.serve("a")(lambda request: b"a")
                assert (await node.call(f"coap://127.0.0.1:{port}/a")).text == "a"

    run(main)


def test_garbage_from_the_network_harms_nothing(run_often: Run, port: int) -> None:
    dice = random.Random(7)

    def mutated(data: bytes) -> bytes:
        cut = bytearray(data[: dice.randrange(len(data) + 1)] if dice.random() < 0.3 else data)
        for _ in range(dice.randrange(4) if cut else 0):
            cut[dice.randrange(len(cut))] = dice.randrange(256)
        return bytes(cut)

    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("sync")(lambda request: str(request.query) + str(request.peer) + request.text)

            @node.serve("async", timeout=0.05)
            async def later(request: Request) -> Response:
                await asyncio.sleep(dice.choice([0, 0.1]))
                return Response(request.payload, etag=request.etag, content_format=request.content_format)

            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
                for i in range(3000):
                    path = (b"\xb4sync", b"\xb5async")[i % 2]
                    valid = (
                        bytes([0x44 + 16 * (i % 2), 1 + i % 3, i >> 8, i & 255])
                        + b"tokn"
                        + path
                        + b"\x43a=b\xffhi"
                    )
                    peer.sendto(mutated(valid), ("127.0.0.1", port))
                    if i % 50 == 0:
                        await asyncio.sleep(0.002)
            assert "hi" in (await node.call(f"coap://127.0.0.1:{port}/sync", b"hi")).text

    logging.disable()
    run_often(main)
    logging.disable(logging.NOTSET)


@pytest.mark.parametrize("host", ["localhost", "", "1.2.3", "fe80::1%1"])
def test_host_that_is_no_address_is_refused(host: str) -> None:
    with pytest.raises(ValueError, match=r"."):
        Node(host)


@pytest.mark.parametrize("number", [0, -1, 65536])
def test_number_that_is_no_port_is_refused(number: int) -> None:
    with pytest.raises(ValueError, match="not a port"):
        Node("127.0.0.1", number)


def test_ipv6(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node("::1", port) as node:
            node.serve("peer")(lambda request: str(request.peer))
            reply = await node.call(f"coap://[::1]:{port}/peer")
            assert reply.text.startswith("[::1]:")

    run(main)


def test_library_log_is_off_unless_asked_for(run_often: Run, port: int, caplog: Any) -> None:
    async def main() -> None:
        async with Node("127.0.0.1", port) as node:
            node.serve("a")(lambda request: b"")
            await node.call(f"coap://127.0.0.1:{port}/a")

    run_often(main)
    assert caplog.text == ""
    with caplog.at_level(logging.DEBUG, "coaprpc.library"):
        run_often(main)
    assert "CoapRpc" in caplog.text
