"""What changes in a store, for loops that wait and for asyncio."""
from __future__ import annotations

import asyncio
import ctypes
import os
import select
import time
from collections.abc import AsyncIterator, Iterator
from dataclasses import dataclass
from types import TracebackType
from typing import TYPE_CHECKING

from . import _c, values
from .errors import StoreError, failure
from .values import Value

if TYPE_CHECKING:
    from .store import Store


@dataclass(frozen=True)
class Change:
    """A value that was set or deleted, or, where `name` is None, a key that was made or deleted."""

    path: str
    name: str | None
    before: Value | None
    after: Value | None
    is_present: bool


class Watch:
    """The changes of a key and everything below it, from its making on, whoever makes them.

    Iterating waits for changes and ends when there was none for `timeout` seconds (None: never);
    `async for` waits in the event loop, with the same timeout. A file that is malformed for a while is
    waited for. Belongs to one thread at a time, and not to a child of fork.
    """

    def __init__(self, store: Store, path: str = "", timeout: float | None = None) -> None:
        self._handle: int | None = None
        self._process = os.getpid()
        self._store = store
        self.timeout = timeout
        result = ctypes.c_int()
        handle = _c.library.vqreg_watch_open(store.handle,
                                             values.no_nul("a path", values.encoded(path)),
                                             ctypes.byref(result))
        if not handle:
            if result.value == _c.E_NOT_STORABLE:
                raise ValueError(f"no key can have the path {path!r}")
            raise failure(result.value, path, os.fsencode(store.file))
        self._handle = handle

    def close(self) -> None:
        """Ends the watch. Closing it again does nothing."""
        handle, self._handle = self._handle, None
        if handle is not None and self._process == os.getpid():
            _c.library.vqreg_watch_close(handle)

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def fileno(self) -> int:
        """Readable when there may be a change; for select, poll and event loops."""
        descriptor: int = _c.library.vqreg_watch_fd(self._open())
        return descriptor

    def next(self) -> Change | None:
        """The next change, or None when there is none. Never waits.

        Raises `StoreError` while the file is malformed or cannot be read.
        """
        given = _c.Change()
        result = _c.library.vqreg_watch_next(self._open(), ctypes.byref(given))
        if result < 0:
            raise failure(result, "", os.fsencode(self._store.file))
        if result == 0:
            return None
        return Change(values.decoded(given.path),
                      None if given.name is None else values.decoded(given.name),
                      _value(given.before), _value(given.after), bool(given.is_present))

    def __iter__(self) -> Iterator[Change]:
        while (change := self._wait()) is not None:
            yield change

    async def __aiter__(self) -> AsyncIterator[Change]:
        while (change := await self._wait_in_loop()) is not None:
            yield change

    def _open(self) -> int:
        if self._handle is None:
            raise ValueError("the watch is closed")
        if self._process != os.getpid():
            raise RuntimeError("the watch belongs to the process that made it")
        return self._handle

    def _ready(self) -> Change | None:
        try:
            return self.next()
        except StoreError:
            return None  # until the file is mended, which is news

    def _wait(self) -> Change | None:
        end = None if self.timeout is None else time.monotonic() + self.timeout
        poll = select.poll()
        poll.register(self.fileno(), select.POLLIN)
        while (change := self._ready()) is None:
            left = None if end is None else end - time.monotonic()
            if left is not None and left <= 0:
                return None
            poll.poll(None if left is None else max(1, int(left * 1000)))
        return change

    async def _wait_in_loop(self) -> Change | None:
        loop = asyncio.get_running_loop()
        end = None if self.timeout is None else loop.time() + self.timeout
        while (change := self._ready()) is None:
            news = asyncio.Event()
            loop.add_reader(self.fileno(), news.set)
            try:
                left = None if end is None else end - loop.time()
                if left is not None and left <= 0:
                    return None
                await asyncio.wait_for(news.wait(), left)
            except asyncio.TimeoutError:
                return None
            finally:
                loop.remove_reader(self.fileno())
        return change


def _value(state: _c.Data) -> Value | None:
    if state.type == _c.NONE:
        return None
    return values.of(state.type, ctypes.string_at(state.data, state.size))
