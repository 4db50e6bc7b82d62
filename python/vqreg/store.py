"""Stores, and keys as mappings of their values."""
from __future__ import annotations

import ctypes
import os
from collections.abc import Iterator, MutableMapping
from types import TracebackType
from typing import TypeVar, overload

from . import _c, values
from .errors import Error, NotFoundError, failure
from .update import Update
from .values import Value
from .watch import Watch

Default = TypeVar("Default")


class Store:
    """An open store.

    Values are reached by the path of their key and their name::

        with vqreg.Store() as s:
            s["Network/Ports", "Http"] = 8080

    `file` is the path of the store's file, by default the machine's; `root` the name of its root key. Any
    number of threads may use a store.
    """

    def __init__(self, file: str | os.PathLike[str] | None = None, root: str | None = None) -> None:
        self._handle: int | None = None
        path = None if file is None else values.no_nul("a path", os.fsencode(file))
        name = None if root is None else values.no_nul("a key name", values.encoded(root))
        result = ctypes.c_int()
        handle = _c.library.vqreg_open(path, name, ctypes.byref(result))
        if not handle:
            raise failure(result.value, "", path)
        self._handle = handle

    def close(self) -> None:
        """Closes the store. Closing it again does nothing."""
        handle, self._handle = self._handle, None
        if handle is not None:
            _c.library.vqreg_close(handle)

    def __enter__(self) -> Store:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"Store({self.file!r})" if self._handle is not None else "Store(closed)"

    @property
    def file(self) -> str:
        """The path of the store's file, behind the links that led to it."""
        return os.fsdecode(_c.library.vqreg_file(self.handle))

    @property
    def handle(self) -> int:
        """The store of vqreg.h, for calls that this module does not make."""
        if self._handle is None:
            raise ValueError("the store is closed")
        return self._handle

    # Values.

    def __getitem__(self, place: tuple[str, str]) -> Value:
        path, name = place
        return self._read(_path(path), _name(name), f"{path}: {name}")

    def __setitem__(self, place: tuple[str, str], value: Value) -> None:
        path, name = place
        self._write(self.checked(path, name, value), f"{path}: {name}")

    def __delitem__(self, place: tuple[str, str]) -> None:
        path, name = place
        self._do("vqreg_delete_value", f"{path}: {name}", _path(path), _name(name))

    def __contains__(self, place: object) -> bool:
        if not (isinstance(place, tuple) and len(place) == 2):
            return False
        try:
            self[place]
        except NotFoundError:
            return False
        return True

    @overload
    def get(self, path: str, name: str) -> Value | None: ...

    @overload
    def get(self, path: str, name: str, default: Default) -> Value | Default: ...

    def get(self, path: str, name: str, default: object = None) -> object:
        """The value, or `default` when there is none."""
        try:
            return self[path, name]
        except NotFoundError:
            return default

    # Keys.

    def key(self, path: str = "") -> Key:
        """A key as a mapping of its values. It need not exist; setting a value makes it."""
        return Key(self, path)

    def keys(self, path: str = "") -> list[str]:
        """The names of a key's sub keys."""
        return self._names("vqreg_list_keys", path)

    def names(self, path: str = "") -> list[str]:
        """The names of a key's values."""
        return self._names("vqreg_list_values", path)

    def create(self, path: str) -> Key:
        """Makes a key, with those above it."""
        self._check(path, None, _c.NONE, b"")
        self._do("vqreg_create_key", path, _path(path))
        return Key(self, path)

    def delete(self, path: str) -> None:
        """Deletes an empty key."""
        self._do("vqreg_delete_key", path, _path(path))

    # Changes.

    def update(self) -> Update:
        """Changes that become one write of the file, or none when the block ends in an exception."""
        return Update(self)

    def watch(self, path: str = "", timeout: float | None = None) -> Watch:
        """The changes of a key and everything below it, from now on; see `Watch`."""
        return Watch(self, path, timeout)

    def notify(self) -> None:
        """Wakes the change handlers of programs in C++; watches need no telling."""
        self._do("vqreg_notify", "")

    def reload(self) -> None:
        """Makes every process read the file again, after a change by other means."""
        self._do("vqreg_reload", "")

    # For this package.

    def checked(self, path: str, name: str, value: Value) -> tuple[bytes, bytes, int, bytes]:
        """What a call needs to set the value, or the exception for what cannot be set."""
        kind, data = values.typed(value)
        self._check(path, name, kind, data)
        return _path(path), _name(name), kind, data

    def begin(self) -> None:
        self._do("vqreg_begin_update", "")

    def end(self) -> None:
        self._do("vqreg_end_update", "")

    def _write(self, checked: tuple[bytes, bytes, int, bytes], what: str) -> None:
        path, name, kind, data = checked
        if kind == _c.DWORD:
            self._do("vqreg_set_dword", what, path, name, values.of(kind, data))
        elif kind == _c.STRING:
            self._do("vqreg_set_string", what, path, name, data)
        else:
            self._do("vqreg_set_binary", what, path, name, data, len(data))

    def _read(self, path: bytes, name: bytes, what: str) -> Value:
        kind = ctypes.c_int()
        size = ctypes.c_size_t(256)
        while True:
            buffer = ctypes.create_string_buffer(max(size.value, 1))
            result = _c.library.vqreg_get(self.handle, path, name, ctypes.byref(kind), buffer,
                                          ctypes.byref(size))
            if result != _c.E_BUFFER_TOO_SMALL:
                break
        if result < 0:
            raise self._failure(result, what)
        return values.of(kind.value, buffer.raw[:size.value])

    def _check(self, path: str, name: str | None, kind: int, data: bytes) -> None:
        given = [self.handle, _path(path), None if name is None else _name(name), kind, data,
                 len(data)]
        size = _c.library.vqreg_why_not_storable(*given, None, 0)
        if size:
            buffer = ctypes.create_string_buffer(size + 1)
            _c.library.vqreg_why_not_storable(*given, buffer, size + 1)
            raise ValueError(values.decoded(buffer.value))

    def _names(self, function: str, path: str) -> list[str]:
        names = ctypes.POINTER(ctypes.c_char_p)()
        count = ctypes.c_size_t()
        self._do(function, path, _path(path), ctypes.byref(names), ctypes.byref(count))
        try:
            return [values.decoded(names[i] or b"") for i in range(count.value)]
        finally:
            _c.library.vqreg_free(names)

    def _do(self, function: str, what: str, *arguments: object) -> None:
        result = getattr(_c.library, function)(self.handle, *arguments)
        if result < 0:
            raise self._failure(result, what)

    def _failure(self, code: int, what: str) -> Error:
        return failure(code, what, _c.library.vqreg_file(self.handle))


class Key(MutableMapping[str, Value]):
    """A key as a mapping of the names of its values; `path` is where it is, below the root key."""

    def __init__(self, store: Store, path: str) -> None:
        self._store = store
        self.path = path

    def __getitem__(self, name: str) -> Value:
        return self._store[self.path, name]

    def __setitem__(self, name: str, value: Value) -> None:
        self._store[self.path, name] = value

    def __delitem__(self, name: str) -> None:
        del self._store[self.path, name]

    def __iter__(self) -> Iterator[str]:
        try:
            return iter(self._store.names(self.path))
        except NotFoundError:
            return iter(())

    def __len__(self) -> int:
        return sum(1 for _ in self)

    def __truediv__(self, path: str) -> Key:
        """The key of that path below this one."""
        return Key(self._store, f"{self.path}/{path}" if self.path else path)

    def keys_below(self) -> list[str]:
        """The names of its sub keys."""
        return self._store.keys(self.path)

    def __repr__(self) -> str:
        return f"Key({self.path!r})"


def _path(path: str) -> bytes:
    return values.no_nul("a path", values.encoded(path))


def _name(name: str) -> bytes:
    return values.no_nul("a value name", values.encoded(name))
