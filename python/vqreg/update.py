"""Several changes as one."""
from __future__ import annotations

from types import TracebackType
from typing import TYPE_CHECKING

from .values import Value

if TYPE_CHECKING:
    from .store import Store


class Update:
    """Collects changes, and makes them all in one write of the file when its block ends.

    Nothing happens when the block ends in an exception. A value that the file could not give back is refused
    where it is set, and one that is deleted must be there when the block ends, or nothing is changed::

        with store.update() as u:
            u["Network/Ports", "Http"] = 8081
            del u["Old", "X"]
    """

    def __init__(self, store: Store) -> None:
        self._store = store
        self._changes: list[tuple[str, str, Value | None]] = []

    def __enter__(self) -> Update:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        if kind is None:
            self.commit()

    def __setitem__(self, place: tuple[str, str], value: Value) -> None:
        path, name = place
        self._store.checked(path, name, value)
        self._changes.append((path, name, value))

    def __delitem__(self, place: tuple[str, str]) -> None:
        path, name = place
        self._changes.append((path, name, None))

    def __len__(self) -> int:
        return len(self._changes)

    def commit(self) -> None:
        """Makes the changes so far; the next ones are another update."""
        changes, self._changes = self._changes, []
        if not changes:
            return
        self._store.begin()
        try:
            self._look_for_deleted(changes)
            for path, name, value in changes:
                if value is None:
                    del self._store[path, name]
                else:
                    self._store[path, name] = value
        finally:
            self._store.end()

    def _look_for_deleted(self, changes: list[tuple[str, str, Value | None]]) -> None:
        """Raises for a value that is to be deleted and will not be there then."""
        there: dict[tuple[str, str], bool] = {}
        for path, name, value in changes:
            place = (path.lower(), name.lower())
            if value is None and not there.get(place, False):
                if place in there:
                    raise KeyError(f"{path}: {name}: deleted twice")
                self._store[path, name]  # raises when there is none
            there[place] = value is not None
