"""An open store."""
from __future__ import annotations

import ctypes
import os
from collections.abc import Iterator
from contextlib import AbstractContextManager
from types import TracebackType
from typing import TypeVar, overload

from . import _c, values
from ._calls import Calls, lock
from .check import check_for, check_root
from .errors import NotFoundError, NotStorableError, VqregError, failure
from .key import Key
from .update import Update
from .values import Value
from .watch import Watch

Default = TypeVar("Default")

_ROOM = 256  # bytes that a query tries first
_Buffer = ctypes.c_char * _ROOM


class Store:
    """An open store; a context manager that closes it.

    Values are reached by the path of their key and their name::

        with vqreg.Store() as s:
            s["Network/Ports", "Http"] = 8080

    `file` is the path of the store's file, by default the machine's; `root` the name of its root key. Any
    number of threads may use one store. A child of fork may use it if no other thread was in a call of this
    module when the child was made.
    """

    def __init__(self, file: str | bytes | os.PathLike[str] | None = None,
                 root: str | None = None) -> None:
        self._handle: _c.StoreHandle | None = None
        path = values.file_path(file)
        name = None if root is None else values.named("a key name", root)
        result = ctypes.c_int()
        handle: _c.StoreHandle = _c.library.vqreg_open(path, name, ctypes.byref(result))
        if not handle:
            if result.value == _c.E_NOT_STORABLE and root is not None:
                check_root(root)  # says why
            raise failure(result.value, "", path)
        self._handle = handle

    def close(self) -> None:
        """Closes the store, when what other threads do with it has ended. Closing it again does nothing."""
        self._handle = None

    @property
    def closed(self) -> bool:
        """Whether it has been closed."""
        return self._handle is None

    def __enter__(self) -> Store:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __repr__(self) -> str:
        return "Store(closed)" if self.closed else f"Store({self.file!r})"

    @property
    def file(self) -> str:
        """The path of the store's file, behind the links that led to it."""
        return os.fsdecode(self._file())

    # Values.

    def __getitem__(self, place: tuple[str, str]) -> Value:
        path, name = values.pair(place)
        return self._read(path, name)

    def __setitem__(self, place: tuple[str, str], value: Value) -> None:
        path, name = values.pair(place)
        self._write(path, name, value)

    def __delitem__(self, place: tuple[str, str]) -> None:
        path, name = values.pair(place)
        self._do("vqreg_delete_value", values.shown(path, name), values.named("a path", path),
                 values.named("a value name", name))

    def __contains__(self, place: object) -> bool:
        """Whether there is a value, for a pair of path and name, or a key, for a path alone.

        False for what is neither.
        """
        if isinstance(place, tuple) and len(place) == 2 and all(map(values.is_name, place)):
            path, name = place
            return self._kind(values.encoded(path), values.encoded(name)) == "value"
        return values.is_name(place) and self._has_key(place)

    @overload
    def get(self, path: str, name: str) -> Value | None: ...

    @overload
    def get(self, path: str, name: str, default: Default) -> Value | Default: ...

    def get(self, path: str, name: str, default: object = None) -> object:
        """The value, or `default` when there is none."""
        try:
            return self._read(path, name)
        except NotFoundError:
            return default

    def check(self, path: str, name: str | None = None, value: Value | None = None) -> None:
        """Raises what setting the value would raise for what it is: NotStorableError, OverflowError.

        Without a value it looks at path and name alone, and without a name at the path. Changes nothing.
        """
        check_for(self._open(), path, name, value)

    # Keys.

    def key(self, path: str = "") -> Key:
        """A key as a mapping of its values. It need not exist: setting a value makes it."""
        return Key(self, path)

    def subkeys(self, path: str = "") -> list[str]:
        """The names of a key's sub keys, in the order of their small letters."""
        return self._names("vqreg_list_keys", path)

    def names(self, path: str = "") -> list[str]:
        """The names of a key's values, in the same order."""
        return self._names("vqreg_list_values", path)

    def items(self, path: str = "") -> list[tuple[str, Value]]:
        """Names and values of a key. One that is deleted meanwhile is left out."""
        found = []
        for name in self.names(path):
            try:
                found.append((name, self._read(path, name)))
            except NotFoundError:
                pass
        return found

    def walk(self, path: str = "") -> Iterator[Key]:
        """A key and all keys below it, each before those below it. What is deleted meanwhile is left out.

        Raises NotStorableError before a key with a sub key that no path reaches: a file that was not written
        by this module may hold one without a name, or with a backslash in it.
        """
        top = self.key(path).path
        waiting = [top]
        while waiting:
            at = waiting.pop()
            try:
                names = self.subkeys(at)
            except NotFoundError:
                if at == top:
                    raise
                continue
            below = [_joined(at, name) for name in names]
            yield self.key(at)
            waiting.extend(reversed(below))

    def create(self, path: str) -> Key:
        """Makes a key, with those above it. One that exists is left as it is."""
        self.check(path)
        self._do("vqreg_create_key", path, values.named("a path", path))
        return self.key(path)

    def delete(self, path: str, recursive: bool = False) -> None:
        """Deletes an empty key, or with `recursive` a key and everything below it, in one write."""
        if not self.key(path).path:
            raise ValueError("the root key cannot be deleted")
        handle = self._open()
        with lock(handle):
            calls = Calls(handle)
            for key in reversed(list(self.walk(path)) if recursive else [self.key(path)]):
                if recursive:
                    self._delete_values(key.path, calls)
                calls.add(key.path, "vqreg_delete_key", values.named("a path", key.path))
            calls.run()

    def _clear(self, path: str) -> None:
        """Deletes the values of a key in one write."""
        handle = self._open()
        with lock(handle):
            calls = Calls(handle)
            if self._has_key(path):
                self._delete_values(path, calls)
            calls.run()

    def _delete_values(self, path: str, calls: Calls) -> None:
        for name in self.names(path):
            calls.add(values.shown(path, name), "vqreg_delete_value", values.named("a path", path),
                      values.named("a value name", name))

    # Several changes, and those of others.

    def update(self) -> Update:
        """Changes that become one write of the file, or none when the block ends in an exception."""
        return Update(self)

    def locked(self) -> AbstractContextManager[None]:
        """Nobody else changes the store in this block, and what the block changes becomes one write::

            with s.locked():
                starts = s.get("Counters", "Starts", 0)
                s["Counters", "Starts"] = starts + 1 if isinstance(starts, int) else 1

        Other threads and processes wait, so be quick. Tasks of an asyncio loop are one thread: no `await` in
        the block. Blocks nest. What has been changed before an exception stays changed; `update` is for all
        or nothing. When the store is closed in the block, the calls that follow raise, and what was changed
        before is written.

        Open no `Store` in the block: that waits for another thread that is opening one, which may be waiting for
        the end of the block. What is closed in it, or let go of, is closed at its end.

        VqregError is raised by a change in the block through a store that leads to the same file by another
        path, or has another root key, and by the end of the block in a child of fork: the lock is another's.
        """
        return lock(self._open())

    def watch(self, path: str = "", timeout: float | None = None) -> Watch:
        """The changes of a key and everything below it, from now on; see `Watch`."""
        self.check(path)
        return Watch(self._open(), path, timeout)

    def notify(self) -> None:
        """Wakes the change handlers of programs in C++. Watches need no telling.

        They look at the file, so call it when the block of `locked` has ended.
        """
        self._do("vqreg_notify", "")

    def reload(self) -> None:
        """Makes every process read the file again, which has been changed by other means."""
        self._do("vqreg_reload", "")

    # Below all of these.

    def _open(self) -> _c.StoreHandle:
        handle = self._handle
        if handle is None:
            raise ValueError("the store is closed")
        return handle

    def _file(self) -> bytes:
        return _c.file_of(self._open())

    def _read(self, path: str, name: str) -> Value:
        kind, size = ctypes.c_int(), ctypes.c_size_t(_ROOM)
        buffer: ctypes.Array[ctypes.c_char] = _Buffer()
        given = self._open(), values.named("a path", path), values.named("a value name", name)
        result = _c.library.vqreg_get(*given, kind, buffer, size)
        while result == _c.E_BUFFER_TOO_SMALL:
            buffer = ctypes.create_string_buffer(size.value)
            result = _c.library.vqreg_get(*given, kind, buffer, size)
        if result < 0:
            raise self._failure(result, values.shown(path, name))
        return values.of(kind.value, ctypes.string_at(buffer, size.value))

    def _write(self, path: str, name: str, value: Value) -> None:
        function, data = values.setting(value)
        given = values.named("a path", path), values.named("a value name", name)
        if isinstance(value, str) and "\0" in value:  # C would take it for shorter than it is
            result = _c.E_NOT_STORABLE
        else:
            result = self._call(function, *given, *data)
        if result == _c.E_NOT_STORABLE:
            self.check(path, name, value)  # says why
        if result < 0:
            raise self._failure(result, values.shown(path, name))

    def _kind(self, path: bytes, name: bytes) -> str | None:
        """What bears a name in a key: "value", "key", or None for nothing."""
        kind, size = ctypes.c_int(), ctypes.c_size_t()
        result = _c.library.vqreg_get(self._open(), path, name, kind, None, size)
        if result == _c.OK:
            return "value"
        if result == _c.E_NOT_A_VALUE:
            return "key"
        if result in (_c.E_NOT_FOUND, _c.E_KEY_NOT_FOUND, _c.E_NOT_A_KEY):
            return None
        raise self._failure(result, values.decoded(path))

    def _has_key(self, path: str) -> bool:
        result = self._call("vqreg_has_key", values.named("a path", path))
        if result in (_c.E_KEY_NOT_FOUND, _c.E_NOT_A_KEY):
            return False
        if result < 0:
            raise self._failure(result, path)
        return True

    def _names(self, function: str, path: str) -> list[str]:
        names, count = ctypes.POINTER(ctypes.c_char_p)(), ctypes.c_size_t()
        self._do(function, path, values.named("a path", path), names, count)
        try:
            return [values.decoded(names[i] or b"") for i in range(count.value)]
        finally:
            _c.library.vqreg_free(names)

    def _do(self, function: str, what: str, *arguments: object) -> None:
        result = self._call(function, *arguments)
        if result < 0:
            raise self._failure(result, what)

    def _call(self, function: str, *arguments: object) -> int:
        result: int = getattr(_c.library, function)(self._open(), *arguments)
        return result

    def _failure(self, code: int, what: str) -> VqregError:
        return failure(code, what, self._file())


def _joined(path: str, name: str) -> str:
    """The path of a sub key."""
    if not name or "\\" in name:
        fault = f"holds a backslash: {name}" if name else "is empty"
        reason = f"the name of a sub key {fault}"
        raise NotStorableError(_c.E_NOT_STORABLE, f"{path}: {reason}" if path else reason)
    return f"{path}/{name}" if path else name
