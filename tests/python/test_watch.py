"""Watches tell what has changed."""
import math
import pathlib
import select
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager

import pytest
import vqreg
from support import PATIENCE, away, in_child, is_asleep, run, start, wait_for

SET = "vqreg.Store(sys.argv[1])['Network/Ports', 'Http'] = int(sys.argv[2])"


@contextmanager
def taken_meanwhile(watch: vqreg.Watch) -> Iterator[list[vqreg.Change]]:
    """What the watch gives to a thread that waits for it when the block begins."""
    changes: list[vqreg.Change] = []
    thread = threading.Thread(target=lambda: changes.append(next(watch)), daemon=True)
    thread.start()
    wait_for(lambda: is_asleep(thread))
    yield changes
    thread.join(PATIENCE / 2)


def test_tells_path_name_before_and_after(store: vqreg.Store, path: pathlib.Path) -> None:
    store["Network/Ports", "Http"] = 80
    with store.watch("Network", timeout=PATIENCE) as watch:
        run(SET, str(path), "8080")
        change = next(watch)
        assert change == ("Network/Ports", "Http", 80, 8080, True)
        assert (change.path, change.name) == ("Network/Ports", "Http")
        assert (change.before, change.after, change.is_present) == (80, 8080, True)
        run("del vqreg.Store(sys.argv[1])['Network/Ports', 'Http']", str(path))
        assert next(watch) == ("Network/Ports", "Http", 8080, None, False)
        assert watch.poll() is None


def test_tells_of_keys_and_of_each_type(store: vqreg.Store) -> None:
    watch = store.watch()
    with store.update() as u:
        u["A", "bytes"] = b"\0\xff"
        u["A", "text"] = "ä\udcff"
        u["A", "empty"] = ""
        u["Other", "n"] = 1
    watch.timeout = 0
    assert sorted(watch, key=lambda change: (change.path, change.name or "")) == [
        ("A", None, None, None, True),
        ("A", "bytes", None, b"\0\xff", True),
        ("A", "empty", None, "", True),
        ("A", "text", None, "ä\udcff", True),
        ("Other", None, None, None, True),
        ("Other", "n", None, 1, True),
    ]


def test_does_not_tell_of_other_keys(store: vqreg.Store) -> None:
    watch = store.watch("Network", timeout=0)
    store["Networks", "n"] = 1
    store["Network", "n"] = 2
    assert [change.path for change in watch] == ["Network", "Network"]


def test_ends_when_nothing_comes_and_goes_on_with_another_loop(store: vqreg.Store) -> None:
    watch = store.watch("K", timeout=0.05)
    store["K", "n"] = 1
    begin = time.monotonic()
    assert [change.name for change in watch] == [None, "n"]
    assert 0.05 <= time.monotonic() - begin < PATIENCE
    store["K", "n"] = 2
    assert [(change.before, change.after) for change in watch] == [(1, 2)]


def test_waits_for_changes_of_another_process(store: vqreg.Store, path: pathlib.Path) -> None:
    setter = start("""
with vqreg.Store(sys.argv[1]) as s:
    for i in range(20):
        sys.stdin.readline()
        s["K", "n"] = i
""", str(path))
    assert setter.stdin is not None
    store.create("K")
    seen = []
    watch = store.watch("K", timeout=PATIENCE)
    for i in range(20):
        setter.stdin.write("go on\n")
        setter.stdin.flush()
        seen.append(next(watch).after)
    assert seen == list(range(20))
    setter.communicate(timeout=PATIENCE)


def test_has_a_descriptor_for_loops(store: vqreg.Store, path: pathlib.Path) -> None:
    with store.watch("Network") as watch:
        poll = select.poll()
        poll.register(watch, select.POLLIN)
        assert watch.poll() is None and poll.poll(0) == []
        run(SET, str(path), "1")
        assert poll.poll(PATIENCE * 1000) == [(watch.fileno(), select.POLLIN)]
        while watch.poll() is not None:
            pass
        assert poll.poll(0) == []


def test_waits_while_the_file_is_malformed(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    watch = store.watch("K", timeout=PATIENCE)
    path.write_text("[Velquist]\nnonsense\n")
    with pytest.raises(vqreg.MalformedError, match=f"{path}:2:1: "):
        watch.poll()
    with taken_meanwhile(watch) as changes:
        path.write_text('[Velquist]\n[Velquist/K]\n"n"=dword:00000002\n')
    assert changes == [("K", "n", 1, 2, True)]


def test_waits_while_the_directory_is_away(path: pathlib.Path) -> None:
    with away(path) as (watch, bring_back):
        with taken_meanwhile(watch) as changes:
            bring_back()
        assert changes == [("K", "n", 1, 2, True)]


@pytest.mark.parametrize("timeout", [math.inf, 1e8, 1e300, None], ids=str)
def test_waits_as_long_as_one_likes(store: vqreg.Store, path: pathlib.Path,
                                    timeout: float | None) -> None:
    watch = store.watch("K", timeout=timeout)
    with taken_meanwhile(watch) as changes:
        store.create("K")
    assert [change.path for change in changes] == ["K"]


def test_cannot_be_used_when_it_is_closed(store: vqreg.Store) -> None:
    watch = store.watch("K")
    watch.close()
    watch.close()
    uses: list[Callable[[], object]] = [watch.poll, watch.fileno, lambda: next(watch)]
    for use in uses:
        with pytest.raises(ValueError, match="the watch is closed"):
            use()


def test_gives_a_change_again_that_was_not_returned(store: vqreg.Store,
                                                    monkeypatch: pytest.MonkeyPatch) -> None:
    watch = store.watch("K")
    store["K", "n"] = 1

    def interrupt(_: object) -> None:
        raise KeyboardInterrupt

    with monkeypatch.context() as patched:
        patched.setattr("vqreg.watch._change", interrupt)
        with pytest.raises(KeyboardInterrupt):
            watch.poll()
    assert [watch.poll(), watch.poll(), watch.poll()] == [
        ("K", None, None, None, True), ("K", "n", None, 1, True), None]


def test_finds_that_a_directory_above_was_replaced(path: pathlib.Path) -> None:
    above, other = path.parent / "above", path.parent / "other"
    for directory, number in (above, 1), (other, 2):
        (directory / "below").mkdir(parents=True)
        with vqreg.Store(directory / "below" / "store.cfg") as store:
            store["K", "n"] = number
    with vqreg.Store(above / "below" / "store.cfg") as store:
        watch = store.watch("K", timeout=PATIENCE)
        with taken_meanwhile(watch) as changes:
            above.rename(path.parent / "old")
            other.rename(above)
        assert changes == [("K", "n", 1, 2, True)]


def test_goes_on_when_its_store_is_closed(path: pathlib.Path) -> None:
    store = vqreg.Store(path)
    watch = store.watch("", timeout=PATIENCE)
    store.close()
    del store
    run(SET, str(path), "1")
    assert next(watch).path == "Network"


def test_belongs_to_its_process(store: vqreg.Store) -> None:
    watch = store.watch("K", timeout=PATIENCE)

    def use_and_close() -> None:
        with pytest.raises(RuntimeError, match="the process that has made it"):
            watch.poll()
        watch.close()
        own = store.watch("K", timeout=PATIENCE)
        store["K", "child"] = 1
        assert next(own).name is None and next(own).name == "child"

    assert in_child(use_and_close) == 0
    assert [next(watch).name, next(watch).name] == [None, "child"]
    store["K", "parent"] = 1
    assert next(watch).name == "parent"


def test_is_asked_by_one_thread_at_a_time(store: vqreg.Store, monkeypatch: pytest.MonkeyPatch) -> None:
    watch = store.watch("K")
    real = vqreg._c.library.vqreg_watch_next
    inside: list[int] = []
    most = 0

    def asked(*arguments: object) -> int:
        nonlocal most
        inside.append(1)
        time.sleep(0.01)  # what others can use to come in, too
        most = max(most, len(inside))
        inside.pop()
        return int(real(*arguments))

    monkeypatch.setattr(vqreg._c.library, "vqreg_watch_next", asked)
    threads = [threading.Thread(target=watch.poll) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert most == 1


def test_gives_each_change_to_one_of_several_threads(store: vqreg.Store) -> None:
    watch = store.watch("K", timeout=0.5)
    seen: list[str | None] = []
    threads = [threading.Thread(target=lambda: seen.extend(change.name for change in watch))
               for _ in range(4)]
    for thread in threads:
        thread.start()
    for i in range(100):
        store["K", f"n{i}"] = i
    for thread in threads:
        thread.join()
    assert sorted(name for name in seen if name) == sorted(f"n{i}" for i in range(100))


def test_lets_no_thread_sleep_while_there_is_a_change(store: vqreg.Store) -> None:
    store.create("K")
    for i in range(40):
        watch = store.watch("K", timeout=PATIENCE)
        names: list[str | None] = []
        threads = [threading.Thread(target=lambda: names.append(next(watch).name), daemon=True)
                   for _ in range(2)]
        for thread in threads:
            thread.start()
        for thread in threads:
            wait_for(lambda: is_asleep(thread))
        store.key("K").update(a=i, b=i)
        for thread in threads:
            thread.join(PATIENCE / 4)
        assert sorted(names, key=str) == ["a", "b"]
