"""Names and paths, also hostile ones."""
import pathlib

import pytest
import vqreg

GOOD = ["ä", "a b", " ", "", "a]b", "a/b", "a\\b", "=", "\t", "\udcfe", "..", "<root>", "%s%n", "A" * 500,
        "🙂", "'; rm", "\x7f\x01"]
BAD = {'a"b': "a value name must not hold a double quote: byte 2", "a:": "a colon: byte 2",
       "\n": "a line feed: byte 1", "ä\r": "a carriage return: byte 3", "x\0y": "NUL: byte 2",
       "x" * 2040: "its line would take"}
BAD_KEYS = {"a]": "a key name must not hold a closing bracket: byte 2", "a//b": "must not be empty",
            "a/": "must not be empty", "\\a": "must not be empty", "x/<root>": "must not be named <root>",
            "a\nb": "a line feed: byte 2", "a\0b": "NUL: byte 2", "x" * 2040: "its line would take"}


@pytest.mark.parametrize("name", GOOD, ids=ascii)
def test_of_values_come_back(store: vqreg.Store, path: pathlib.Path, name: str) -> None:
    store["K", name] = 7
    with vqreg.Store(path) as other:
        assert other.names("K") == [name]
        assert other.items("K") == [(name, 7)]
        del other["K", name]
        assert ("K", name) not in other


@pytest.mark.parametrize("name",
                         [name for name in GOOD if name not in ("", "<root>") and not set(name) & set("]/\\")],
                         ids=ascii)
def test_of_keys_come_back(store: vqreg.Store, path: pathlib.Path, name: str) -> None:
    store[f"{name}/{name}", "v"] = 7
    with vqreg.Store(path) as other:
        assert other.subkeys() == [name]
        assert other.subkeys(name) == [name]
        assert f"{name}/{name}" in other
        other.delete(name, recursive=True)
        assert other.subkeys() == []


@pytest.mark.parametrize("name, reason", BAD.items(), ids=lambda text: ascii(text)[:20])
def test_of_values_that_cannot_be_are_refused(store: vqreg.Store, path: pathlib.Path, name: str,
                                              reason: str) -> None:
    before = path.read_bytes()
    values: list[vqreg.Value] = [1, "x", b"x"]
    for value in values:
        with pytest.raises(ValueError, match=reason):
            store["K", name] = value
    assert path.read_bytes() == before


@pytest.mark.parametrize("name, reason", BAD_KEYS.items(), ids=lambda text: ascii(text)[:20])
def test_of_keys_that_cannot_be_are_refused(store: vqreg.Store, path: pathlib.Path, name: str,
                                            reason: str) -> None:
    before = path.read_bytes()
    with pytest.raises(ValueError, match=reason):
        store.create(name)
    with pytest.raises(ValueError, match=reason):
        store[name, "n"] = 1
    with pytest.raises(ValueError, match=reason):
        store.watch(name)
    assert path.read_bytes() == before


def test_are_found_regardless_of_ascii_case(store: vqreg.Store) -> None:
    store["Network/Ports", "Http"] = 80
    assert store["NETWORK\\ports", "hTTP"] == 80
    assert "/network/PORTS" in store
    store["K", "Ä"] = 1
    assert ("K", "ä") not in store


def test_that_are_no_texts_are_refused(store: vqreg.Store) -> None:
    for place in [(b"K", "n"), ("K", b"n"), (None, "n"), ("K", 1)]:
        with pytest.raises(TypeError, match="is a str, not"):
            store[place]  # type: ignore[index]


@pytest.mark.parametrize("place", ["ab", "K", 0, ("K",), ("K", "n", "x"), None], ids=repr)
def test_of_a_value_are_two(store: vqreg.Store, place: object) -> None:
    with pytest.raises(TypeError, match="named by path and name"):
        store[place]  # type: ignore[index]
    with pytest.raises(TypeError, match="named by path and name"):
        store[place] = 1  # type: ignore[index]
    with pytest.raises(TypeError, match="named by path and name"):
        del store[place]  # type: ignore[arg-type]
    update = store.update()
    with pytest.raises(TypeError, match="named by path and name"):
        update[place] = 1  # type: ignore[index]
    with pytest.raises(TypeError, match="named by path and name"):
        del update[place]  # type: ignore[arg-type]
    assert len(update) == 0


@pytest.mark.parametrize("given", [None, b"K", 1], ids=repr)
def test_of_keys_are_texts(store: vqreg.Store, given: str) -> None:
    for use in (store.key, store.delete, store.walk, store.create, store.subkeys, store.watch):
        with pytest.raises(TypeError, match="a path is a str, not"):
            list(use(given))  # type: ignore[operator]
