"""python -m coaprpc: a small CoAP client, with a line of JSON for each answer.

The status is 0, 1 when there was no answer or one of 4.00 and above, 2 for wrong arguments.
"""

from __future__ import annotations

import argparse
import asyncio
import errno
import json
import os
import socket
import sys
from typing import Any
from urllib.parse import urlsplit, urlunsplit

from . import JSON, CallTimeout, Change, CoapRpcError, ErrorReply, Node, Reply, record
from ._native import lib
from ._record import plain, widths
from ._serve import milliseconds

_OK, _FAILED, _INTERRUPTED = 0, 1, 130
_WITH_DATA = ("post", "put", "fetch")


def _strict(reply: Reply) -> Any:
    """A payload of JSON; ValueError for numbers that JSON has not, RecursionError for what cannot be shown."""
    value = reply.json()
    json.dumps({"payload": value}, allow_nan=False)
    return value


def _payload(reply: Reply) -> dict[str, Any]:
    """JSON as it is, text as text, and everything else in hexadecimal."""
    try:
        return {"payload": _strict(reply) if reply.content_format == JSON else reply.text}
    except (ValueError, RecursionError):
        return {"payload_hex": reply.payload.hex()}


def _shown(reply: Reply) -> dict[str, Any]:
    shown = {
        "code": reply.dotted,
        **_payload(reply),
        "format": reply.content_format,
        "etag": reply.etag.hex() if reply.etag else None,
        "location": reply.location_path,
        "max_age": reply.max_age,
        "ms": round(reply.rtt * 1000, 3),
    }
    return {name: value for name, value in shown.items() if value is not None}


def _say(line: dict[str, Any]) -> None:
    """A line is written to its end, as print does not do when it waits and a signal comes."""
    if sys.stdout is None:
        raise OSError(errno.EBADF, "there is no standard output")
    data = memoryview(json.dumps(line, allow_nan=False).encode() + b"\n")
    while data:
        data = data[os.write(sys.stdout.fileno(), data) :]


def _data(argument: str) -> bytes:
    """What can be sent of it, or a byte more, which the call refuses."""
    if argument != "-":
        return os.fsencode(argument)
    if sys.stdin is None:
        raise ValueError("there is no standard input")
    return sys.stdin.buffer.read(lib.COAP_RPC_MAX_CALL_PAYLOAD + 1)


async def _ask(node: Node, args: argparse.Namespace) -> None:
    data = _data(args.data) if args.command in _WITH_DATA else b""
    content_format = args.format if args.command in _WITH_DATA else None
    _say(
        _shown(
            await node.call(
                args.url,
                data,
                method=args.command,
                timeout=args.timeout,
                accept=args.accept,
                content_format=content_format,
            )
        )
    )


async def _observe(node: Node, args: argparse.Namespace) -> None:
    left = args.count
    async for note in node.observe(args.url, timeout=args.timeout, accept=args.accept):
        _say(_shown(note))
        left -= 1
        if left == 0:
            return


def _row_of(layout: str) -> type[Any]:
    """A record of this layout, whose texts are str."""
    fields = {f"f{i}": int if width is None else str for i, width in enumerate(widths(layout))}
    return record(layout)(type("Row", (), {"__annotations__": fields}))


def _fields(row: Any) -> list[Any] | None:
    return None if row is None else list(plain(row).values())


def _shown_change(change: Change[Any, Any]) -> dict[str, Any]:
    shown = {"change": change.kind, "key": _fields(change.key)}
    return {**shown, "value": _fields(change.old if change.new is None else change.new)}


async def _mirror(node: Node, args: argparse.Namespace) -> None:
    async with node.mirror(args.url, _row_of(args.key), _row_of(args.value)) as mirror:
        async with asyncio.timeout(args.timeout):
            version = await mirror.synced()
        changes = mirror.changes()
        for _ in range(len(mirror)):
            _say(_shown_change(await anext(changes)))
        _say({"synced": version})
        if args.once:
            return
        async for change in changes:
            _say(_shown_change(change))


_COMMANDS = {
    **dict.fromkeys(("get", "post", "put", "delete", "fetch"), _ask),
    "observe": _observe,
    "mirror": _mirror,
}


async def _run(args: argparse.Namespace) -> int:
    try:
        async with Node(name="coaprpc") as node:
            await _COMMANDS[args.command](node, args)
    except ErrorReply as error:
        _say(_shown(error.reply))
        return _FAILED
    except TimeoutError:
        _say({"error": CallTimeout.__name__, "text": "no answer in time"})
        return _FAILED
    except CoapRpcError as error:
        _say({"error": type(error).__name__, "text": str(error)})
        return _FAILED
    return _OK


def _resolved(url: str) -> str:
    """The address with the host's first IP address in place of its name."""
    parts = urlsplit(url if "//" in url else f"coap://{url}")
    if not parts.hostname or parts.username is not None:
        return url  # which is refused
    found = socket.getaddrinfo(parts.hostname, None, type=socket.SOCK_DGRAM)[0][4][0]
    host = f"[{found}]" if ":" in str(found) else str(found)
    return urlunsplit(parts._replace(netloc=host if parts.port is None else f"{host}:{parts.port}"))


def _seconds(text: str) -> float:
    milliseconds(float(text))
    return float(text)


def _positive(text: str) -> int:
    if int(text) < 1:
        raise ValueError
    return int(text)


def _add(commands: Any, name: str, text: str) -> argparse.ArgumentParser:
    parser: argparse.ArgumentParser = commands.add_parser(name, help=text, description=text)
    parser.add_argument("url", help="coap://<host>[:port][/path][?query]")
    parser.add_argument("--timeout", type=_seconds, default=10.0, metavar="SECONDS", help="default: 10")
    return parser


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="python -m coaprpc", description="A small CoAP client.")
    commands = parser.add_subparsers(dest="command", required=True)
    get = _add(commands, "get", "ask for a resource")
    texts = ("send data to a resource", "make or replace a resource", "ask for what the data describes")
    sending = [_add(commands, name, text) for name, text in zip(_WITH_DATA, texts, strict=True)]
    for command in sending:
        command.add_argument("data", nargs="?", default="", help="-: from the standard input")
        command.add_argument("--format", type=int, metavar="NUMBER", help="Content-Format of the data")
    delete = _add(commands, "delete", "remove a resource")
    observe = _add(commands, "observe", "show a resource and its changes")
    observe.add_argument("--count", type=_positive, default=0, metavar="N", help="end after N answers")
    mirror = _add(commands, "mirror", "show a table and its changes")
    mirror.add_argument("--key", required=True, metavar="LAYOUT", help="of keys, as for Python's struct: !H")
    mirror.add_argument("--value", required=True, metavar="LAYOUT", help="of values")
    mirror.add_argument("--once", action="store_true", help="end when the whole table has been shown")
    for asking in (get, *sending, delete, observe):
        asking.add_argument("--accept", type=int, metavar="NUMBER", help="wanted format of the answer")
    return parser


def main(arguments: list[str] | None = None) -> int:
    parser = _parser()
    args = parser.parse_args(arguments)
    try:
        args.url = _resolved(args.url)
        return asyncio.run(_run(args))
    except (ValueError, socket.gaierror) as error:
        parser.error(str(error))
    except OSError as error:
        return _complain(error)
    except KeyboardInterrupt:
        return _INTERRUPTED


def _complain(error: OSError) -> int:
    """The output has failed."""
    if not isinstance(error, BrokenPipeError):
        print(f"coaprpc: {error}", file=sys.stderr)
    return _FAILED


if __name__ == "__main__":
    sys.exit(main())
