"""What a file can hold, before anybody tries."""
from __future__ import annotations

from . import _c, values
from .errors import NotStorableError
from .values import Value


def check(path: str, name: str | None = None, value: Value | None = None) -> None:
    """Raises what setting the value in any store would raise for what it is, as `Store.check` does.

    Needs no store, and makes none. It takes the root key to have its usual name.
    """
    check_for(None, path, name, value)


def check_for(store: _c.StoreHandle | None, path: str, name: str | None, value: Value | None) -> None:
    """The same for a store."""
    kind, data = (_c.NONE, b"") if value is None else values.typed(value)
    reason = _fault(store, values.named("a path", path),
                    None if name is None else values.named("a value name", name), kind, data)
    if reason:
        what = path if name is None else values.shown(path, name)
        raise NotStorableError(_c.E_NOT_STORABLE, f"{what}: {values.decoded(reason)}")


def check_root(root: str) -> None:
    """The same for the name of a root key."""
    name = values.named("a key name", root)
    if not name:
        raise NotStorableError(_c.E_NOT_STORABLE, "the root key: a key name must not be empty")
    reason = _fault(None, b"/" + name)
    if reason == _fault(None, b"x" * len(name)):  # which is about the line of a key below the usual root key
        reason = _fault(None, b"x" * (len(name) - len(b"Velquist/")))
    if reason:
        raise NotStorableError(_c.E_NOT_STORABLE, f"the root key: {values.decoded(reason)}")


def _fault(store: _c.StoreHandle | None, path: bytes, name: bytes | None = None, kind: int = _c.NONE,
           data: bytes = b"") -> bytes:
    return _c.told("vqreg_why_not_storable", store, path, name, kind, data, len(data))
