"""The C interface as ctypes sees it: vqreg.h, and nothing more.

The library is found as every program finds it: by the loader, under the name that includes its binary
interface. LD_LIBRARY_PATH leads to another build, and the loader ignores it where a program has more rights
than who started it.
"""
from __future__ import annotations

import ctypes
import os
import threading
from collections.abc import Callable
from ctypes import POINTER, c_char_p, c_int, c_size_t, c_uint32, c_void_p
from typing import NoReturn

OK = 0
E_FAIL = -1054535776
E_NOT_FOUND = -1054535774
E_NOT_A_KEY = -1054535773
E_NOT_A_VALUE = -1054535772
E_KEY_NOT_FOUND = -1054535768
E_BUFFER_TOO_SMALL = -1054535759
E_BAD_FORMAT = -1054535758
E_KEY_NOT_EMPTY = -1054535756
E_FILE_OPEN = -1054535755
E_NOT_INITIALIZED = -1054535753
E_NOT_STORABLE = -1054535744

NONE, BINARY, DWORD, STRING = range(4)

_LIBRARY = "libVQRegLib.so.1"


def _load() -> ctypes.CDLL:
    try:
        return ctypes.CDLL(_LIBRARY)
    except OSError as error:
        raise ImportError(f"vqreg needs {_LIBRARY} (Debian: libvqreglib1): {error}") from error


library = _load()


class Updates(threading.local):
    """The updates that a thread is in, and what it is to close when they are over.

    Closing waits for another thread that opens a store, which may be waiting for the end of such an update.
    What the thread lets go of it may not even know: garbage is collected at any moment.
    """

    def __init__(self) -> None:
        self._open: set[int] = set()
        self._late: list[tuple[Callable[[int], None], int]] = []

    def begin(self, number: int) -> None:
        """Notes an update that is about to begin."""
        self._open.add(number)

    def end(self, number: int) -> None:
        """Closes what has waited for it, unless the thread is in another one."""
        self._open.discard(number)
        while self._late and not self._open:
            function, pointer = self._late.pop()
            function(pointer)

    def close(self, function: Callable[[int], None], pointer: int) -> None:
        """Closes it now or then."""
        if self._open:
            self._late.append((function, pointer))
        else:
            function(pointer)

    def forget(self) -> None:
        """For a child of fork: the updates are its parent's, and it may close at once."""
        self._open.clear()


updates = Updates()
os.register_at_fork(after_in_child=updates.forget)


class Handle(c_void_p):
    """A pointer that one object owns. ctypes would give its number to copies and to other processes."""

    def __reduce__(self) -> NoReturn:
        raise TypeError("an open store or watch cannot be copied or pickled")


class StoreHandle(Handle):
    """vqreg_store*, closed when nobody refers to it any more: no thread closes it under another one."""

    def __del__(self) -> None:
        if self.value:
            updates.close(library.vqreg_close, self.value)


class WatchHandle(Handle):
    """vqreg_watch*, closed in the same way."""

    process = 0  # that has opened it

    def __del__(self) -> None:
        if self.value:
            updates.close(library.vqreg_watch_close, self.value)


class Data(ctypes.Structure):
    """vqreg_data: one state of a value."""

    _fields_ = [("type", c_int), ("size", c_size_t), ("data", c_void_p)]


class Change(ctypes.Structure):
    """vqreg_change, as far as this module knows its members."""

    _fields_ = [("path", c_char_p), ("name", c_char_p), ("before", Data), ("after", Data),
                ("is_present", c_int)]


change_pointer = POINTER(Change)

_FUNCTIONS: dict[str, tuple[object, list[object]]] = {
    "vqreg_open": (StoreHandle, [c_char_p, c_char_p, POINTER(c_int)]),
    "vqreg_close": (None, [c_void_p]),
    "vqreg_file": (c_char_p, [c_void_p]),
    "vqreg_strerror": (c_char_p, [c_int]),
    "vqreg_why": (c_size_t, [c_char_p, c_char_p, c_size_t]),
    "vqreg_which": (c_size_t, [c_char_p, c_char_p, c_size_t]),
    "vqreg_why_not_storable": (c_size_t, [c_void_p, c_char_p, c_char_p, c_int, c_char_p, c_size_t,
                                          c_char_p, c_size_t]),
    "vqreg_begin_update": (c_int, [c_void_p]),
    "vqreg_end_update": (c_int, [c_void_p]),
    "vqreg_reload": (c_int, [c_void_p]),
    "vqreg_notify": (c_int, [c_void_p]),
    "vqreg_create_key": (c_int, [c_void_p, c_char_p]),
    "vqreg_has_key": (c_int, [c_void_p, c_char_p]),
    "vqreg_delete_key": (c_int, [c_void_p, c_char_p]),
    "vqreg_get": (c_int, [c_void_p, c_char_p, c_char_p, POINTER(c_int), c_char_p,
                          POINTER(c_size_t)]),
    "vqreg_set_dword": (c_int, [c_void_p, c_char_p, c_char_p, c_uint32]),
    "vqreg_set_string": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p]),
    "vqreg_set_binary": (c_int, [c_void_p, c_char_p, c_char_p, c_char_p, c_size_t]),
    "vqreg_delete_value": (c_int, [c_void_p, c_char_p, c_char_p]),
    "vqreg_list_keys": (c_int, [c_void_p, c_char_p, POINTER(POINTER(c_char_p)),
                                POINTER(c_size_t)]),
    "vqreg_list_values": (c_int, [c_void_p, c_char_p, POINTER(POINTER(c_char_p)),
                                  POINTER(c_size_t)]),
    "vqreg_free": (None, [c_void_p]),
    "vqreg_watch_open": (WatchHandle, [c_void_p, c_char_p, POINTER(c_int)]),
    "vqreg_watch_fd": (c_int, [c_void_p]),
    "vqreg_watch_next": (c_int, [c_void_p, POINTER(POINTER(Change))]),
    "vqreg_watch_close": (None, [c_void_p]),
}


def _declare() -> None:
    for name, (result, arguments) in _FUNCTIONS.items():
        try:
            function = getattr(library, name)
        except AttributeError as error:
            raise ImportError(f"{_LIBRARY} is older than this module: it has no {name}") from error
        function.restype = result
        function.argtypes = arguments


_declare()


def file_of(store: StoreHandle) -> bytes:
    """The path of a store's file."""
    path: bytes = library.vqreg_file(store)
    return path


def told(function: str, *arguments: object) -> bytes:
    """What a call tells that fills a buffer and returns the length of the whole text."""
    size: int = getattr(library, function)(*arguments, None, 0)
    while True:
        buffer = ctypes.create_string_buffer(size + 1)
        needed: int = getattr(library, function)(*arguments, buffer, size + 1)
        if needed <= size:
            return buffer.value
        size = needed  # it has become longer meanwhile
