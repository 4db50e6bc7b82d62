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
    # Power cuts: with and without VQREG_SYNC=1, and with each way of replacing the file, in turn.
    Check("power.ext4", "power cuts on ext4", quick=18, long=400, piece=50, limit=300, privileged=True),
    Check("power.ext4_noauto_da_alloc", "power cuts on ext4 that replaces before it writes",
          quick=18, long=400, piece=50, limit=300, privileged=True),
    Check("power.xfs", "power cuts on xfs", quick=18, long=400, piece=50, limit=300, privileged=True),
    Check("power.btrfs", "power cuts on btrfs", quick=18, long=400, piece=50, limit=300,
          privileged=True),
]

# What the test of the driver looks at.
OWN = [
    Check("self.holds", "ends well", quick=10, long=50, piece=20),
    Check("self.fails", "finds something", quick=10, long=20, piece=10),
    Check("self.cannot", "is not allowed", quick=1, long=1, piece=1),
    Check("self.hangs", "does not end", quick=1, long=1, piece=1, limit=1),
    Check("self.leaves", "leaves a process behind", quick=1, long=1, piece=1),
]
