"""What changes in a store, for loops that wait and for asyncio."""
from __future__ import annotations

import ctypes
import math
import os
import select
import threading
import time
from contextlib import suppress
from types import TracebackType
from typing import TYPE_CHECKING, NamedTuple, Optional

from . import _c, values
from .errors import StoreError, VqregError, failure
from .values import Value

if TYPE_CHECKING:
    import asyncio

# Seconds of one wait. What is not told is found by the next look: that a directory above the file's own was
# replaced, and that a missing one is back.
_LONGEST = 5.0
_LONGEST_WITHOUT_FILE = 1.0


class Change(NamedTuple):
    """A value that was set or deleted, or, where `name` is None, a key that was made or deleted."""

    path: str
    """Of the key, below the root key."""
    name: Optional[str]
    """Of the value."""
    before: Optional[Value]
    """None where there was no value."""
    after: Optional[Value]
    """None where there is no value any more."""
    is_present: bool
    """Whether the value, or the key, is there now."""


class Watch:
    """The changes of a key and everything below it, from its making on, whoever makes them.

    Iterating waits for changes, and ends when there was none for `timeout` seconds (None: never); another
    loop goes on with what comes then. `async for` waits in the loop of asyncio, with the same timeout. Other
    loops have `fileno` and `poll`.

    While the file is malformed or cannot be read, iterating waits until it is mended. Several changes of one
    value that came before anybody looked are one. Several threads may use a watch, or several tasks of one
    loop: each change goes to one of them. A child of fork may not; it makes its own. A context manager that
    closes it.
    """

    def __init__(self, store: _c.StoreHandle, path: str, timeout: float | None) -> None:
        self._handle: _c.WatchHandle | None = None
        self.timeout = timeout
        self._lock = threading.Lock()
        self._turn = threading.Lock()  # of the thread that waits
        # Of those that wait in a loop.
        self._tasks: dict[asyncio.Event, asyncio.AbstractEventLoop] = {}
        # What was given out and not yet returned: an exception may come in between.
        self._given = _c.change_pointer()
        self._file = _c.file_of(store)
        result = ctypes.c_int()
        handle: _c.WatchHandle = _c.library.vqreg_watch_open(store, values.named("a path", path),
                                                             ctypes.byref(result))
        if not handle:
            raise failure(result.value, path, self._file)
        handle.process = os.getpid()
        self._handle = handle

    def close(self) -> None:
        """Ends the watch. Closing it again does nothing.

        Who waits for changes gets a `ValueError`; in another thread only after some seconds.
        """
        self._handle = None
        self._wake_tasks()

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def fileno(self) -> int:
        """Readable when there may be a change; for select, poll and event loops. Do not read from it.

        It is not told when a directory above the file's own is replaced, which the next `poll` finds.
        """
        return _descriptor(self._open())

    def poll(self) -> Change | None:
        """The next change, or None when there is none. Never waits.

        Call it until it gives None: what it leaves wakes no other thread that waits in a loop over the watch.
        Raises `StoreError` while the file is malformed or cannot be read.
        """
        handle = self._open()
        with self._lock:  # what is given belongs to the watch until the next call
            if not self._given:
                result: int = _c.library.vqreg_watch_next(handle, self._given)
                if result < 0:
                    raise failure(result, "", self._file)
            change = _change(self._given.contents) if self._given else None
            self._given = _c.change_pointer()
        if change is not None:
            self._wake_tasks()
        return change

    def _wake_tasks(self) -> None:
        """There may be more changes, which is news to nobody."""
        for news, loop in list(self._tasks.items()):
            with suppress(RuntimeError):  # of a loop that is closed
                loop.call_soon_threadsafe(news.set)

    def __iter__(self) -> Watch:
        return self

    def __next__(self) -> Change:
        self._open()
        end = math.inf if self.timeout is None else time.monotonic() + self.timeout
        # One thread waits for news, and the others for it: what it leaves of them is news to nobody.
        taken: list[bool] = []
        try:
            left = max(0.0, end - time.monotonic())
            taken.extend(map(self._turn.acquire, (True,), (min(left, threading.TIMEOUT_MAX),)))
            change = self._wait(end) if taken[0] else None
        finally:
            if taken and taken[0]:
                self._turn.release()
        if change is None:
            raise StopIteration
        return change

    def _wait(self, end: float) -> Change | None:
        """The next change, or None when it has not come by then."""
        while True:
            change, longest = self._look()
            left = end - time.monotonic()
            if change is not None or left <= 0:
                return change
            handle = self._open()  # keeps the descriptor open while it is waited for
            poll = select.poll()
            poll.register(_descriptor(handle), select.POLLIN)
            poll.poll(max(1, int(min(left, longest) * 1000)))

    def __aiter__(self) -> Watch:
        return self

    async def __anext__(self) -> Change:
        end = math.inf if self.timeout is None else time.monotonic() + self.timeout
        while True:
            change, longest = self._look()
            if change is not None:
                return change
            left = end - time.monotonic()
            if left <= 0:
                raise StopAsyncIteration
            await self._news(self._open(), min(left, longest))

    async def _news(self, handle: _c.WatchHandle, seconds: float) -> None:
        """Waits in the loop of asyncio until there may be a change, or the time is over."""
        import asyncio  # takes as long to load as all the rest

        loop = asyncio.get_running_loop()
        news = asyncio.Event()
        # A loop has one reader for a descriptor, and others may wait for the same changes.
        own = os.dup(_descriptor(handle))
        self._tasks[news] = loop
        # asyncio.wait_for would lose a cancellation that comes together with news.
        end = loop.call_later(seconds, news.set)
        try:
            loop.add_reader(own, news.set)
            await news.wait()
        finally:
            end.cancel()
            self._tasks.pop(news, None)
            try:
                loop.remove_reader(own)
            finally:  # not every loop has readers
                os.close(own)

    def _open(self) -> _c.WatchHandle:
        handle = self._handle
        if handle is None:
            raise ValueError("the watch is closed")
        if handle.process != os.getpid():
            raise RuntimeError("the watch belongs to the process that has made it")
        return handle

    def _look(self) -> tuple[Change | None, float]:
        """The next change, if there is one, and how long to wait at most before the next look."""
        try:
            return self.poll(), _LONGEST
        except StoreError:
            return None, _LONGEST_WITHOUT_FILE


def _descriptor(handle: _c.WatchHandle) -> int:
    descriptor: int = _c.library.vqreg_watch_fd(handle)
    return descriptor


def _change(given: _c.Change) -> Change:
    return Change(values.decoded(given.path), None if given.name is None else values.decoded(given.name),
                  _value(given.before), _value(given.after), bool(given.is_present))


def _value(state: _c.Data) -> Value | None:
    if state.type == _c.NONE:
        return None
    return values.of(state.type, ctypes.string_at(state.data, state.size))
