"""Stores and keys as mappings."""
import pathlib
from collections.abc import Callable

import pytest
import vqreg


def test_value_that_is_missing_is_a_key_error(store: vqreg.Store) -> None:
    store["Network/Ports", "Http"] = 80
    for path, name in [("Network/Ports", "X"), ("Network", "X"), ("X", "Http"), ("Network", "Ports"),
                       ("Network/Ports/Http", "X")]:
        with pytest.raises(KeyError) as caught:
            store[path, name]
        assert isinstance(caught.value, vqreg.NotFoundError)
        assert str(caught.value).startswith(f'{path} "{name}": ')
        assert store.get(path, name) is None
        assert store.get(path, name, 81) == 81
        assert (path, name) not in store
    assert store.get("Network/Ports", "Http", 81) == 80
    assert ("Network/Ports", "Http") in store


def test_key_where_a_value_is_meant_is_a_kind_error(store: vqreg.Store) -> None:
    store["A/B", "C"] = 1
    changes: list[Callable[[], object]] = [
        lambda: store.__setitem__(("A", "B"), 1), lambda: store.__delitem__(("A", "B")),
        lambda: store.__setitem__(("A/B/C", "D"), 1), lambda: store.create("A/B/C")]
    for change in changes:
        with pytest.raises(vqreg.KindError):
            change()


def test_deleting_what_is_missing_is_a_key_error(store: vqreg.Store) -> None:
    store["K", "n"] = 1
    del store["K", "N"]
    for place in [("K", "n"), ("X", "n")]:
        with pytest.raises(KeyError):
            del store[place]


def test_key_is_a_mapping_of_its_values(store: vqreg.Store) -> None:
    key = store.key("Network/Ports")
    assert not key and not key.exists() and list(key) == [] and list(key.items()) == []
    key["Ssh"] = 22
    key["Http"] = 80
    key["Interface"] = "eth0"
    assert list(key) == ["Http", "Interface", "Ssh"]
    assert len(key) == len(key.items()) == 3
    assert "HTTP" in key and "x" not in key and key.__contains__(1) is False
    assert list(key.keys()) == ["Http", "Interface", "Ssh"]
    assert list(key.values()) == [80, "eth0", 22]
    assert dict(key) == dict(key.items()) == {"Http": 80, "Interface": "eth0", "Ssh": 22}
    assert key.pop("Ssh") == 22 and key.get("Ssh", 23) == 23
    assert key.setdefault("Http", 1) == 80
    with pytest.raises(KeyError):
        key["Ssh"]


def test_key_is_filled_and_emptied_in_one_write(store: vqreg.Store, path: pathlib.Path) -> None:
    key = store.key("K")
    key["x"] = 0
    first = path.stat().st_ino
    key.update({"a": 1, "b": "two"}, c=b"3")
    backup = path.with_name("store.cfg.bak")
    assert backup.read_text() == '[Velquist]\n[Velquist/K]\n"x"=dword:00000000\n'
    assert path.stat().st_ino != first
    assert dict(key) == {"a": 1, "b": "two", "c": b"3", "x": 0}
    key.clear()
    assert dict(key) == {} and key.exists()
    assert backup.read_text().count("\n") == 6


@pytest.mark.parametrize("name", [1, None, b"n", ("n",), [], "a\0", "\ud800"], ids=ascii)
def test_what_is_no_name_is_not_in_it(store: vqreg.Store, name: object) -> None:
    key = store.key("K")
    key["n"] = 1
    assert name not in key and name not in key.keys() and (name, 1) not in key.items()
    assert ("K", name) not in store and (name, "n") not in store and name not in store
    assert ("n", 1) in key.items() and ("N", 1) in key.items() and ("n", 2) not in key.items()
    assert name not in key.items() and 1 in key.values()


def test_key_is_filled_with_what_a_mapping_is_filled_with(store: vqreg.Store) -> None:
    key = store.key("K")
    key.update([("pair", 1)], named=2)
    key.update(self=3, other=4)
    key.update(store.key("K"))
    key.update()
    assert dict(key) == {"pair": 1, "named": 2, "self": 3, "other": 4}
    with pytest.raises(TypeError, match="not iterable"):
        key.update(3)  # type: ignore[call-overload]
    with pytest.raises(TypeError, match="an int, a str or bytes"):
        key.update({"a": None})  # type: ignore[dict-item]
    with pytest.raises(TypeError, match="is a str"):
        key.update({1: 2})  # type: ignore[dict-item]
    assert len(key) == 4


def test_key_has_keys_below_it(store: vqreg.Store) -> None:
    store["A/B/C", "n"] = 1
    key = store.key() / "A" / "B"
    assert key.path == "A/B" and key.subkeys() == ["C"] and dict(key / "C") == {"n": 1}
    assert store.key("Missing").subkeys() == []
    assert "A/B" in store and "A/B/C/n" not in store and "" in store and "/" in store
    assert "A/B/" not in store and "X/Y" not in store


def test_walk_names_each_key_before_those_below_it(store: vqreg.Store) -> None:
    for name in ["A/B/C", "A/D", "E"]:
        store.create(name)
    assert [key.path for key in store.walk()] == ["", "A", "A/B", "A/B/C", "A/D", "E"]
    assert [key.path for key in store.walk("A")] == ["A", "A/B", "A/B/C", "A/D"]
    with pytest.raises(KeyError):
        list(store.walk("X"))


def test_path_may_begin_with_a_slash(store: vqreg.Store) -> None:
    store["A/B", "n"] = 1
    assert [key.path for key in store.walk("/")] == ["", "A", "A/B"]
    assert [key.path for key in store.walk("/A")] == ["A", "A/B"]
    assert store.key("/").path == "" and (store.key("/") / "A").path == "A"
    assert store.create("/C").path == "C"
    assert dict(store.key("/A/B")) == {"n": 1}
    assert "/A/B" in store and "/A\\B" in store and "//A" not in store


@pytest.mark.parametrize("given", ["//", "//A", "///A"])
def test_path_may_not_begin_with_two_slashes(store: vqreg.Store, path: pathlib.Path, given: str) -> None:
    store["", "n"] = 1
    store["A", "n"] = 1
    before = path.read_bytes()
    key = store.key(given)
    assert not key.exists() and dict(key) == {} and key.subkeys() == []
    key.clear()
    with pytest.raises(vqreg.NotFoundError):
        list(store.walk(given))
    for recursive in (False, True):
        with pytest.raises(vqreg.NotFoundError):
            store.delete(given, recursive)
    with pytest.raises(vqreg.NotStorableError, match="must not be empty"):
        key["n"] = 2
    assert path.read_bytes() == before


def test_walk_goes_as_deep_as_a_path_may(store: vqreg.Store) -> None:
    names = ["x"] * 1000
    store.create("/".join(names))
    assert sum(1 for _ in store.walk()) == 1001
    store.delete("x", recursive=True)
    assert store.subkeys() == []


@pytest.mark.parametrize("path_in_file, named", [
    ("/y", "the name of a sub key is empty"), ("A//y", "A: the name of a sub key is empty"),
    ("A/a\\b", "A: the name of a sub key holds a backslash: a\\b")])
def test_sub_key_that_no_path_reaches_is_named(path: pathlib.Path, path_in_file: str, named: str) -> None:
    text = f'[Velquist]\n[Velquist/A]\n"n"=dword:00000001\n[Velquist/{path_in_file}]\n"v"=dword:00000001\n'
    path.write_text(text)
    with vqreg.Store(path) as store:
        with pytest.raises(vqreg.NotStorableError) as caught:
            list(store.walk())
        assert str(caught.value) == named
        if path_in_file.startswith("A"):
            with pytest.raises(vqreg.NotStorableError):
                store.delete("A", recursive=True)
        assert store["A", "n"] == 1
    assert path.read_text() == text


def test_walk_leaves_out_what_is_deleted_meanwhile(store: vqreg.Store) -> None:
    for name in ["A", "B"]:
        store.create(name)
    paths = []
    for key in store.walk():
        paths.append(key.path)
        if key.path == "A":
            store.delete("B")
    assert paths == ["", "A"]


def test_key_is_deleted_when_it_is_empty_or_with_all_of_it(store: vqreg.Store,
                                                           path: pathlib.Path) -> None:
    store["A/B", "n"] = 1
    store["A/C", "m"] = 2
    before = path.read_text()
    for name in ["A", "A/B"]:
        with pytest.raises(vqreg.NotEmptyError):
            store.delete(name)
    assert path.read_text() == before
    store.delete("A", recursive=True)
    assert path.read_text() == "[Velquist]\n"
    assert path.with_name("store.cfg.bak").read_text() == before
    for name in ["A", "A/B"]:
        with pytest.raises(KeyError):
            store.delete(name)
        with pytest.raises(KeyError):
            store.delete(name, recursive=True)
    with pytest.raises(ValueError, match="root key"):
        store.delete("/", recursive=True)


def test_root_key_may_have_another_name(path: pathlib.Path) -> None:
    with vqreg.Store(path, root="Other") as store:
        store["", "n"] = 1
        assert store["/", "n"] == 1
    assert path.read_text() == '[Other]\n"n"=dword:00000001\n'


def test_default_store_is_that_of_the_machine() -> None:
    assert vqreg.which() == "/etc/Velquist.cfg"
    with vqreg.Store() as store:
        assert store.file == "/etc/Velquist.cfg"
        store["K", "n"] = 1
    with vqreg.Store("/etc/Velquist.cfg") as store:
        assert store["K", "n"] == 1
