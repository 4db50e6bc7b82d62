"""What several tests need: other processes, and conditions that are waited for."""
from __future__ import annotations

import os
import pathlib
import select
import subprocess
import sys
import time
import traceback
from collections.abc import Callable

import pytest

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
    out, _ = child.communicate(timeout=PATIENCE)
    assert child.returncode == 0
    return out


def follow(path: pathlib.Path, key: str) -> subprocess.Popen[str]:
    """A program in C++ with a change handler, which prints its settings whenever they have changed.

    It looks by itself only once a minute.
    """
    program = pathlib.Path(os.environ["VQREG_PROGRAMS"]) / "follow"
    if not program.exists():
        pytest.skip("the examples are not built")
    return subprocess.Popen([program, path, key], stdout=subprocess.PIPE, text=True)


def wait_until_heard(daemon: subprocess.Popen[str], change: Callable[[int], object]) -> None:
    """Changes something and tells it until the program prints that it has heard.

    A file that is as old in whole seconds as the one that the library looked at first is no news, so once is
    not always enough.
    """
    assert daemon.stdout is not None
    end = time.monotonic() + PATIENCE
    times = 0
    while not select.select([daemon.stdout], [], [], 0.2)[0]:
        assert time.monotonic() < end, "it has heard nothing"
        change(times)
        times += 1


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
