"""Interleaved rounds: all contenders of a workload take turns, so that noise hits all alike."""
import pathlib
import statistics
import subprocess
import sys
import time

import serving
from workloads import ALONE, LEVELS, OURS, PROGRAMS, QUERY, RIVALS, WORKLOADS


class Pace:
    """How long a run may take."""

    def __init__(self, rounds, turn, both, most, seconds):
        self.rounds = rounds    # of each workload
        self.turn = turn        # seconds for one contender in one round
        self.both = both        # the same where two processes work at once
        self.most = most        # seconds for one workload at one size and contender
        self.seconds = seconds  # for everything; where they are short, there are fewer rounds


FULL = Pace(rounds=15, turn=0.010, both=0.03, most=1.0, seconds=360)
QUICK = Pace(rounds=3, turn=0.002, both=0.01, most=0.05, seconds=25)


class Arena:
    """All contenders of one size."""

    def __init__(self, programs, memory, disk, values, pace):
        self.programs = programs
        self.memory = memory
        self.disk = disk
        self.values = values
        self.pace = pace
        self.contenders = {}
        self.until = 0.0  # of the workload under way

    def contender(self, name, place="memory"):
        # A program that stands for two floors is one contender.
        key = (PROGRAMS[name], place)
        if key not in self.contenders:
            directory = getattr(self, place) / PROGRAMS[name] / str(self.values)
            program = self.programs / f"bench_{PROGRAMS[name]}"
            self.contenders[key] = serving.Contender(program, directory, self.values)
        return self.contenders[key]

    def close(self):
        for contender in self.contenders.values():
            contender.close()

    def rounds(self, turns):
        """Lets functions take turns; the median of what each returned."""
        seen = {name: [] for name in turns}
        costs = {name: 0.0 for name in turns}
        names = list(turns)
        for number in range(self.pace.rounds):
            if number >= 1 and time.monotonic() > self.until:
                break
            for name in names[number % len(names):] + names[:number % len(names)]:
                if number >= 1 and costs[name] > self.pace.most:
                    continue
                begin = time.monotonic()
                seen[name].append(turns[name]())
                costs[name] += time.monotonic() - begin
        return {name: statistics.median(times) for name, times in seen.items()}

    def batch(self, run):
        """So many operations that one turn takes its time."""
        run(1)  # the process has started and opened its store
        enough = self.pace.turn / 4
        count = 1
        while True:
            seconds = []
            # Once, and twice more where that may have been another process's time.
            while len(seconds) < 3 and min(seconds, default=1) > enough:
                begin = time.monotonic()
                run(count)
                seconds.append(time.monotonic() - begin)
                if seconds[-1] > 10 * self.pace.turn:
                    break
            if min(seconds) > enough:
                return max(1, int(count * self.pace.turn / min(seconds)))
            count *= 2

    def loop(self, workload, names, order=None, place="memory"):
        def turn(name):
            contender = self.contender(name, place)
            def run(count):
                return contender.run(order or workload.name, count)
            count = self.batch(run)
            return lambda: run(count)
        turns = {name: turn(name) for name in names}
        if workload.queries:
            turns[QUERY] = self.queries()
        return self.rounds(turns)

    def queries(self):
        def run(count):
            return self.contender(OURS).run("query", count)
        count = self.batch(run)
        return lambda: run(count)

    def disk_loop(self, workload, names):
        return self.loop(workload, names, "set", "disk")

    def rate(self, name, *orders, parts):
        """A turn of processes that work at once: nanoseconds for one operation of these parts."""
        def run(seconds=self.pace.both):
            rates = self.contender(name).rates(*orders, seconds=seconds)
            return 1e9 / sum(rates[parts])
        run(0.001)  # the processes have started and opened their stores
        return run

    def two(self, _, names):
        turns = {name: self.rate(name, "query", "query", parts=slice(2)) for name in names}
        turns[ALONE] = self.rate(OURS, "query", parts=slice(1))
        return self.rounds(turns)

    def beside(self, _, names):
        return self.rounds({name: self.rate(name, "query", "set", parts=slice(1))
                            for name in names})

    def first(self, workload, names):
        part = 0 if workload.name == "memory" else 1
        return self.rounds({name: lambda name=name: self.contender(name).memory()[part] / self.values
                            for name in names})

    def notify(self, _, names):
        def turn(name):
            program = self.programs / ("bench_notify" if name == OURS else "bench_notify_floor")
            directory = self.memory / program.name
            directory.mkdir(parents=True, exist_ok=True)
            def run():
                count = max(20, int(self.pace.turn * 1e4))
                reply = subprocess.run([program, directory, str(count)], check=True, text=True,
                                       stdout=subprocess.PIPE).stdout
                return float(reply) * 1e3
            return run
        return self.rounds({name: turn(name) for name in names})

    def measure(self, workload, names):
        ways = {"loop": self.loop, "disk": self.disk_loop, "two": self.two,
                "beside": self.beside, "memory": self.first, "notify": self.notify}
        return ways[workload.how](workload, names)


def measure_levels(arena, workload):
    turns = {}
    contender = arena.contender(OURS)
    for level in LEVELS:
        def run(count, level=level):
            return contender.run(f"open{level}", count)
        count = arena.batch(run)
        turns[level] = lambda run=run, count=count: run(count)
    turns[QUERY] = arena.queries()
    return arena.rounds(turns)


def available(programs, name):
    placed = name != "dconf" or serving.Bus.runs
    return placed and (programs / f"bench_{PROGRAMS[name]}").exists()


def measure_all(programs, memory, disk, sizes, pace, workloads=None, floors_only=False):
    """{workload: {contender: {size: figure}}}"""
    programs = pathlib.Path(programs)
    figures = {}
    chosen = [workload for workload in WORKLOADS if workloads is None or workload.name in workloads]
    begin = time.monotonic()
    share = pace.seconds / len(sizes) / len(chosen)
    for turn, values in enumerate(sizes):
        arena = Arena(programs, memory, disk, values, pace)
        try:
            for place, workload in enumerate(chosen):
                arena.until = begin + share * (turn * len(chosen) + place + 1)
                measure_one(arena, workload, values, figures.setdefault(workload.name, {}),
                            floors_only)
        finally:
            arena.close()
    return figures


def measure_one(arena, workload, values, figures, floors_only):
    if workload.how == "levels":
        if values == 1_000:
            seen = measure_levels(arena, workload)
            query = seen.pop(QUERY)
            figures[OURS] = seen
            figures[QUERY] = {level: query for level in seen}
        return
    names = [name for name in workload.contenders if available(arena.programs, name) and not (floors_only and name in RIVALS)]
    if values not in workload.sizes or not names:
        return
    begin = time.monotonic()
    for name, figure in arena.measure(workload, names).items():
        figures.setdefault(name, {})[values] = figure
    print(f"  {values:>7} values, {time.monotonic() - begin:5.1f} s: {workload.title}",
          file=sys.stderr)
