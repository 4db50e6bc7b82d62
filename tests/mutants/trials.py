"""Runs the tests that can see a change, those of its own room first, until one of them fails.

Short tests that can do with one process do; the others have one each, as with ctest. Which is which, and
how long each takes, is found out once on the unchanged copy. What takes much longer than there is taken
for hanging, which is a failure too; whatever it has started ends with it.
"""
import concurrent.futures
import contextlib
import json
import os
import re
import resource
import signal
import subprocess
import tempfile
import threading
import time

MARK = "VQREG_MUTANT"
LONGEST_TOGETHER = 30
LONG_IN_COMPANY = 0.3  # has a process of its own, beside those of the others
LONG_FOR_OTHERS = 5
LONG_FOR_UNITS = 1
TOO_LONG = 12  # for a test of one change: its time limit would be minutes
OF_ONE_PROCESS = {"base", "text", "trace", "tree", "store"}
OF_THE_LIBRARY = ("c", "store", "process", "tools")  # programs that meet it as others do
ENDLESS_FILE = 1 << 30
SKIPPED = 77
TIME = re.compile(r"^\[       OK \] (\S+) \((\d+) ms\)", re.MULTILINE)
LEFT_OUT = re.compile(r"^(documents|examples|unit_support|fuzz_.*)$")


def room_of(file):
    """portable/X.cpp: portable. RegLib/tree/X.cpp: tree."""
    return file.split("/")[-2]


def limit():
    os.setsid()
    signal.signal(signal.SIGHUP, signal.SIG_DFL)  # nohup leaves it ignored, which tests of signals notice
    os.nice(5)
    resource.setrlimit(resource.RLIMIT_FSIZE, (ENDLESS_FILE, ENDLESS_FILE))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def end_marked(mark):
    """What tests have started and left, by the mark in its environment."""
    wanted = f"{MARK}={mark}".encode()
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{name}/environ", "rb") as file:
                if wanted in file.read().split(b"\0"):
                    os.kill(int(name), signal.SIGKILL)
        except (OSError, ProcessLookupError):
            pass


class Trials:
    def __init__(self, workshop, jobs, patience, units_only):
        self.workshop, self.jobs, self.patience, self.units_only = workshop, jobs, patience, units_only
        self.bin = workshop.build / "bin"
        self.plan_file = workshop.place / "times.json"
        self.plan = {}
        self.mark = f"{os.getpid()}"
        self.stopped = threading.Event()

    def command(self, program, tests, goes_on):
        return [str(self.bin / "private_root"), str(self.bin / program), f"--gtest_filter={':'.join(tests)}",
                *([] if goes_on else ["--gtest_fail_fast", "--gtest_brief=1"])]

    def run(self, program, tests, seconds, times=None):
        """None when all is well, otherwise which test failed. Asked to stop, it says that all is well. With
        `times` it goes on after a failure, and puts there how long each test has taken that holds."""
        which = f"{program}.{tests[0] if len(tests) == 1 else '*'}"
        with tempfile.TemporaryFile("w+", errors="replace") as output:
            process = subprocess.Popen(
                self.command(program, tests, times is not None), stdout=output, stderr=output,
                stdin=subprocess.DEVNULL, preexec_fn=limit, cwd=self.workshop.build / "tests",
                env={**os.environ, MARK: self.mark})
            try:
                ended = self.ends(process, time.monotonic() + seconds)
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                process.wait()
            output.seek(0)
            said = output.read()
            if times is not None:
                times.update((test, int(number) / 1000) for test, number in TIME.findall(said))
            if not ended:
                return None if self.stopped.is_set() else f"{which} (hangs)"
            if process.returncode in (0, SKIPPED):
                return None
            failed = re.search(r"^\[  FAILED  \] ([^ ,\n]+)", said, re.MULTILINE)
            return f"{program}.{failed.group(1)}" if failed else which

    def ends(self, process, latest):
        while time.monotonic() < latest and not self.stopped.is_set():
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(0.25)
                return True
        return False

    # -- What the unchanged copy does.

    def programs(self):
        found = sorted(path.name for path in self.bin.iterdir() if path.name.startswith("unit_"))
        found += [name for name in OF_THE_LIBRARY if (self.bin / name).exists()]
        return [name for name in found if not LEFT_OUT.match(name)]

    def tests_of(self, program):
        text = subprocess.run([str(self.bin / "private_root"), str(self.bin / program), "--gtest_list_tests"],
                              cwd=self.workshop.build / "tests", check=True, stdout=subprocess.PIPE, text=True).stdout
        suite, tests = "", []
        for line in text.splitlines():
            if line.startswith("  "):
                tests.append(suite + line.split("#")[0].strip())
            elif line.strip():
                suite = line.split("#")[0].strip()
        return [test for test in tests if "DISABLED_" not in test]

    def prepare(self):
        if self.plan_file.exists():
            self.plan = json.loads(self.plan_file.read_text())
        self.plan = {name: self.planned(name) for name in self.programs()}
        self.plan_file.write_text(json.dumps(self.plan, indent=1))

    def planned(self, program):
        tests = self.tests_of(program)
        known = self.plan.get(program, {})
        if set().union(*known.values()) == set(tests):
            company = known["company"]
        else:
            company = self.company(program, tests) if program not in ("process", "tools") else {}
        # Of those that failed the last time there is none: they have another chance each time.
        seconds = {test: known.get("alone", {}).get(test) for test in tests if test not in company}

        def measure(test):
            if seconds[test] is None:
                start = time.monotonic()
                failed = self.run(program, [test], 300)
                seconds[test] = None if failed else time.monotonic() - start

        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(measure, seconds))
        failing = [test for test in seconds if seconds[test] is None]
        if failing:
            print(f"Left out, since they fail on the unchanged copy: {program}: {', '.join(failing)}", flush=True)
        alone = {test: seconds[test] for test in seconds if test not in failing}
        return {"company": company, "alone": alone, "failing": failing}

    def company(self, program, tests):
        """The tests that hold in one process, with their seconds."""
        times = {}
        self.run(program, tests, LONGEST_TOGETHER, times)
        held = [test for test in tests if test in times]
        return times if held and self.run(program, held, LONGEST_TOGETHER) is None else {}

    # -- What the tests say to a change.

    def pieces(self, program):
        """What of a program is run at once: the program, its tests, and how long that takes."""
        plan = self.plan[program]
        long = {test: seconds for test, seconds in plan["company"].items() if seconds >= LONG_IN_COMPANY}
        short = {test: seconds for test, seconds in plan["company"].items() if test not in long}
        pieces = [(program, [test], seconds) for test, seconds in {**plan["alone"], **long}.items()
                  if seconds < (LONG_FOR_UNITS if self.units_only else TOO_LONG)]
        return pieces + ([(program, list(short), sum(short.values()))] if short else [])

    def groups(self, file, objects):
        """The tests of the file's own room, then all others; in each the short ones first. Units of other
        rooms that take long are left to their rooms."""
        own = [name for name in self.plan if self.is_of_room(name, room_of(file))]
        others = [name for name in self.plan if name not in own and self.can_see(name, file, objects)]
        for programs in own, others:
            pieces = [piece for name in programs for piece in self.pieces(name)
                      if name in own or not name.startswith("unit_") or piece[2] < LONG_FOR_OTHERS]
            yield programs, sorted(pieces, key=lambda piece: piece[2])

    @staticmethod
    def is_of_room(program, room):
        """RegLib/c has no units: whoever calls it has it from the shared library."""
        return program == room if room == "c" else re.match(rf"unit_{room}(_|$)", program) is not None

    def can_see(self, program, file, objects):
        """Tests with several processes, and those of VQRegStore.h, look at what processes have in common,
        those of the command at what the command contains; of the rest they see no more than others do. What
        a text can hold is told by vqreg.h alone."""
        room = room_of(file)
        if program.startswith("unit_") or self.units_only:
            return program.startswith("unit_")
        if program == "tools":
            return bool(set(objects) & set(self.workshop.links.get("bin/vqreg", [])))
        if program == "process" and room == "c":
            return False
        return room not in OF_ONE_PROCESS or (program == "c" and room == "text")

    def verdict(self, file, objects):
        """The test that fails, or None."""
        for programs, pieces in self.groups(file, objects):
            if not all(name.startswith("unit_") for name in programs):
                self.workshop.link_libraries(objects)
            for name in programs:
                self.workshop.link(f"bin/{name}", objects)
            if failed := self.first_failure(pieces):
                return failed
        return None

    def confirmed(self, program, tests, seconds):
        """A test that fails once, or takes long, may have been disturbed by others."""
        latest = seconds * 8 + self.patience
        failed = self.run(program, tests, latest)
        if failed and not self.stopped.is_set():
            failed = self.run(program, tests, latest) and failed
        return failed

    def first_failure(self, pieces):
        failures = []

        def attempt(piece):
            if not self.stopped.is_set():
                failed = self.confirmed(*piece)
                if failed and not self.stopped.is_set():
                    failures.append(failed)
                    self.stopped.set()

        self.stopped.clear()
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(attempt, pieces))
        self.stopped.clear()
        end_marked(self.mark)
        return failures[0] if failures else None
