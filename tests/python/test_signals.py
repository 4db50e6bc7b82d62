"""Exceptions of signal handlers, which come at any moment, leave nothing half done."""
import pathlib
import signal
import time
from collections.abc import Callable, Iterator

import pytest
import vqreg
from support import PATIENCE, run, start, wait_for

COUNT = 300
ROUNDS = 60


class Alarm(Exception):
    """What the handler raises."""


@pytest.fixture
def alarm() -> Iterator[Callable[[float], None]]:
    """Has Alarm raised after some seconds, in whatever happens then."""
    def ring(*_: object) -> None:
        raise Alarm

    before = signal.signal(signal.SIGALRM, ring)
    yield lambda seconds: signal.setitimer(signal.ITIMER_REAL, seconds) and None
    signal.signal(signal.SIGALRM, before)


def change(store: vqreg.Store) -> Callable[[], None]:
    update = store.update()
    for i in range(COUNT):
        update["K", f"n{i}"] = 2
    return update.commit


def clear(store: vqreg.Store) -> Callable[[], None]:
    return store.key("K").clear


def delete(store: vqreg.Store) -> Callable[[], None]:
    return lambda: store.delete("K", recursive=True)


@pytest.mark.parametrize("prepare", [change, clear, delete])
def test_of_an_alarm_leave_all_of_a_change_or_nothing(
        store: vqreg.Store, path: pathlib.Path, alarm: Callable[[float], None],
        prepare: Callable[[vqreg.Store], Callable[[], None]]) -> None:
    took = 0.0
    seen = set()
    for i in range(ROUNDS):
        store.key("K").update({f"n{i}": 1 for i in range(COUNT)})
        work = prepare(store)
        begun = time.monotonic()
        try:
            alarm(took * (i - 1) / ROUNDS + 0.000001 if took else PATIENCE)
            work()
            took = took or time.monotonic() - begun
            alarm(0.000001)
            wait_for(lambda: False)
        except Alarm:
            pass
        left = tuple(store.key("K").values())
        assert left in ((), (1,) * COUNT, (2,) * COUNT)
        seen.add(left)
    assert len(seen) == 2
    run("vqreg.Store(sys.argv[1])['K', 'n'] = 1", str(path))


WAITING = """
s = vqreg.Store(sys.argv[1])
print("ready", flush=True)
try:
    with s.locked():
        pass
except KeyboardInterrupt:
    print("interrupted", flush=True)
    sys.stdin.read()
"""


def test_that_come_while_a_lock_is_waited_for_leave_it_to_others(store: vqreg.Store,
                                                                 path: pathlib.Path) -> None:
    with store.locked():
        waiting = start(WAITING, str(path))
        assert waiting.stdout is not None and waiting.stdout.readline() == "ready\n"
        wait_for(lambda: pathlib.Path(f"/proc/{waiting.pid}/stat").read_text().split()[2] == "S")
        waiting.send_signal(signal.SIGINT)
    assert waiting.stdout.readline() == "interrupted\n"
    try:
        run("vqreg.Store(sys.argv[1])['K', 'n'] = 1", str(path))
    finally:
        waiting.communicate(timeout=PATIENCE)
