"""Several changes as one."""
from __future__ import annotations

from types import TracebackType
from typing import TYPE_CHECKING, Optional

from . import _c, values
from ._calls import Calls, lock
from .errors import failure
from .values import Value

if TYPE_CHECKING:
    from .store import Store

_Place = tuple[bytes, bytes]  # a path and a name below it, in small letters
_Change = tuple[str, Optional[str], Optional[Value]]  # without a name: the key is made


class Update:
    """Collects changes, and makes all of them in one write of the file when its block ends.

    Nothing is changed when the block ends in an exception. What the file could not give back is refused
    where it is set, and before the first change all are looked at once more while nobody else can change
    the store: a value that is deleted must be there, and none may be set where a key has that name::

        with store.update() as u:
            u["Network/Ports", "Http"] = 8081
            del u["Old", "X"]

    Reading the store in the block gives what was there before.
    """

    def __init__(self, store: Store) -> None:
        self._store = store
        self._changes: list[_Change] = []
        self._is_unwritten = False  # of what was made before

    def __enter__(self) -> Update:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        if kind is None:
            self.commit()
        else:
            self.discard()

    def __setitem__(self, place: tuple[str, str], value: Value) -> None:
        path, name = values.pair(place)
        values.typed(value)  # None is not one, here
        self._store.check(path, name, value)
        # What is written is what was looked at, whatever becomes of a bytearray.
        kept = bytes(value) if isinstance(value, (bytearray, memoryview)) else value
        self._changes.append((path, name, kept))

    def __delitem__(self, place: tuple[str, str]) -> None:
        path, name = values.pair(place)
        values.named("a path", path)
        values.named("a value name", name)
        self._changes.append((path, name, None))

    def create(self, path: str) -> None:
        """Makes a key, with those above it. One that exists is left as it is."""
        self._store.check(path)
        self._changes.append((path, None, None))

    def __len__(self) -> int:
        return len(self._changes)

    def commit(self) -> None:
        """Makes the changes so far. Those that follow are another update.

        After a failure it can be called again: changes that were not made are kept for that, and what was
        made and could not be written is written then.
        """
        if not self._changes and not self._is_unwritten:
            return
        handle = self._store._open()
        calls = self._calls(handle)
        with lock(handle):
            self._rehearse(self._changes)
            try:
                calls.run()
            finally:
                missing = [-1] * (len(self._changes) - len(calls.results))
                self._changes = [change for change, result in zip(self._changes, calls.results + missing)
                                 if result < 0]
                self._is_unwritten = True
        self._is_unwritten = False

    def _calls(self, handle: _c.StoreHandle) -> Calls:
        calls = Calls(handle)
        for path, name, value in self._changes:
            at = values.named("a path", path)
            if name is None:
                calls.add(path, "vqreg_create_key", at)
                continue
            function, data = ("vqreg_delete_value", ()) if value is None else values.setting(value)
            calls.add(values.shown(path, name), function, at, values.named("a value name", name), *data)
        return calls

    def check(self) -> None:
        """Raises what `commit` would raise for these changes and the store as it is. Changes nothing."""
        with self._store.locked():
            self._rehearse(self._changes)

    def discard(self) -> None:
        """Forgets the changes so far."""
        self._changes = []

    def _rehearse(self, changes: list[_Change]) -> None:
        """Raises for a change that would fail after those before it."""
        will_be: dict[_Place, str | None] = {}

        def kind_of(place: _Place) -> str | None:
            return will_be[place] if place in will_be else self._store._kind(*place)

        def make_keys(path: str, what: str) -> None:
            for place in _keys_to(_folded(path)):
                if kind_of(place) == "value":
                    raise failure(_c.E_NOT_A_KEY, what)
                will_be[place] = "key"

        for path, name, value in changes:
            if name is None:
                make_keys(path, path)
                continue
            what = values.shown(path, name)
            place = _folded(path), values.encoded(name).lower()
            if value is None:
                if kind_of(place) != "value":
                    raise failure(_c.E_NOT_FOUND, what)
                will_be[place] = None
                continue
            make_keys(path, what)
            if kind_of(place) == "key":
                raise failure(_c.E_NOT_A_VALUE, what)
            will_be[place] = "value"


def _folded(path: str) -> bytes:
    """A path as it is compared: the library does not tell "A\\B" from "/a/b"."""
    return values.encoded(path).lower().removeprefix(b"/").replace(b"\\", b"/")


def _keys_to(path: bytes) -> list[_Place]:
    """The keys of a path, each as its own path above and its name."""
    names = path.split(b"/") if path else []
    return [(b"/".join(names[:i]), name) for i, name in enumerate(names)]
