"""Contenders as processes that work when they are told to."""
import os
import pathlib
import shutil
import subprocess
import time


class Contender:
    """A program of bench/ with a store of so many values in a directory."""

    def __init__(self, program, directory, values):
        self.program = str(program)
        self.arguments = [str(directory), str(values)]
        self.processes = []
        os.makedirs(directory, exist_ok=True)
        subprocess.run([self.program, "make", *self.arguments], check=True)

    def process(self, number):
        """The first or the second process that has the store open."""
        while len(self.processes) <= number:
            self.processes.append(subprocess.Popen(
                [self.program, "serve", *self.arguments], text=True,
                stdin=subprocess.PIPE, stdout=subprocess.PIPE))
        return self.processes[number]

    def order(self, line, number=0):
        process = self.process(number)
        process.stdin.write(line + "\n")
        process.stdin.flush()

    def answer(self, number=0):
        reply = self.process(number).stdout.readline()
        if not reply:
            raise RuntimeError(f"{self.program} has ended")
        return float(reply)

    def run(self, workload, count):
        """Nanoseconds for one operation."""
        self.order(f"{workload} {count}")
        return self.answer()

    def rates(self, *workloads, seconds):
        """Operations a second of processes that work at the same time."""
        for number in range(len(workloads)):
            self.process(number)
        start = time.monotonic_ns() + 2_000_000
        for number, workload in enumerate(workloads):
            self.order(f"rate {workload} {start} {int(seconds * 1e9)}", number)
        return [self.answer(number) for number in range(len(workloads))]

    def memory(self):
        """Of a fresh process after its first query: its own and its resident memory."""
        reply = subprocess.run([self.program, "memory", *self.arguments], check=True, text=True,
                               stdout=subprocess.PIPE).stdout.split()
        return [float(word) for word in reply[:2]]

    def close(self):
        for process in self.processes:
            process.stdin.close()
            process.wait()
            process.stdout.close()
        self.processes = []


class Bus:
    """A session bus for the rival that needs one, where there is a daemon."""

    runs = False

    def __init__(self, directory):
        self.directory = directory
        self.daemon = None

    def __enter__(self):
        if not shutil.which("dbus-daemon"):
            return self
        for variable in ("XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"):
            place = self.directory / variable
            place.mkdir(mode=0o700)
            os.environ[variable] = str(place)
        self.daemon = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--print-address"], text=True,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.daemon.stdout.readline().strip()
        Bus.runs = bool(os.environ["DBUS_SESSION_BUS_ADDRESS"])
        return self

    def __exit__(self, *_):
        if self.daemon:
            self.daemon.terminate()
            self.daemon.wait()
            self.daemon.stdout.close()
        Bus.runs = False


class Ground:
    """A directory for stores that leaves nothing behind, named objects included."""

    def __init__(self, parent):
        self.path = pathlib.Path(parent) / f"vqreg-bench-{os.getpid()}"

    def __enter__(self):
        self.path.mkdir()
        return self.path

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)
        for entry in pathlib.Path("/dev/shm").iterdir():
            if self.path.name in entry.name and not entry.is_dir():
                entry.unlink(missing_ok=True)
