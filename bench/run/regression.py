"""Whether something has become much slower than the committed figures say."""
import re
import shutil
import subprocess
import sys

import measuring
from tables import RATIOS, number
from workloads import OURS, PROGRAMS, STORE

# Against floors only: they are as fast in every run as the machine is.
FLOOR_RATIOS = [ratio for ratio in RATIOS if ratio.floor]
# Larger stores do not fit into the caches, of which the machine's neighbours take their part.
SIZES = [10, 1_000]
ATTEMPTS = 5
WORKLOADS = {"query", "set", "lock", "load", "inside", "reread"}
DOUBLED = 2.0
MORE_INSTRUCTIONS = 1.10
MORE_THROUGH_STORE = 1.05
COUNTED_SIZES = [10, 1_000]


def counted(program, directory, values, workload, count):
    done = subprocess.run(
        ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", program, "serve",
         directory, str(values)],
        input=f"{workload} {count}\n", check=True, text=True, stdout=subprocess.DEVNULL,
        stderr=subprocess.PIPE)
    # The partner, which does nothing here, is counted beside it.
    return max(int(found) for found in re.findall(r"Collected : (\d+)", done.stderr))


def counted_each(programs, ground, contender, workload, values):
    """Instructions of one operation: what more of them take beyond a few."""
    few, many = 1_000, 6_000
    directory = ground / f"counted-{contender}-{workload}-{values}"
    directory.mkdir()
    program = str(programs / f"bench_{PROGRAMS[contender]}")
    subprocess.run([program, "make", directory, str(values)], check=True)
    more, less = (counted(program, directory, values, workload, count) for count in (many, few))
    return (more - less) / (many - few)


def instructions(programs, ground):
    """{size: instructions of one query}"""
    if not shutil.which("valgrind"):
        print("Instructions are not counted: valgrind is not installed")
        return {}
    return {values: counted_each(programs, ground, OURS, "query", values)
            for values in COUNTED_SIZES}


def dear_through_store(programs, ground):
    """What takes more through VQRegStore.h than it may."""
    if not shutil.which("valgrind"):
        return
    for workload in ("number", "string"):
        plain, through = (counted_each(programs, ground, contender, workload, COUNTED_SIZES[-1])
                          for contender in (OURS, STORE))
        print(f"instructions of a {workload}: {number(plain)} by hand, {number(through)} through "
              f"VQRegStore.h, {through / plain:.3f} times as many")
        if through > MORE_THROUGH_STORE * plain:
            yield (f"a {workload} through VQRegStore.h takes {number(through)} instructions, "
                   f"{number(plain)} by hand")


def slower(ratios, committed, figures):
    bad = []
    for ratio in ratios:
        for size in SIZES:
            was, now = ratio.at(committed, size), ratio.at(figures, size)
            if was is not None and now is not None and now > DOUBLED * was:
                bad.append((ratio, size, was, now))
    return bad


def more_instructions(committed, seen):
    for size, now in seen.items():
        was = committed.get(size)
        print(f"instructions of a query, {size} values: {number(now)}, committed {number(was)}")
        if was is not None and now > MORE_INSTRUCTIONS * was:
            yield f"a query takes {number(now)} instructions at {size} values, not {number(was)}"


def check(programs, memory, disk, committed, committed_instructions):
    """True when all is as it was."""
    complaints = list(more_instructions(committed_instructions, instructions(programs, memory)))
    complaints += dear_through_store(programs, memory)
    ratios = FLOOR_RATIOS
    # What looks slow is looked at again: somebody else may have used the machine.
    for attempt in range(ATTEMPTS):
        figures = measuring.measure_all(programs, memory / f"attempt-{attempt}",
                                        disk, SIZES, measuring.QUICK, WORKLOADS,
                                        floors_only=True)
        if attempt == 0:
            for ratio in ratios:
                print(ratio.title + ":", ", ".join(
                    f"{number(ratio.at(figures, size))} (committed "
                    f"{number(ratio.at(committed, size))})" for size in SIZES))
        bad = slower(ratios, committed, figures)
        ratios = list({id(line[0]): line[0] for line in bad}.values())
        if not bad:
            break
    complaints += [f"{ratio.title} at {size} values was {number(was)} and is {number(now)}"
                   for ratio, size, was, now in bad]
    for complaint in complaints:
        print(f"scripts/bench: {complaint}", file=sys.stderr)
    return not complaints
