"""A piece of a check as a process that leaves no process behind, whatever it does."""
import ctypes
import dataclasses
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
CANNOT_RUN = 77
# Below the temporary directory that private_root makes, which is in memory and goes with the process.
IN_MEMORY = "/tmp/torture"
# For those who put back what a program has changed on the machine, and begin when it has ended.
SECONDS_TO_END = 2


@dataclasses.dataclass
class Outcome:
    """What became of a piece. `reason` is empty when all held."""
    figures: dict
    seconds: float
    reason: str = ""
    cannot: str = ""


def adopt_orphans():
    """From now on what the pieces leave behind are children of this process."""
    if LIBC.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


def end_in_order():
    """A signal that ends this process ends what it has started first; a second one cannot hinder that."""
    numbers = [number for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)
               if signal.getsignal(number) != signal.SIG_IGN]

    def end(number, _):
        for each in numbers:
            signal.signal(each, signal.SIG_IGN)
        sys.exit(128 + number)

    for number in numbers:
        signal.signal(number, end)


def end_with(driver):
    """In a program that begins: it ends with the driver, also when nobody is left to end it."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
    if os.getppid() != driver:
        os._exit(1)


def children():
    found = set()
    for task in pathlib.Path("/proc/self/task").iterdir():
        found.update(int(pid) for pid in (task / "children").read_text().split())
    return found


def is_alive(pid):
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except OSError:
        return False
    return state not in "ZX"


def await_end_of_all():
    """Waits, not for long, until what is left has ended by itself."""
    end = time.monotonic() + SECONDS_TO_END
    while time.monotonic() < end:
        try:
            pid, _ = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return
        if pid == 0:
            time.sleep(0.01)


def end_all(process):
    """Ends the program, and kills what does not end after it. How many of these were alive."""
    if process is not None and process.poll() is None:
        process.kill()
        process.wait()
    await_end_of_all()
    alive = 0
    while True:
        left = children()
        if not left:
            return alive
        for pid in left:
            alive += is_alive(pid)
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        for pid in left:
            try:
                os.waitpid(pid, 0)
            except ChildProcessError:
                pass


def read_figures(text):
    """Lines "figure sum|max NAME NUMBER"; everything else the program says is for people."""
    figures = {}
    for line in text.splitlines():
        words = line.split()
        if len(words) == 4 and words[0] == "figure":
            figures[words[2]] = (words[1], float(words[3]))
    return figures


def run_program(arguments, limit):
    """Its status, or None after so many seconds; how many processes it left; what it and they said."""
    driver = os.getpid()
    process = None
    with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as err:
        try:
            process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                       preexec_fn=lambda: end_with(driver))
            status = process.wait(limit)
        except subprocess.TimeoutExpired:
            status = None
        finally:
            left = end_all(process)
        out.seek(0)
        err.seek(0)
        return status, left, out.read(), err.read()


def run_piece(command, check, seed, count, places):
    """Runs a piece with a directory of its own, which is removed afterwards."""
    directory = IN_MEMORY
    if check.on_disk:
        places.mkdir(parents=True, exist_ok=True)
        directory = tempfile.mkdtemp(dir=places)
    start = time.monotonic()
    try:
        result = run_program([*command, check.check, "--seed", str(seed), "--count", str(count),
                              "--directory", directory], check.limit)
        return judge(check, *result, time.monotonic() - start)
    finally:
        if directory != IN_MEMORY:
            shutil.rmtree(directory, ignore_errors=True)


def judge(check, status, left, out, err, seconds):
    outcome = Outcome(read_figures(out), seconds)
    if status is None:
        outcome.reason = f"not done after {check.limit} s\n{err[-4000:]}"
    elif status == CANNOT_RUN:
        outcome.cannot = (out + err).strip().removeprefix("cannot run: ").splitlines()[0]
    elif status != 0:
        outcome.reason = f"ended with {status}\n{err[-4000:]}"
    elif left:
        outcome.reason = f"left {left} process(es) behind"
    return outcome
