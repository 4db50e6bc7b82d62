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
    parts: int = 1          # so many pieces, one after the other, have all places between them

    def __post_init__(self):
        if self.long // self.piece % self.parts:
            raise ValueError(f"{self.name}: the long form does not have all places")

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
    # Of all places a piece has the part that its seed says, and visits each as often as its count says.
    Check("kill.calls", "killed at every system call", quick=1, long=30, piece=3, limit=300, parts=10),
    Check("kill.calls.disk", "the same with the store on the disk", quick=0, long=10, piece=1, on_disk=True,
          limit=300, parts=10),
    Check("kill.again", "killed at every system call, and again in the start that follows",
          quick=1, long=80, piece=8, limit=300, parts=10),
    Check("kill.mending", "killed at every system call of a replacement, and again at every one of the "
          "mending", quick=1, long=60, piece=1, parts=60),
    Check("kill.stop", "stopped at every system call", quick=1, long=30, piece=3, limit=600, parts=10),
    Check("kill.stop.disk", "the same with the store on the disk", quick=0, long=10, piece=1, on_disk=True,
          limit=600, parts=10),
    Check("ends.handlers", "handlers removed while they run", quick=3000, long=100_000, piece=5000,
          sanitizers=("address", "thread")),
    Check("ends.cancel", "threads cancelled at every system call", quick=1, long=50, piece=5,
          parts=10),
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
    Check("objects.crowd", "64 processes start at once on nothing",
          quick=15, long=1000, piece=100, limit=600),
    Check("objects.killed_creator", "who makes the objects dies at a system call",
          quick=60, long=2000, piece=2000, limit=600),
    Check("objects.planted", "another user's things under the names of objects",
          quick=1, long=30, piece=5, privileged=True, limit=300),
    Check("objects.attacked", "another user attacks objects in use",
          quick=180, long=18000, piece=900, privileged=True, limit=600),
    Check("objects.permissions", "umasks and users", quick=1, long=50, piece=25, privileged=True),
    Check("objects.protected", "the kernel's rules for links, both ways",
          quick=1, long=30, piece=5, privileged=True),
    Check("objects.pid_namespaces", "private pid namespaces on one /dev/shm",
          quick=20, long=600, piece=100, limit=300),
    Check("load.readback", "8 processes of 4 threads, each change read back",
          quick=100, long=5000, piece=5000, limit=3600, sanitizers=("thread",)),
    Check("load.linear", "what is read and written has one order, in seconds",
          quick=4, long=600, piece=40, sanitizers=("thread",)),
    Check("load.two_writers", "two that take turns see each other's last change",
          quick=10000, long=100000, piece=100000, limit=600),
    Check("load.watched", "two watches tell of each change while another file comes and goes",
          quick=5000, long=200_000, piece=10_000),
    Check("load.soak", "what is used stays the same, in seconds",
          quick=20, long=1800, piece=1800, limit=2400),
    Check("scale.opens", "openings of a path of six names",
          quick=200000, long=1000000, piece=1000000),
    Check("scale.handles", "handles on a key that is deleted",
          quick=20000, long=100000, piece=100000),
    Check("scale.keys", "keys of a store", quick=50000, long=1000000, piece=1000000, limit=600),
    Check("scale.siblings", "keys in one key", quick=20000, long=100000, piece=100000),
    Check("scale.values", "values of a key", quick=20000, long=100000, piece=100000),
    Check("scale.text", "megabytes of a file", quick=20, long=200, piece=200, limit=600),
    Check("scale.nesting", "openings of a key as deep as a line allows",
          quick=100, long=300, piece=300),
    # Calls and memory that fail. A round has every place once, each with the next way to fail.
    Check("fault.files", "every file operation fails, once and for good", quick=1, long=14, piece=1),
    Check("fault.pairs", "two file operations fail", quick=300, long=100_000, piece=2_000),
    Check("fault.sequences", "file operations fail at random", quick=100, long=20_000, piece=1_000,
          sanitizers=("address",)),
    Check("fault.deaths", "the end of the process at every file operation", quick=1, long=4, piece=1),
    Check("fault.synced_files", "every file operation fails, with VQREG_SYNC=1", quick=1, long=14, piece=1),
    Check("fault.synced_pairs", "two file operations fail, with VQREG_SYNC=1", quick=150, long=50_000,
          piece=2_000),
    Check("fault.synced_deaths", "the end of the process at every file operation, with VQREG_SYNC=1",
          quick=1, long=4, piece=1),
    Check("fault.calls", "every system call fails, once and for good", quick=1, long=112, piece=1),
    Check("fault.calls.disk", "the same with the store on the disk", quick=0, long=14, piece=1,
          on_disk=True),
    Check("fault.synced_calls", "every system call fails, once and for good, with VQREG_SYNC=1",
          quick=1, long=14, piece=1),
    Check("fault.traced_calls", "every system call fails, once and for good, with a log", quick=1,
          long=14, piece=1),
    Check("memory.operations", "no memory in every operation", quick=1, long=8, piece=1,
          sanitizers=("address",)),
    Check("memory.first", "no memory for what a process does first", quick=1, long=8, piece=1,
          sanitizers=("address",)),
    Check("memory.threads", "no memory for registration, notification and their threads", quick=1,
          long=64, piece=1, sanitizers=("address",)),
    Check("memory.c", "no memory in calls of vqreg.h", quick=1, long=32, piece=4,
          sanitizers=("address",)),
    Check("memory.store", "no memory in calls of VQRegStore.h", quick=1, long=32, piece=4,
          sanitizers=("address",)),
    Check("memory.again", "the same place without memory again and again, with threads", quick=0,
          long=500, piece=20, limit=300, sanitizers=("address",)),
    Check("memory.sequences", "no memory at random", quick=100, long=20_000, piece=500,
          sanitizers=("address",)),
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
    Check("self.holds.also", "shares the first part of its name", quick=10, long=50, piece=20,
          on_disk=True),
    Check("self.pair.quick", "is in both forms", quick=10, long=50, piece=20),
    Check("self.pair.long", "is in the long form only", quick=0, long=50, piece=20),
    Check("self.fails", "finds something", quick=10, long=20, piece=10),
    Check("self.cannot", "is not allowed", quick=1, long=1, piece=1),
    Check("self.hangs", "does not end", quick=1, long=1, piece=1, limit=3),
    Check("self.waits", "does not end for long", quick=1, long=1, piece=1, limit=600),
    Check("self.alone", "does not end for long, and has started nobody", quick=1, long=1, piece=1, limit=600),
    Check("self.leaves", "leaves a process behind", quick=1, long=1, piece=1),
    Check("self.tells", "tells each number once", quick=1, long=1, piece=1),
    Check("self.damaged", "has a disk that cannot be mounted after a power cut", quick=1, long=1, piece=1),
]
