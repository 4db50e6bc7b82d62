"""The checks: what each starts, how much of it each form does, and where."""
import dataclasses


@dataclasses.dataclass(frozen=True)
class Check:
    """One check of one program. `count` is what the program is to do so many times."""
    name: str               # "program.check" or "program.check.place"
    title: str
    quick: int              # count of the quick form; 0 leaves the check out of it
    long: int
    piece: int              # count of one process; the long form can be resumed between two
    on_disk: bool = False   # the store is on the disk of the build, not in memory
    limit: int = 120        # seconds that a piece may take
    privileged: bool = False  # it mounts or changes users: root only
    sanitizers: tuple = ()  # which of "address" and "thread" it makes sense with, besides none

    @property
    def program(self):
        return "torture_" + self.name.split(".")[0]

    @property
    def check(self):
        return self.name.split(".")[1]


CHECKS = [
    Check("kill.random", "killed at random, in memory", quick=180, long=5000, piece=500,
          limit=300),
    Check("kill.random.disk", "killed at random, on the disk", quick=90, long=5000, piece=500,
          on_disk=True, limit=300),
    Check("kill.calls", "killed at every system call", quick=150, long=5000, piece=1000,
          limit=300),
    Check("kill.again", "killed again in the start that follows", quick=100, long=20000, piece=1000),
    Check("kill.stop", "stopped at every system call", quick=80, long=3000, piece=150,
          limit=300),
    Check("ends.handlers", "handlers removed while they run", quick=3000, long=100_000, piece=5000,
          sanitizers=("address", "thread")),
    Check("ends.cancel", "threads cancelled at every system call", quick=150, long=5000, piece=500),
    Check("ends.unwinding", "operations of destructors", quick=500, long=20_000, piece=2000,
          sanitizers=("address", "thread")),
    Check("ends.fork", "forked beside busy threads", quick=150, long=2000, piece=200,
          sanitizers=("address", "thread")),
    Check("ends.exec", "programs begun beside busy threads", quick=60, long=1000, piece=200,
          sanitizers=("address", "thread")),
    Check("ends.exit", "ended with threads at work", quick=50, long=1000, piece=50,
          sanitizers=("address", "thread")),
    Check("ends.unload", "modules unloaded", quick=10, long=1000, piece=50,
          sanitizers=("address", "thread")),
    Check("model.alone", "random sequences beside a model, one process",
          quick=1800, long=90000, piece=1800, limit=600, sanitizers=("address",)),
    Check("model.together", "random sequences beside a model, three processes",
          quick=200, long=10000, piece=1000, limit=600, sanitizers=("address",)),
]

# What the test of the driver looks at.
OWN = [
    Check("self.holds", "ends well", quick=10, long=50, piece=20),
    Check("self.fails", "finds something", quick=10, long=20, piece=10),
    Check("self.cannot", "is not allowed", quick=1, long=1, piece=1),
    Check("self.hangs", "does not end", quick=1, long=1, piece=1, limit=1),
    Check("self.leaves", "leaves a process behind", quick=1, long=1, piece=1),
]
