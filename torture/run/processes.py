"""A piece of a check as a process that leaves no process behind, whatever it does."""
import ctypes
import dataclasses
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

PR_SET_CHILD_SUBREAPER = 36
CANNOT_RUN = 77
# Below the temporary directory that private_root makes, which is in memory and goes with the process.
IN_MEMORY = "/tmp/torture"


@dataclasses.dataclass
class Outcome:
    """What became of a piece. `reason` is empty when all held."""
    figures: dict
    seconds: float
    reason: str = ""
    cannot: str = ""


def adopt_orphans():
    """From now on what the pieces leave behind are children of this process."""
    if ctypes.CDLL(None, use_errno=True).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "prctl")


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


def end_all():
    """Kills what is left and waits for it. How many were alive."""
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


def run_piece(command, check, seed, count, places):
    """Runs a piece with a directory of its own, which is removed afterwards."""
    directory = IN_MEMORY
    if check.on_disk:
        places.mkdir(parents=True, exist_ok=True)
        directory = tempfile.mkdtemp(dir=places)
    start = time.monotonic()
    try:
        with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as err:
            process = subprocess.Popen(
                [*command, check.check, "--seed", str(seed), "--count", str(count),
                 "--directory", directory], stdin=subprocess.DEVNULL, stdout=out, stderr=err)
            try:
                status = process.wait(check.limit)
            except subprocess.TimeoutExpired:
                status = None
                process.kill()
                process.wait()
            left = end_all()
            out.seek(0)
            err.seek(0)
            return judge(check, status, left, out.read(), err.read(), time.monotonic() - start)
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
