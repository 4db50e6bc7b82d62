"""What goes wrong with a store."""
import ctypes

from . import _c


class Error(Exception):
    """A failure of the library: `code` is its result, and the text says what it means."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(text)
        self.code = code

    def __str__(self) -> str:
        return str(self.args[0])


class NotFoundError(Error, KeyError):
    """There is no such value, or no such key."""


class KindError(Error, TypeError):
    """A value where a key should be, or the other way round."""


class NotEmptyError(Error):
    """The key has sub keys or values."""


class StoreError(Error, OSError):
    """The store cannot be opened, read or written; the text names the file, and the line if it is
    malformed."""


_CLASSES: dict[int, type[Error]] = {
    _c.E_NOT_FOUND: NotFoundError,
    _c.E_KEY_NOT_FOUND: NotFoundError,
    _c.E_NOT_A_KEY: KindError,
    _c.E_NOT_A_VALUE: KindError,
    _c.E_KEY_NOT_EMPTY: NotEmptyError,
    _c.E_BAD_FORMAT: StoreError,
    _c.E_FILE_OPEN: StoreError,
    _c.E_NOT_INITIALIZED: StoreError,
}


def sentence(code: int) -> str:
    """What a result means."""
    text: bytes = _c.library.vqreg_strerror(code)
    return text.decode()


def why(file: bytes | None) -> str:
    """Why a store cannot be used; empty when nothing stands in the way."""
    size = _c.library.vqreg_why(file, None, 0) + 1
    buffer = ctypes.create_string_buffer(size)
    _c.library.vqreg_why(file, buffer, size)
    return buffer.value.decode(errors="surrogateescape")


def failure(code: int, what: str, file: bytes | None = None) -> Error:
    """The exception for a result. `what` names the key or value."""
    kind = _CLASSES.get(code, Error)
    text = sentence(code)
    if kind is StoreError:
        text = why(file) or text
    return kind(code, f"{what}: {text}" if what else text)
