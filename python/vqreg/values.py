"""Values as Python has them: int for a dword, str for a string, bytes for a binary value."""
import ctypes
import sys

from . import _c

Value = int | str | bytes

_LARGEST = 0xFFFF_FFFF


def encoded(text: str) -> bytes:
    """A name, path or text as the file has it: UTF-8, and other bytes as `os.fsencode` keeps them."""
    return text.encode("utf-8", "surrogateescape")


def decoded(data: bytes) -> str:
    """The way back."""
    return data.decode("utf-8", "surrogateescape")


def no_nul(what: str, data: bytes) -> bytes:
    """The same, or ValueError: C would take the text for shorter than it is."""
    at = data.find(b"\0")
    if at >= 0:
        raise ValueError(f"{what} must not hold a NUL: byte {at + 1}")
    return data


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


def of(kind: int, data: bytes) -> Value:
    """A value of type and data; a text comes with its NUL."""
    if kind == _c.DWORD:
        return int.from_bytes(data, sys.byteorder)
    if kind == _c.STRING:
        return decoded(data[:-1])
    return data
