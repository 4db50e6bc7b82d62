"""What several tests need: other processes, and conditions that are waited for."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys
import threading
import time
import traceback
from collections.abc import Callable, Iterator
from contextlib import contextmanager

import pytest
import vqreg

PATIENCE = 20.0  # seconds that nothing takes, but for a test that fails


def wait_for(condition: Callable[[], object]) -> None:
    """Returns when the condition holds, and fails when it does not come to hold."""
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, "has not come to hold"
        time.sleep(0.002)


def start(program: str, *arguments: str) -> subprocess.Popen[str]:
    """A second process that runs a piece of Python. What it prints can be read from it."""
    return subprocess.Popen([sys.executable, "-c", "import os, sys, vqreg\n" + program, *arguments],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)


def run(program: str, *arguments: str) -> str:
    """What a piece of Python prints in a process of its own, which must end well."""
    child = start(program, *arguments)
    try:
        out, _ = child.communicate(timeout=PATIENCE)
    finally:
        child.kill()
    assert child.returncode == 0
    return out


def is_asleep(thread: threading.Thread) -> bool:
    """Whether a thread waits for something."""
    stat = pathlib.Path(f"/proc/self/task/{thread.native_id}/stat").read_text()
    return stat.rpartition(")")[2].split()[0] == "S"


@contextmanager
def away(path: pathlib.Path) -> Iterator[tuple[vqreg.Watch, Callable[[], object]]]:
    """A watch of a key whose directory is away, and what brings it back, with K "n" changed from 1 to 2."""
    directory, elsewhere = path.parent / "directory", path.parent / "elsewhere"
    directory.mkdir()
    file = directory / "store.cfg"
    with vqreg.Store(file) as store:
        store["K", "n"] = 1
        with store.watch("K", timeout=PATIENCE) as watch:
            directory.rename(elsewhere)
            with pytest.raises(vqreg.StoreError):
                watch.poll()
            changed = (elsewhere / "store.cfg").read_text().replace("00000001", "00000002")
            (elsewhere / "store.cfg").write_text(changed)
            yield watch, lambda: elsewhere.rename(directory)


class Handler:
    """A program in C++ with a change handler for a store. It looks by itself only once a minute.

    A file that is as old in whole seconds as the one it has looked at first is no news, so that one is made
    an old one.
    """

    def __init__(self, path: pathlib.Path) -> None:
        os.utime(path, (1000, 1000))
        self._program = subprocess.Popen([pathlib.Path(os.environ["VQREG_PROGRAMS"]) / "agent"],
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._ask("open", str(path), "-")
        self._ask("watch")
        wait_for(self._watches)
        assert self.calls() == 0

    def __enter__(self) -> Handler:
        return self

    def __exit__(self, *_: object) -> None:
        self._program.communicate(timeout=PATIENCE)

    def _watches(self) -> bool:
        """Whether its thread has looked for the first time, and waits."""
        stats = [stat.read_text() for stat in pathlib.Path(f"/proc/{self._program.pid}/task").glob("*/stat")]
        return any("(FileWatch) S" in stat for stat in stats)

    def _ask(self, *order: str) -> list[str]:
        assert self._program.stdin is not None and self._program.stdout is not None
        self._program.stdin.write("\t".join(order) + "\n")
        self._program.stdin.flush()
        code, *answer = self._program.stdout.readline().rstrip("\n").split("\t")
        assert int(code, 16) == 0, code
        return answer

    def calls(self) -> int:
        """How often it was told."""
        return int(self._ask("changes")[0])

    def value(self, path: str, name: str) -> str:
        """The text that it reads."""
        return bytes.fromhex(self._ask("get", path, name)[1]).rstrip(b"\0").decode()


def in_child(work: Callable[[], object]) -> int:
    """The exit code of a child of fork that does the work: 0, or 1 after an exception."""
    child = os.fork()
    if child == 0:
        code = 1
        try:
            work()
            code = 0
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(code)
    end = time.monotonic() + PATIENCE
    while True:
        done, status = os.waitpid(child, os.WNOHANG)
        if done:
            return os.waitstatus_to_exitcode(status)
        if time.monotonic() > end:
            os.kill(child, 9)
        time.sleep(0.002)


def as_nobody(work: Callable[[], object]) -> int:
    """The same as another user. 77 where a process may not become one."""
    def change_and_work() -> None:
        try:
            os.setgroups([])
            os.setgid(65534)
            os.setuid(65534)
        except (OSError, PermissionError):
            os._exit(77)
        work()

    return in_child(change_and_work)
