"""Several changes as one: all of them, or none."""
import pathlib
import resource
import threading

import pytest
import vqreg
from support import run, start


def backup(path: pathlib.Path) -> str:
    """The text before the last write."""
    return path.with_name(path.name + ".bak").read_text()


def test_is_one_write(store: vqreg.Store, path: pathlib.Path) -> None:
    store["Old", "X"] = 1
    before = path.read_text()
    with store.update() as u:
        u["Network/Ports", "Http"] = 8081
        u["Network", "Host"] = "web"
        del u["Old", "X"]
        assert len(u) == 3
        assert path.read_text() == before
        assert ("Network", "Host") not in store
    assert backup(path) == before
    assert store["Network/Ports", "Http"] == 8081
    assert ("Old", "X") not in store


def test_changes_nothing_after_an_exception(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    before = path.read_bytes()
    update = store.update()
    with pytest.raises(ZeroDivisionError):
        with update as u:
            u["K", "n"] = 2
            u["Network/Ports", "Http"] = 1 // 0
    update.commit()
    assert path.read_bytes() == before and store["K", "n"] == 1


@pytest.mark.parametrize("value, kind", [("a\n", vqreg.NotStorableError), (-1, OverflowError),
                                         (None, TypeError)], ids=repr)
def test_refuses_what_cannot_be_stored_before_anything(store: vqreg.Store, path: pathlib.Path,
                                                       value: int, kind: type[Exception]) -> None:
    before = path.read_bytes()
    with pytest.raises(kind):
        with store.update() as u:
            u["K", "a"] = 1
            u["K", "b"] = value
    with pytest.raises(vqreg.NotStorableError):
        with store.update() as u:
            u["K", "a"] = 1
            u["K/]", "b"] = 1
    assert path.read_bytes() == before and "K" not in store


def test_makes_keys(store: vqreg.Store, path: pathlib.Path) -> None:
    with store.update() as u:
        u.create("A/B")
        u["C", "n"] = 1
        assert "A" not in store
    assert path.read_text() == ('[Velquist]\n[Velquist/A]\n[Velquist/A/B]\n'
                                '[Velquist/C]\n"n"=dword:00000001\n')
    with pytest.raises(vqreg.KindError):
        with store.update() as u:
            u.create("D")
            u.create("C/n/x")
    assert "D" not in store


def test_can_be_looked_at_before_it_is_made(store: vqreg.Store, path: pathlib.Path) -> None:
    store["A", "v"] = 1
    before = path.read_bytes()
    update = store.update()
    update["A", "w"] = 1
    update.check()
    assert path.read_bytes() == before
    update["A/v", "x"] = 1
    with pytest.raises(vqreg.KindError):
        update.check()
    assert path.read_bytes() == before and len(update) == 2


CONFLICTS = {
    "missing value": ([("A", "x", 5), ("A", "none", None)], vqreg.NotFoundError),
    "missing key": ([("A", "x", 5), ("None", "n", None)], vqreg.NotFoundError),
    "twice deleted": ([("A", "v", None), ("a", "V", None)], vqreg.NotFoundError),
    "key deleted as value": ([("A", "x", 5), ("A", "B", None)], vqreg.NotFoundError),
    "key has the name": ([("A", "x", 5), ("A", "B", 1)], vqreg.KindError),
    "value has the key's name": ([("A", "x", 5), ("A/v", "y", 1)], vqreg.KindError),
    "value further up": ([("A/v/w", "y", 1)], vqreg.KindError),
    "own value above": ([("A", "new", 5), ("A/New/K", "y", 1)], vqreg.KindError),
    "own key in its place": ([("A/new/K", "y", 1), ("a", "NEW", 5)], vqreg.KindError),
}


@pytest.mark.parametrize("changes, kind", CONFLICTS.values(), ids=CONFLICTS.keys())
def test_refuses_what_would_fail_before_anything(store: vqreg.Store, path: pathlib.Path,
                                                 changes: list[tuple[str, str, int | None]],
                                                 kind: type[Exception]) -> None:
    store["A", "v"] = 1
    store.create("A/B")
    before = path.read_bytes()
    with pytest.raises(kind):
        with store.update() as u:
            for key, name, value in changes:
                if value is None:
                    del u[key, name]
                else:
                    u[key, name] = value
    assert path.read_bytes() == before
    assert store.items("A") == [("v", 1)]


def test_may_use_a_name_again(store: vqreg.Store) -> None:
    store["A", "v"] = 1
    with store.update() as u:
        del u["A", "v"]
        u["A/v", "below"] = 2
        u["A", "twice"] = 1
        u["A", "twice"] = 2
        u["B", "made and gone"] = 1
        del u["B", "made and gone"]
    assert store["A/v", "below"] == 2 and store["A", "twice"] == 2
    assert store.names("B") == []


def test_keeps_what_it_was_given(store: vqreg.Store) -> None:
    data = bytearray(b"abc")
    with store.update() as u:
        u["K", "n"] = data
        data[:] = b"x" * 3000
    assert store["K", "n"] == b"abc"


def test_may_be_made_in_parts(store: vqreg.Store) -> None:
    update = store.update()
    update["K", "a"] = 1
    update.commit()
    update["K", "b"] = 2
    update.discard()
    update.commit()
    assert store.items("K") == [("a", 1)]


def test_can_be_made_again_when_nothing_stands_in_its_way_any_more(store: vqreg.Store) -> None:
    update = store.update()
    update["K", "a"] = 1
    update["K/sub", "b"] = 2
    store["K", "sub"] = "in its way"
    with pytest.raises(vqreg.KindError):
        update.commit()
    assert len(update) == 2 and store.names("K") == ["sub"]
    del store["K", "sub"]
    update.commit()
    assert len(update) == 0 and store["K", "a"] == 1 and store["K/sub", "b"] == 2


def test_that_could_not_be_written_is_written_when_it_is_made_again(store: vqreg.Store,
                                                                    path: pathlib.Path) -> None:
    store["K", "old"] = 1
    update = store.update()
    update["K", "new"] = 2
    del update["K", "old"]
    limits = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (0, limits[1]))  # as a full disk
    try:
        for _ in range(2):
            with pytest.raises(vqreg.StoreError):
                update.commit()
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, limits)
    update.commit()
    assert path.read_text() == '[Velquist]\n[Velquist/K]\n"new"=dword:00000002\n'


def test_of_another_root_key_is_refused_in_the_block_of_a_lock(store: vqreg.Store,
                                                               path: pathlib.Path) -> None:
    with vqreg.Store(path, root="Other") as other, vqreg.Store(path) as same:
        with store.locked():
            same["K", "n"] = 1
            for change in (lambda: other.create("K"), other.key("K").clear):
                with pytest.raises(vqreg.VqregError, match="memory is short"):
                    change()
        other["K", "n"] = 2
    assert store["K", "n"] == 1


CLOSED = """
store = vqreg.Store(sys.argv[1])
try:
    with store.locked():
        store["K", "n"] = 1
        store.close()
        store["K", "m"] = 1
except ValueError as error:
    print(error)
with vqreg.Store(sys.argv[1]) as other:
    other["K", "k"] = 2
    print(other.items("K"))
"""


def test_is_written_up_to_where_its_store_is_closed(path: pathlib.Path) -> None:
    assert run(CLOSED, str(path)) == "the store is closed\n[('k', 2), ('n', 1)]\n"


def test_is_made_though_its_store_is_closed_meanwhile(path: pathlib.Path) -> None:
    run("""
store = vqreg.Store(sys.argv[1])
update = store.update()
update["K", "a"] = 1
update["K", "b"] = 2
real = update._rehearse
def rehearse(changes):  # the last moment before the first change
    real(changes)
    store.close()
update._rehearse = rehearse
update.commit()
""", str(path))
    with vqreg.Store(path) as other:
        assert other.items("K") == [("a", 1), ("b", 2)]


def test_counters_lose_nothing_when_the_store_is_locked(store: vqreg.Store, path: pathlib.Path) -> None:
    count = """
with vqreg.Store(sys.argv[1]) as s:
    for _ in range(50):
        with s.locked():
            s["Counters", "n"] = s.get("Counters", "n", 0) + 1
"""
    children = [start(count, str(path)) for _ in range(3)]

    def count_here() -> None:
        for _ in range(50):
            with store.locked(), store.locked():
                number = store.get("Counters", "n", 0)
                assert isinstance(number, int)
                store["Counters", "n"] = number + 1

    threads = [threading.Thread(target=count_here) for _ in range(2)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for child in children:
        child.communicate(timeout=60)
        assert child.returncode == 0
    assert store["Counters", "n"] == 250


def test_lock_ends_with_an_exception(store: vqreg.Store, path: pathlib.Path) -> None:
    with pytest.raises(ZeroDivisionError):
        with store.locked():
            store["K", "n"] = 1
            1 // 0
    assert store["K", "n"] == 1
    run("vqreg.Store(sys.argv[1])['K', 'm'] = 2", str(path))
    assert store["K", "m"] == 2
