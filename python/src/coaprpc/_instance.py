"""One instance of the library with a host of its own, driven by an asyncio loop.

The loop watches the instance's descriptor and wakes the host when its next timer is due; there is no
thread.  An instance is open from its construction to ``close``.  One that is never closed is released when it
is garbage-collected, or at the end of the interpreter.

The library must not be stopped inside one of its callbacks, and collecting garbage can happen anywhere.
So what becomes garbage while the library runs in this thread is released when it has returned.  Each thread may
have instances of its own; opening and stopping them uses what all share, and so is done one at a time.

A child process shares the descriptors of its parent and must leave them alone: in a child, every use
raises, nothing is run, and nothing is released.
"""

from __future__ import annotations

import asyncio
import contextlib
import itertools
import logging
import os
import threading
import warnings
import weakref
from collections.abc import Callable
from typing import Any

from ._errors import CoapRpcError, NodeClosed, NodeForked, check
from ._native import ffi, lib

logger = logging.getLogger("coaprpc")

# The library logs as errors what is no error for a program; so its log is off unless someone wants it.
library_logger = logging.getLogger("coaprpc.library")
if library_logger.level == logging.NOTSET:
    library_logger.setLevel(logging.CRITICAL)

_LIBCOAP_WARNINGS = 4  # level of libcoap's log
_ERROR_SIZE = 256
_LEVELS = (logging.DEBUG, logging.INFO, logging.WARNING, logging.ERROR)  # of the host's log


class _Process:
    """What all instances of this process share."""

    forks = 0  # how often this process has been forked off another one with instances
    gate = threading.RLock()  # of opening and stopping


class _Thread(threading.local):
    """What all instances of a thread share."""

    def __init__(self) -> None:
        self.depth = 0  # calls of the library that may call back
        self.garbage: list[tuple[Any, Any]] = []


_thread = _Thread()


def _note_fork() -> None:
    _Process.forks += 1
    _Process.gate = threading.RLock()
    _thread.depth = 0
    _thread.garbage = []


os.register_at_fork(after_in_child=_note_fork)

_ids = itertools.count(1)


def new_id() -> int:
    """A number by which a callback finds what it is for."""
    return next(_ids)


def _release(host: Any, ctx: Any, forks: int) -> None:
    if forks != _Process.forks:
        return
    if _thread.depth > 0:
        _thread.garbage.append((host, ctx))
        return
    with _Process.gate:
        lib.COAP_RpcUninit(ctx)
        lib.KestrelDelete(host)


def _abandon(host: Any, ctx: Any, forks: int) -> None:
    """Becomes of an instance that nobody has closed."""
    _release(host, ctx, forks)
    if forks == _Process.forks:
        warnings.warn("a node was not closed", ResourceWarning, stacklevel=2)


def _release_garbage() -> None:
    while _thread.garbage:
        _release(*_thread.garbage.pop(), _Process.forks)


@ffi.def_extern()  # type: ignore[untyped-decorator]
def coaprpc_on_log(_param: Any, record: Any) -> None:
    """Hands a line of the library's log to Python's."""
    module, text = (ffi.string(part).decode(errors="replace") for part in (record.module, record.text))
    library_logger.log(_LEVELS[record.level], "%s: %s", module, text)


def _kestrel_level() -> int:
    """The level of the host's log that lets through what Python's takes."""
    taken = [number for number, level in enumerate(_LEVELS, 1) if library_logger.isEnabledFor(level)]
    return taken[0] if taken else int(lib.KESTREL_LEVEL_OFF)


def _new_host(name: bytes, level: int) -> Any:
    text = ffi.new("char[]", name)
    error = ffi.new("char[]", _ERROR_SIZE)
    param = ffi.new(
        "KestrelParam *",
        {
            "name": text,
            "logLevel": level,
            "logSinks": lib.KESTREL_SINK_CALLBACK,
            "logCallback": lib.coaprpc_on_log,
        },
    )
    host = lib.KestrelNew(param, error, _ERROR_SIZE)
    if host == ffi.NULL:
        raise CoapRpcError(0, f"no host: {ffi.string(error).decode(errors='replace')}")
    return host


def _new_pair(name: bytes, *, has_console: bool) -> tuple[Any, Any]:
    """A host and an instance on it."""
    level = _kestrel_level()
    host = _new_host(name, level)
    log = 0 if level == lib.KESTREL_LEVEL_OFF else lib.KestrelLog(host)
    ctx = lib.coaprpc_init(name, host, log, lib.KestrelDisp(host) if has_console else 0)
    if ctx == ffi.NULL:
        lib.KestrelDelete(host)
        raise CoapRpcError(0, f"the library does not start: see the log {library_logger.name}")
    lib.COAP_RpcSetLibLogLevel(ctx, _LIBCOAP_WARNINGS)
    return host, ctx


class Instance:
    """An open instance of the library, on the running loop."""

    def __init__(self, name: str, console: str | None) -> None:
        """`console` is the path of a socket for display commands."""
        self.loop = asyncio.get_running_loop()
        self._forks = _Process.forks
        with _Process.gate:
            self._host, self._ctx = _new_pair(name.encode(), has_console=console is not None)
        self._handles = (self._host, self._ctx, self._forks)
        self._finalizer = weakref.finalize(self, _abandon, *self._handles)
        self._thread = threading.get_ident()
        self._timer: asyncio.TimerHandle | None = None
        self._due = 0.0  # of the timer: not every loop's handles tell
        self._raised: BaseException | None = None
        self._fd: int = lib.COAP_RpcGetIoFd(self._ctx)
        self._console_fd: int | None = None
        self.loop.add_reader(self._fd, self._on_io)
        if console is not None:
            self._open_console(os.fsencode(console))
        self.arm()

    def _open_console(self, path: bytes) -> None:
        """Serves consoles, whose descriptors the host watches."""
        name = ffi.new("char[]", path)
        result = lib.KestrelDispListen(self._host, ffi.new("KestrelDispAccess *", {"path": name}))
        if result != 0:
            self.close()
            why = ffi.string(lib.KestrelResultText(result)).decode()
            raise CoapRpcError(0, f"no console at {os.fsdecode(path)!r}: {why}")
        check(lib.COAP_RpcShowStats(self._ctx))
        self._console_fd = lib.KestrelPollFd(self._host)
        self.loop.add_reader(self._console_fd, self._on_console)

    def check(self) -> None:
        """Raises if the instance cannot be used here and now."""
        if self._forks != _Process.forks:
            raise NodeForked
        if not self._finalizer.alive:
            raise NodeClosed
        if self._thread != threading.get_ident():
            raise CoapRpcError(0, "a node is used by the thread of its loop only")

    @property
    def ctx(self) -> Any:
        """The library's handle, for a call."""
        self.check()
        return self._ctx

    @property
    def is_usable(self) -> bool:
        return self._finalizer.alive and self._forks == _Process.forks

    def close(self) -> None:
        """Stops the instance: what is under way ends with a callback or nothing."""
        if not self.is_usable:
            return
        if _thread.depth > 0:
            raise CoapRpcError(0, "a node cannot be closed inside its handler")
        self.loop.remove_reader(self._fd)
        if self._console_fd is not None:
            self.loop.remove_reader(self._console_fd)
        self._disarm()
        self._finalizer.detach()
        _release(*self._handles)

    def live_allocations(self) -> int:
        """How many pieces of memory the instance has."""
        self.check()
        stat = ffi.new("KestrelMemStat *")
        lib.KestrelMemStatGet(lib.KestrelMem(self._host), stat)
        return int(stat.liveCount)

    def arm(self) -> None:
        """Wakes the host when its next timer is due.  To be called when the library may have started one."""
        ms = lib.KestrelPollTimeoutMs(self._host)
        if ms < 0:
            return
        due = self.loop.time() + ms / 1000
        if self._timer is not None:
            if self._due <= due:
                return
            self._timer.cancel()
        self._due, self._timer = due, self.loop.call_at(due, self._on_timer)

    def _disarm(self) -> None:
        if self._timer is not None:
            self._timer.cancel()
            self._timer = None

    def _on_timer(self) -> None:
        self._timer = None
        self.run(lib.KestrelTurn, self._host)

    def _on_console(self) -> None:
        self.run(lib.KestrelTurn, self._host)

    def _on_io(self) -> None:
        self.run(lib.COAP_RpcProcIo, self._ctx)

    def run(self, function: Callable[..., object], *args: Any) -> None:
        """Calls a function of the library that may call back, in the thread of the loop."""
        if not self.is_usable:
            return
        if self._thread != threading.get_ident():
            self._run_later(function, *args)
            return
        depth = _thread.depth
        _thread.depth = depth + 1
        try:
            function(*args)
        finally:
            _thread.depth = depth  # which a fork has set back in the child
        self.arm()
        if _thread.garbage and depth == 0:
            _release_garbage()
        self._raise_kept()

    def run_with_ctx(self, function: Callable[..., object], *args: Any) -> None:
        """The same for one whose first argument is the library's handle."""
        self.run(function, self._ctx, *args)

    def _run_later(self, function: Callable[..., object], *args: Any) -> None:
        """For the end of what another thread has dropped.  A loop that is closed has nobody to run it."""
        with contextlib.suppress(RuntimeError):
            self.loop.call_soon_threadsafe(self.run, function, *args)

    def keep(self, error: BaseException) -> None:
        """Raises an exception that must not be lost as soon as the library has returned."""
        self._raised = error

    def _raise_kept(self) -> None:
        if self._raised is not None:
            error, self._raised = self._raised, None
            raise error
