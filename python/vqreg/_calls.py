"""Calls of the library that no exception of a signal handler parts from what belongs to them.

Python runs signal handlers between the steps of a program, and never inside a function that is written in C.
`list.extend` over a `map` is one: it makes calls and keeps their results as one step.
"""
from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from functools import partial

from . import _c
from .errors import failure


@contextmanager
def lock(handle: _c.StoreHandle) -> Iterator[None]:
    """An update of the library. It ends in any case, also when the store is closed meanwhile.

    After an exception that comes between this and the block itself, it ends as soon as the exception is
    forgotten, whose traceback keeps it. The thread itself has to forget it: another one would wait for the
    very update that it is to end.
    """
    begun: list[int] = []
    try:
        _c.updates.begin(id(begun))
        begun.extend(map(_c.library.vqreg_begin_update, (handle,)))
        if begun[0] < 0:
            raise failure(begun[0], "", _c.file_of(handle))
        yield
    finally:
        ended = _c.OK
        try:
            if begun and begun[0] >= 0:
                ended = _c.library.vqreg_end_update(handle)
        finally:
            _c.updates.end(id(begun))
        if ended < 0:
            raise failure(ended, "", _c.file_of(handle))


class Calls:
    """Changes that are all made, one after the other, once the first one is."""

    def __init__(self, handle: _c.StoreHandle) -> None:
        self._handle = handle
        self._whats: list[str] = []
        self._calls: list[partial[int]] = []
        self.results: list[int] = []

    def add(self, what: str, function: str, *arguments: object) -> None:
        """Another one; `what` names it in messages."""
        self._whats.append(what)
        self._calls.append(partial(getattr(_c.library, function), self._handle, *arguments))

    def run(self) -> None:
        """Makes them, and raises for the first one that failed."""
        self.results.extend(map(partial.__call__, self._calls))
        for what, result in zip(self._whats, self.results):
            if result < 0:
                raise failure(result, what, _c.file_of(self._handle))
