"""What is measured: which contenders, at which sizes, and what the figures are called."""
import dataclasses

OURS = "VQRegLib"
STORE = "VQRegStore.h"
SIZES = [10, 100, 1_000, 10_000, 100_000]

# The programs, by the names under which the tables show them.
PROGRAMS = {
    OURS: "ours",
    STORE: "store",
    "F0": "flat_hash",
    "F1": "ordered_map",
    "F2": "replace_file",
    "F3": "load_map",
    "R": "replace_file",
    "LMDB": "lmdb",
    "SQLite": "sqlite",
    "TDB": "tdb",
    "GKeyFile": "gkeyfile",
    "dconf": "dconf",
    "floor": "notify_floor",
}
QUERY = "VQRegLib, query"  # for comparison, in pictures of other workloads
ALONE = "VQRegLib, alone"
RIVALS = ["LMDB", "SQLite", "TDB", "GKeyFile", "dconf"]
PAGES = ["LMDB", "SQLite", "GKeyFile"]  # that have an order


@dataclasses.dataclass(frozen=True)
class Workload:
    name: str
    title: str
    contenders: tuple
    how: str = "loop"  # or a function of measuring.py
    sizes: tuple = tuple(SIZES)
    unit: str = "ns"
    axis: str = "values in the store"
    queries: bool = False  # take turns with queries, for the ratio to these


def against(*floors, rivals=RIVALS):
    return (OURS, *floors, *rivals)


LEVELS = tuple(range(1, 7))

WORKLOADS = [
    Workload("query", "query of a number, random over the store", against("F0", "F1")),
    Workload("text", "query of a text", against("F0")),
    Workload("bytes", "query of bytes", against("F0")),
    Workload("number", "query of a number, by hand and through VQRegStore.h", (OURS, STORE)),
    Workload("string", "query of a text into a std::string, the same", (OURS, STORE)),
    Workload("two", "queries of two processes at once, time for one of both", against("F0", "F1"),
             how="two"),
    Workload("again", "set to the content it has", against(), queries=True),
    Workload("enumerate", "the ten values of a key", against(rivals=PAGES)),
    # From here on the stores change.
    Workload("beside", "query beside a process that sets all the time", against(), how="beside"),
    Workload("set", "set of one value, tmpfs", against("F2")),
    Workload("lock", "lock and unlock", ("F2",)),
    Workload("disk", "set of one value, disk",
             against("F2", rivals=[name for name in RIVALS if name != "dconf"]), how="disk"),
    Workload("load", "open, load and first query in a fresh process", against("F3")),
    Workload("inside", "the same without the start of the process", against("F3")),
    Workload("reread", "first query after another process's set", against("R")),
    Workload("memory", "private memory of a fresh process after its first query, a value",
             against("F3"), how="memory", unit="bytes"),
    Workload("resident", "resident memory of a fresh process after its first query, a value",
             against("F3"), how="memory", unit="bytes"),
    Workload("update", "update that sets every value", (OURS,)),
    Workload("bigset", "set of one value, all values in one key", (OURS,)),
    Workload("bigmany", "set inside an update, all values in one key", (OURS,)),
    Workload("bigenumerate", "all values of one key, by index 0, 1, 2 ...", (OURS,),
             sizes=tuple(SIZES[:4])),
    Workload("open", "open a key so many levels deep and close it", (OURS,), how="levels",
             sizes=LEVELS, axis="levels"),
    Workload("join", "second session of a store", (OURS,)),
    Workload("session", "session of a store that the process does not have", (OURS,)),
    Workload("notify", "sender's call to handler in another process", (OURS, "floor"),
             how="notify", sizes=(10,)),
]
