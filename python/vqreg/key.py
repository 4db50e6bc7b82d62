"""Keys as mappings of their values."""
from __future__ import annotations

from collections.abc import ItemsView, Iterator, MutableMapping, ValuesView
from typing import TYPE_CHECKING

from . import values
from .errors import NotFoundError
from .values import Value

if TYPE_CHECKING:
    from .store import Store


class Key(MutableMapping[str, Value]):
    """A key as a mapping of names to values; `path` is where it is, below the root key.

    Names are found regardless of ASCII case. A key that does not exist is an empty mapping. `update` and
    `clear` are one write of the file.
    """

    def __init__(self, store: Store, path: str) -> None:
        self._store = store
        values.checked("a path", path)
        # The library takes one away, too: of two the second one would be lost, and another key be meant.
        self.path = path if path.startswith("//") else path.removeprefix("/")

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

    def __contains__(self, name: object) -> bool:
        return (self.path, name) in self._store

    def __truediv__(self, path: str) -> Key:
        """The key of that path below this one."""
        return Key(self._store, f"{self.path}/{path}" if self.path else path)

    def __repr__(self) -> str:
        return f"Key({self.path!r})"

    def items(self) -> ItemsView[str, Value]:
        """Names and values; one that is deleted meanwhile is left out."""
        return _Items(self)

    def values(self) -> ValuesView[Value]:
        """Values, in the order of their names."""
        return _Values(self)

    if not TYPE_CHECKING:  # checkers take it from MutableMapping, whose types are what it takes

        def update(self, other=(), /, **more):
            """Sets all values of a mapping, or of pairs, in one write."""
            with self._store.update() as changes:
                for name, value in dict(other, **more).items():
                    changes[self.path, name] = value

    def clear(self) -> None:
        """Deletes all values in one write. The sub keys stay."""
        self._store._clear(self.path)

    def exists(self) -> bool:
        """Whether there is such a key."""
        return self.path in self._store

    def subkeys(self) -> list[str]:
        """The names of its sub keys; `key / name` is one of them."""
        try:
            return self._store.subkeys(self.path)
        except NotFoundError:
            return []


class _Items(ItemsView[str, Value]):
    """Pairs as one look at the store gives them."""

    _mapping: Key

    def __contains__(self, item: object) -> bool:
        return (isinstance(item, tuple) and len(item) == 2 and item[0] in self._mapping
                and super().__contains__(item))

    def __iter__(self) -> Iterator[tuple[str, Value]]:
        try:
            return iter(self._mapping._store.items(self._mapping.path))
        except NotFoundError:
            return iter(())


class _Values(ValuesView[Value]):
    """The second halves of these pairs."""

    _mapping: Key

    def __iter__(self) -> Iterator[Value]:
        return (value for _, value in self._mapping.items())
