"""One store, many threads."""
import pathlib
import threading
from collections.abc import Callable

import pytest
import vqreg
from support import PATIENCE, is_asleep, run, start, wait_for


def together(*work: Callable[[], None]) -> list[BaseException]:
    """Does all of it at the same time, and gives what went wrong."""
    wrong: list[BaseException] = []

    def run(each: Callable[[], None]) -> None:
        try:
            each()
        except BaseException as error:
            wrong.append(error)

    threads = [threading.Thread(target=run, args=(each,)) for each in work]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return wrong


def test_set_and_read_values_of_their_own(store: vqreg.Store) -> None:
    def work(number: int) -> Callable[[], None]:
        def count() -> None:
            for i in range(60):
                store[f"K{number}", "n"] = i
                assert store[f"K{number}", "n"] == i
                assert store.items(f"K{number}") == [("n", i)]
        return count

    assert together(*(work(number) for number in range(6))) == []
    assert store.subkeys() == [f"K{number}" for number in range(6)]


def test_see_all_of_an_update_or_nothing(store: vqreg.Store, path: pathlib.Path) -> None:
    store.key("K").update(a=0, b=0)
    done = threading.Event()

    def change() -> None:
        for i in range(1, 100):
            store.key("K").update(a=i, b=i)
        done.set()

    def look() -> None:
        with vqreg.Store(path) as other:
            while not done.is_set():
                for each in (store, other):
                    with each.locked():
                        assert each["K", "a"] == each["K", "b"]

    assert together(change, look, look) == []


def test_may_close_a_store_while_a_call_of_another_waits(path: pathlib.Path) -> None:
    store = vqreg.Store(path)
    holder = start("""
with vqreg.Store(sys.argv[1]) as s, s.locked():
    print("locked", flush=True)
    sys.stdin.readline()
""", str(path))
    assert holder.stdout is not None and holder.stdout.readline() == "locked\n"
    wrong: list[BaseException] = []
    entered = threading.Event()

    def change() -> None:
        entered.set()
        try:
            store["K", "n"] = 1
        except BaseException as error:
            wrong.append(error)

    setter = threading.Thread(target=change)
    setter.start()
    entered.wait()
    wait_for(lambda: is_asleep(setter))
    store.close()
    assert store.closed
    holder.communicate("go on\n", timeout=PATIENCE)
    setter.join()
    assert wrong == []
    with vqreg.Store(path) as other:
        assert other["K", "n"] == 1


def test_may_close_a_store_that_others_use(path: pathlib.Path) -> None:
    for _ in range(30):
        store = vqreg.Store(path)
        store["K", "n"] = "x" * 500
        begun = threading.Barrier(4)

        def use() -> None:
            begun.wait()
            try:
                while True:
                    assert store["K", "n"] == "x" * 500
            except ValueError as error:
                assert str(error) == "the store is closed"

        def close() -> None:
            begun.wait()
            store.close()

        assert together(use, use, use, close) == []


OPEN_BESIDE = """
import threading, time
sys.path.insert(0, sys.argv[2])
from support import is_asleep, wait_for
path = sys.argv[1]
store, other = vqreg.Store(path), vqreg.Store(path, "Other")
watch = vqreg.Store(path, "Watched").watch()
beside = threading.Thread(target=vqreg.Store, args=(path, "New"))
with store.locked():
    store["K", "n"] = 1
    beside.start()
    # For the end of the block, and not for its turn in Python.
    wait_for(lambda: all(time.sleep(0.002) is None and is_asleep(beside) for _ in range(5)))
    descriptors = len(os.listdir("/proc/self/fd"))
    other.close()
    del other, watch
    {inner}
beside.join()
assert len(os.listdir("/proc/self/fd")) < descriptors
print(store["K", "n"])
"""


@pytest.mark.parametrize("inner", [
    "pass",
    "with store.locked(): pass",
])
def test_may_let_go_of_stores_and_watches_while_they_have_one_locked(path: pathlib.Path,
                                                                    inner: str) -> None:
    here = pathlib.Path(__file__).parent
    assert run(OPEN_BESIDE.format(inner=inner), str(path), str(here)) == "1\n"
