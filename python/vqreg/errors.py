"""What goes wrong with a store."""
from __future__ import annotations

import os

from . import _c, values


class VqregError(Exception):
    """A failure of the library: `code` is its result as vqreg.h has it, `text` says what happened."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(text)
        self.code = code
        self.text = text

    def __str__(self) -> str:
        return self.text

    def __reduce__(self) -> tuple[type[VqregError], tuple[int, str]]:
        """For pickle, so that it leaves a process of multiprocessing as it is."""
        return type(self), (self.code, self.text)


class NotFoundError(VqregError, KeyError):
    """There is no such value, or no such key."""


class KindError(NotFoundError):
    """There is a key where a value is meant, or a value where a key is meant."""


class NotEmptyError(VqregError):
    """The key has sub keys or values."""


class NotStorableError(VqregError, ValueError):
    """The file could not give it back. The text names the byte, counted from 1, or the length."""


class StoreError(VqregError, OSError):
    """The store cannot be opened, read or written. The text names the file and says why; `errno` is None."""


class MalformedError(StoreError):
    """The file is malformed: the text names line and column."""


_CLASSES: dict[int, type[VqregError]] = {
    _c.E_NOT_FOUND: NotFoundError,
    _c.E_KEY_NOT_FOUND: NotFoundError,
    _c.E_NOT_A_KEY: KindError,
    _c.E_NOT_A_VALUE: KindError,
    _c.E_KEY_NOT_EMPTY: NotEmptyError,
    _c.E_NOT_STORABLE: NotStorableError,
    _c.E_BAD_FORMAT: MalformedError,
    _c.E_FILE_OPEN: StoreError,
    _c.E_NOT_INITIALIZED: StoreError,
}


def why(file: str | bytes | os.PathLike[str] | None = None) -> str | None:
    """Why a store cannot be used: what is missing, or line and column of what is malformed.

    None when nothing stands in the way. Does not open the store. `file` is as for `Store`.
    """
    return values.decoded(_c.told("vqreg_why", values.file_path(file))) or None


def which(file: str | bytes | os.PathLike[str] | None = None) -> str:
    """The path of the file that `Store(file)` would open, behind symbolic links. Does not make it."""
    return os.fsdecode(_c.told("vqreg_which", values.file_path(file)))


def failure(code: int, what: str, file: bytes | None = None) -> VqregError:
    """The exception for a result. `what` names the key or value, `file` the store's file."""
    kind = _CLASSES.get(code, VqregError)
    meaning: bytes = _c.library.vqreg_strerror(code)
    text = meaning.decode()
    if issubclass(kind, StoreError):
        return _store_failure(kind, code, text, file)
    return kind(code, f"{what}: {text}" if what else text)


def _store_failure(kind: type[VqregError], code: int, text: str, file: bytes | None) -> VqregError:
    """The same for what is wrong with the file; a store that cannot be opened may be malformed, too."""
    place = values.decoded(_c.told("vqreg_which", file))
    reason = values.decoded(_c.told("vqreg_why", file))
    if reason.startswith(place) and reason[len(place):][1:2].isdigit():  # FILE:LINE:COLUMN
        kind = MalformedError
    return kind(code, reason or f"{place}: {text}")
