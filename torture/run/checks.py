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
    # Calls and memory that fail. A round has every place once, each with the next way to fail.
    Check("fault.files", "every file operation fails, once and for good", quick=1, long=14, piece=1),
    Check("fault.pairs", "two file operations fail", quick=300, long=100_000, piece=2_000),
    Check("fault.sequences", "file operations fail at random", quick=100, long=20_000, piece=1_000,
          sanitizers=("address",)),
    Check("fault.deaths", "the end of the process at every file operation", quick=1, long=4, piece=1),
    Check("fault.calls", "every system call fails, once and for good", quick=2, long=112, piece=1),
    Check("fault.calls.disk", "the same with the store on the disk", quick=0, long=14, piece=1,
          on_disk=True),
    Check("memory.operations", "no memory in every operation", quick=1, long=8, piece=1,
          sanitizers=("address",)),
    Check("memory.first", "no memory for what a process does first", quick=1, long=8, piece=1,
          sanitizers=("address",)),
    Check("memory.threads", "no memory for registration, notification and their threads", quick=1,
          long=64, piece=1, sanitizers=("address",)),
    Check("memory.sequences", "no memory at random", quick=100, long=20_000, piece=500,
          sanitizers=("address",)),
]

# What the test of the driver looks at.
OWN = [
    Check("self.holds", "ends well", quick=10, long=50, piece=20),
    Check("self.fails", "finds something", quick=10, long=20, piece=10),
    Check("self.cannot", "is not allowed", quick=1, long=1, piece=1),
    Check("self.hangs", "does not end", quick=1, long=1, piece=1, limit=1),
    Check("self.leaves", "leaves a process behind", quick=1, long=1, piece=1),
]
