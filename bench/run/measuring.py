"""Interleaved rounds: all contenders of a workload take turns, so that noise hits all alike."""
import pathlib
import statistics
import subprocess
import sys

import serving
from workloads import LEVELS, OURS, PROGRAMS, WORKLOADS


class Pace:
    """How long a run may take."""

    def __init__(self, rounds, turn, most):
        self.rounds = rounds  # of each workload
        self.turn = turn      # seconds for one contender in one round
        self.most = most      # seconds for one workload at one size and contender


FULL = Pace(rounds=15, turn=0.010, most=0.9)
QUICK = Pace(rounds=3, turn=0.002, most=0.1)


class Arena:
    """All contenders of one size."""

    def __init__(self, programs, memory, disk, values, pace):
        self.programs = programs
        self.memory = memory
        self.disk = disk
        self.values = values
        self.pace = pace
        self.contenders = {}

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
            for name in names[number % len(names):] + names[:number % len(names)]:
                if number >= 1 and costs[name] > self.pace.most:
                    continue
                begin = serving.time.monotonic()
                seen[name].append(turns[name]())
                costs[name] += serving.time.monotonic() - begin
        return {name: statistics.median(times) for name, times in seen.items()}

    def batch(self, run):
        """So many operations that one turn takes its time."""
        count = 1
        each = run(count)
        while each * count < self.pace.turn * 2.5e8 and count < 1 << 24:
            count *= 2
            each = run(count)
        return max(1, int(self.pace.turn * 1e9 / each))

    def loop(self, workload, names, order=None, place="memory"):
        def turn(name):
            contender = self.contender(name, place)
            def run(count):
                return contender.run(order or workload.name, count)
            count = self.batch(run)
            return lambda: run(count)
        return self.rounds({name: turn(name) for name in names})

    def disk_loop(self, workload, names):
        return self.loop(workload, names, "set", "disk")

    def rate(self, names, seconds, *orders, part=None):
        def turn(name):
            def run():
                rates = self.contender(name).rates(*orders, seconds=seconds)
                return 1e9 / (sum(rates) if part is None else rates[part])
            return run
        return self.rounds({name: turn(name) for name in names})

    def one(self, _, names):
        return self.rate(names, self.pace.turn * 2, "query")

    def two(self, _, names):
        return self.rate(names, self.pace.turn * 2, "query", "query")

    def beside(self, _, names):
        return self.rate(names, self.pace.turn * 4, "query", "set", part=0)

    def first(self, workload, names):
        part = 1 if workload.name == "memory" else 2
        return self.rounds({name: lambda name=name: self.contender(name).first()[part] / self.values
                            for name in names})

    def notify(self, _, names):
        def turn(name):
            program = self.programs / ("bench_notify" if name == OURS else "bench_notify_floor")
            directory = self.memory / program.name
            directory.mkdir(exist_ok=True)
            def run():
                count = max(20, int(self.pace.turn * 1e4))
                reply = subprocess.run([program, directory, str(count)], check=True, text=True,
                                       stdout=subprocess.PIPE).stdout
                return float(reply) * 1e3
            return run
        return self.rounds({name: turn(name) for name in names})

    def measure(self, workload, names):
        ways = {"loop": self.loop, "disk": self.disk_loop, "one": self.one, "two": self.two,
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
    return arena.rounds(turns)


def available(programs, name):
    return (programs / f"bench_{PROGRAMS[name]}").exists()


def measure_all(programs, memory, disk, sizes, pace, workloads=None):
    """{workload: {contender: {size: figure}}}"""
    programs = pathlib.Path(programs)
    figures = {}
    for values in sizes:
        arena = Arena(programs, memory, disk, values, pace)
        try:
            for workload in WORKLOADS:
                if workloads is not None and workload.name not in workloads:
                    continue
                measure_one(arena, workload, values, figures.setdefault(workload.name, {}))
        finally:
            arena.close()
    return figures


def measure_one(arena, workload, values, figures):
    if workload.how == "levels":
        if values == 1_000:
            figures.setdefault(OURS, {}).update(measure_levels(arena, workload))
        return
    names = [name for name in workload.contenders if available(arena.programs, name)]
    if values not in workload.sizes or not names:
        return
    print(f"  {values:>7} values: {workload.title}", file=sys.stderr)
    for name, figure in arena.measure(workload, names).items():
        figures.setdefault(name, {})[values] = figure
