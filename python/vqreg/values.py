"""Values as Python has them: int for a dword, str for a string, bytes for a binary value."""
from __future__ import annotations

import ctypes
import os
import sys
from typing import TypeGuard, Union

from . import _c

Value = Union[int, str, bytes]
"""What a value can be."""

_LARGEST = 0xFFFF_FFFF


def encoded(text: str) -> bytes:
    """A name, path or text as the file has it: UTF-8, with bytes that are none as `os.fsdecode` has them."""
    try:
        return text.encode("utf-8", "surrogateescape")
    except UnicodeEncodeError as error:
        from .errors import NotStorableError  # which needs this module

        at = len(encoded(text[:error.start])) + 1
        raise NotStorableError(_c.E_NOT_STORABLE, f"a text must not hold a lone surrogate: byte {at}") from None


def decoded(data: bytes) -> str:
    """The way back."""
    return data.decode("utf-8", "surrogateescape")


def checked(what: str, text: str) -> str:
    """A path or name, which nothing else than a str can be."""
    if not isinstance(text, str):
        raise TypeError(f"{what} is a str, not {type(text).__name__}")
    return text


def named(what: str, text: str) -> bytes:
    """A path or name for C, which would take it for shorter than it is if it held a NUL."""
    data = encoded(checked(what, text))
    at = data.find(b"\0")
    if at >= 0:
        raise ValueError(f"{what} must not hold a NUL: byte {at + 1}")
    return data


def is_name(given: object) -> TypeGuard[str]:
    """Whether there can be something of that path or name."""
    try:
        named("a name", given)  # type: ignore[arg-type]
    except (TypeError, ValueError):
        return False
    return True


def pair(place: tuple[str, str]) -> tuple[str, str]:
    """Path and name of a value."""
    if not (isinstance(place, tuple) and len(place) == 2):
        raise TypeError('a value is named by path and name, store["Network/Ports", "Http"]; '
                        'store.key("Network/Ports") is a mapping of names')
    return place


def shown(path: str, name: str) -> str:
    """A value as messages name it."""
    return f'{path} "{name}"' if path else f'"{name}"'


def file_path(file: str | bytes | os.PathLike[str] | None) -> bytes | None:
    """The path of a store's file, absolute; None for the machine's default store."""
    if file is None:
        return None
    path = os.fsencode(file)
    at = path.find(b"\0")
    if at >= 0:
        raise ValueError(f"a path must not hold a NUL: byte {at + 1}")
    return os.path.join(os.getcwdb(), path) if path and not os.path.isabs(path) else path


def typed(value: Value) -> tuple[int, bytes]:
    """Type and data of a value, or an exception when there is no such type or number."""
    if isinstance(value, int):
        if not 0 <= value <= _LARGEST:
            raise OverflowError(f"a number must be between 0 and {_LARGEST}, not {value}")
        return _c.DWORD, bytes(ctypes.c_uint32(value))
    if isinstance(value, str):
        return _c.STRING, encoded(value)
    if isinstance(value, (bytes, bytearray, memoryview)):
        return _c.BINARY, bytes(value)
    raise TypeError(f"a value is an int, a str or bytes, not {type(value).__name__}")


def setting(value: Value) -> tuple[str, tuple[object, ...]]:
    """The function that sets such a value, and what it takes behind path and name."""
    kind, data = typed(value)
    if kind == _c.DWORD:
        return "vqreg_set_dword", (int.from_bytes(data, sys.byteorder),)
    if kind == _c.STRING:
        return "vqreg_set_string", (data,)
    return "vqreg_set_binary", (data, len(data))


def of(kind: int, data: bytes) -> Value:
    """A value of type and data; a text comes with its NUL."""
    if kind == _c.DWORD:
        return int.from_bytes(data, sys.byteorder)
    if kind == _c.STRING:
        return decoded(data[:-1])
    return data
