"""Several processes, some of which are killed."""
import os
import pathlib
import pickle
import signal
import threading

import pytest
import vqreg
from support import PATIENCE, in_child, run, start, wait_for


def test_see_each_others_changes_at_once(store: vqreg.Store, path: pathlib.Path) -> None:
    other = start("""
with vqreg.Store(sys.argv[1]) as s:
    for line in sys.stdin:
        s["K", "answer"] = s["K", "question"] + 1
        print("ready", flush=True)
""", str(path))
    assert other.stdin is not None and other.stdout is not None
    for i in range(50):
        store["K", "question"] = i
        other.stdin.write("\n")
        other.stdin.flush()
        assert other.stdout.readline() == "ready\n"
        assert store["K", "answer"] == i + 1
    other.communicate(timeout=PATIENCE)


def test_killed_in_a_lock_leave_nothing_of_it(store: vqreg.Store, path: pathlib.Path) -> None:
    store["K", "n"] = 1
    before = path.read_bytes()
    other = start("""
with vqreg.Store(sys.argv[1]) as s, s.locked():
    s["K", "n"] = 2
    print("locked", flush=True)
    sys.stdin.read()
""", str(path))
    assert other.stdout is not None and other.stdout.readline() == "locked\n"
    assert store["K", "n"] == 1
    other.kill()
    other.wait(PATIENCE)
    assert path.read_bytes() == before
    store["K", "m"] = 3
    assert store.items("K") == [("m", 3), ("n", 1)]


def test_killed_while_they_change_leave_a_whole_file(store: vqreg.Store, path: pathlib.Path) -> None:
    store.key("K").update(a=0, b=0)
    for _ in range(10):
        other = start("""
with vqreg.Store(sys.argv[1]) as s:
    print("open", flush=True)
    while True:
        s.key("K").update(a=(n := s["K", "a"] + 1), b=n)
""", str(path))
        assert other.stdout is not None and other.stdout.readline() == "open\n"
        first = store["K", "a"]
        wait_for(lambda: store["K", "a"] != first)
        other.kill()
        other.communicate(timeout=PATIENCE)
        with vqreg.Store(path) as fresh, fresh.locked():
            assert fresh["K", "a"] == fresh["K", "b"]


INTERRUPTED = """
try:
    with vqreg.Store(sys.argv[1]) as s:
        print("ready", flush=True)
        WORK
except KeyboardInterrupt:
    print("interrupted")
"""


def test_interrupt_ends_the_wait_of_a_watch(path: pathlib.Path) -> None:
    waiting = start(INTERRUPTED.replace("WORK", "list(s.watch('K'))"), str(path))
    assert waiting.stdout is not None and waiting.stdout.readline() == "ready\n"
    waiting.send_signal(signal.SIGINT)
    assert waiting.communicate(timeout=PATIENCE)[0] == "interrupted\n"


def test_interrupt_comes_when_a_change_has_waited(store: vqreg.Store, path: pathlib.Path) -> None:
    with store.locked():
        waiting = start(INTERRUPTED.replace("WORK", "s['K', 'n'] = 1"), str(path))
        assert waiting.stdout is not None and waiting.stdout.readline() == "ready\n"
        wait_for(lambda: pathlib.Path(f"/proc/{waiting.pid}/stat").read_text().split()[2] == "S")
        waiting.send_signal(signal.SIGINT)
        wait_for(lambda: pathlib.Path(f"/proc/{waiting.pid}/stat").read_text().split()[2] == "S")
        assert waiting.poll() is None
    assert waiting.communicate(timeout=PATIENCE)[0] == "interrupted\n"
    assert store["K", "n"] == 1


def test_child_of_fork_goes_on_with_the_store(store: vqreg.Store) -> None:
    store["K", "n"] = 1

    def work() -> None:
        assert store["K", "n"] == 1
        store["K", "child"] = os.getpid()
        with store.update() as u:
            u["K", "n"] = 2
        store.close()

    assert in_child(work) == 0
    assert store["K", "n"] == 2 and ("K", "child") in store
    store["K", "n"] = 3
    assert store["K", "n"] == 3


def test_child_of_fork_has_no_lock_of_its_parents(store: vqreg.Store) -> None:
    with store.locked():
        store["K", "n"] = 1

        def end_it() -> None:
            with pytest.raises(vqreg.VqregError):
                store._do("vqreg_end_update", "")

        assert in_child(end_it) == 0
        store["K", "n"] = 2
    assert store["K", "n"] == 2


def test_child_of_fork_in_a_lock_closes_at_once(store: vqreg.Store) -> None:
    def close_it() -> None:
        before = os.listdir("/proc/self/fd")
        store.watch().close()
        assert os.listdir("/proc/self/fd") == before

    with store.locked():
        assert in_child(close_it) == 0


def test_child_of_fork_opens_a_store_while_threads_use_theirs(store: vqreg.Store,
                                                              path: pathlib.Path) -> None:
    store["K", "n"] = 1
    done = threading.Event()

    def read() -> None:
        while not done.is_set():
            store["K", "n"]

    threads = [threading.Thread(target=read) for _ in range(2)]
    for thread in threads:
        thread.start()
    try:
        run("assert vqreg.Store(sys.argv[1])['K', 'n'] == 1", str(path))
    finally:
        done.set()
        for thread in threads:
            thread.join()


def test_open_stores_and_watches_are_not_copied(path: pathlib.Path) -> None:
    # In a process of its own, which copies of a pointer would end.
    program = """
import copy, multiprocessing, pickle
with vqreg.Store(sys.argv[1]) as s, s.watch("K") as w:
    for each in (s, s.key("K"), s.update(), w):
        for take in (copy.deepcopy, pickle.dumps):
            try:
                take(each)
            except TypeError as error:
                print(error)
    try:
        multiprocessing.get_context("spawn").Process(target=print, args=(s,)).start()
    except TypeError as error:
        print(error)
    s["K", "n"] = 1
    print(next(w).path, s["K", "n"])
"""
    refused = "an open store or watch cannot be copied or pickled\n"
    assert run(program, str(path)) == refused * 9 + "K 1\n"


def test_exceptions_go_from_one_to_another(store: vqreg.Store, path: pathlib.Path) -> None:
    caught: list[vqreg.VqregError] = []
    for place in [("K", "n"), ("a]", "n")]:
        try:
            store[place] = "x\n"
        except vqreg.VqregError as error:
            caught.append(error)
    path.write_text("nonsense\n")
    try:
        vqreg.Store(path)["K", "n"]
    except vqreg.VqregError as error:
        caught.append(error)
    assert len(caught) == 3
    for each in caught:
        copy = pickle.loads(pickle.dumps(each))
        assert type(copy) is type(each) and str(copy) == str(each) and copy.code == each.code
