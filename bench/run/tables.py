"""The figures as tables, and the ratios that have goals."""
from workloads import ALONE, OURS, QUERY, SIZES, STORE, WORKLOADS


def figure(figures, workload, contender, size):
    return figures.get(workload, {}).get(contender, {}).get(size)


class Ratio:
    """One line of the table of goals."""

    def __init__(self, title, above, below, goals, sizes=SIZES, least=False, floor=False):
        self.title = title
        self.above = above
        self.below = below
        self.goals = goals if isinstance(goals, list) else [goals] * len(sizes)
        self.sizes = sizes
        self.least = least  # the goal is a least value, not a largest one
        self.floor = floor  # compares with the same work by hand: kept from doubling

    def at(self, figures, size):
        above = self.above(figures, size)
        below = self.below(figures, size)
        return None if above is None or not below else above / below

    def reached(self, ratio, goal):
        if goal is None or ratio is None:
            return None
        return ratio >= goal if self.least else ratio <= goal


def of(workload, contender=OURS):
    return lambda figures, size: figure(figures, workload, contender, size)


def without_lock(figures, size):
    change = figure(figures, "set", OURS, size)
    lock = figure(figures, "lock", "F2", size)
    return None if change is None or lock is None else change - lock


def rate_of_two(contender):
    def rate(figures, size):
        time = figure(figures, "two", contender, size)
        return None if time is None else 1 / time
    return rate


def rate_of_one(figures, size):
    time = figure(figures, "two", ALONE, size)
    return None if time is None else 1 / time


def levels_of_query(figures, level):
    query = figure(figures, "open", QUERY, level)
    return None if query is None else query * level


def export_and_look_ups(figures, size):
    change = figure(figures, "set", OURS, size)
    query = figure(figures, "query", OURS, size)
    return None if change is None or query is None else change + size * query


def enumerated(figures, size):
    time = figure(figures, "bigenumerate", OURS, size)
    return None if time is None else time / size


def smallest(workload):
    return lambda figures, size: figure(figures, workload, OURS, 10)


RATIOS = [
    Ratio("query / F0", of("query"), of("query", "F0"), [1.5, 1.5, 1.5, 1.5, 2.0], floor=True),
    Ratio("query / F1", of("query"), of("query", "F1"), None),
    Ratio("query / LMDB", of("query"), of("query", "LMDB"), [0.45, 0.35, 0.25, 0.25, 0.5]),
    Ratio("two processes: rate / LMDB's", rate_of_two(OURS), rate_of_two("LMDB"),
          [2.0, 2.0, 2.0, 2.0, 1.0], least=True),
    Ratio("two processes: rate / one alone", rate_of_two(OURS), rate_of_one, 1.9, least=True),
    Ratio("set to the same / query", of("again"), of("again", QUERY), 1.2),
    Ratio("ten values of a key / LMDB", of("enumerate"), of("enumerate", "LMDB"), 1.0),
    Ratio("set of one value, without lock / F2", without_lock, of("set", "F2"), 1.15, floor=True),
    Ratio("set of one value on the disk / F2", of("disk"), of("disk", "F2"), None),
    Ratio("first query of a process / F3", of("load"), of("load", "F3"),
          [2.0, 2.0, 0.7, 0.35, 0.35], floor=True),
    Ratio("the same without its start / F3", of("inside"), of("inside", "F3"), None, floor=True),
    Ratio("first query after a change / R", of("reread"), of("reread", "R"),
          [1.5, 1.5, 1.3, 1.2, 1.2], floor=True),
    Ratio("update of all / write + look-ups", of("update"), export_and_look_ups,
          [None, None, None, None, 1.3]),
    Ratio("set in one big key / in keys of ten", of("bigset"), of("set"), None),
    Ratio("set in an update, big key / of ten", of("bigmany"), smallest("bigmany"), None),
    Ratio("a value enumerated, big key / of ten", enumerated, lambda figures, _: enumerated(figures, 10),
          None),
    Ratio("private memory a value, bytes", of("memory"), lambda *_: 1,
          [None, None, None, None, 120]),
    Ratio("text / F0", of("text"), of("text", "F0"), None),
    Ratio("bytes / F0", of("bytes"), of("bytes", "F0"), None),
    Ratio("number through VQRegStore.h / by hand", of("number", STORE), of("number"), 1.05),
    Ratio("text through VQRegStore.h / by hand", of("string", STORE), of("string"), 1.05),
    Ratio("query beside a writer / LMDB", of("beside"), of("beside", "LMDB"), None),
    Ratio("query / GKeyFile", of("query"), of("query", "GKeyFile"), None),
    Ratio("notification / floor", of("notify"), of("notify", "floor"), [1.3], sizes=[10]),
]
OPEN = Ratio("open a key, close it / levels x query", of("open"), levels_of_query, 3.0,
             sizes=list(range(1, 7)))


TITLES = {workload.name: workload.title for workload in WORKLOADS}
SHOWN = [("query", OURS), ("query", "LMDB"), ("query", "GKeyFile"), ("set", OURS), ("set", "LMDB"),
         ("set", "GKeyFile"), ("disk", OURS), ("load", OURS), ("load", "LMDB"), ("reread", OURS)]


def number(value):
    return "-" if value is None else f"{value:.0f}" if value >= 100 else f"{value:.2f}"


def cell(ratio, figures, size, goal):
    value = ratio.at(figures, size)
    if value is None:
        return "-"
    if goal is None:
        return number(value)
    sign = "+" if ratio.reached(value, goal) else "!"
    return f"{number(value)} ({number(goal)}) {sign}"


def lines_of(rows, width):
    for title, *cells in rows:
        yield f"{title:<40}" + "".join(f"{text:>{width}}" for text in cells)


def goals(figures):
    rows = [["ratio (goal), + reached, ! not"] + [f"{size:,}" for size in SIZES]]
    for ratio in RATIOS:
        cells = {size: cell(ratio, figures, size, goal)
                 for size, goal in zip(ratio.sizes, ratio.goals)}
        rows.append([ratio.title] + [cells.get(size, "") for size in SIZES])
    levels = [["levels"] + [str(level) for level in OPEN.sizes],
              [OPEN.title] + [cell(OPEN, figures, level, goal)
                              for level, goal in zip(OPEN.sizes, OPEN.goals)]]
    return "\n".join([*lines_of(rows, 18), "", *lines_of(levels, 16)])


def costs(figures):
    text = []
    for workload in WORKLOADS:
        seen = figures.get(workload.name)
        if not seen:
            continue
        sizes = sorted({size for line in seen.values() for size in line})
        rows = [[f"{workload.title}, {workload.unit}"[:40]] + [f"{size:,}" for size in sizes]]
        rows += [["  " + name] + [number(line.get(size)) for size in sizes]
                 for name, line in seen.items()]
        text += [*lines_of(rows, 14), ""]
    return "\n".join(text)


def markdown(figures, about):
    """The tables of docs/performance.md."""
    text = [f"Taken on {about['date']}: {about['processors']} processors, {about['processor']}, "
            f"Linux {about['kernel']}, {about['libc']}; {about['load']:.1f} processes were at work "
            "when the run began.", ""]
    text += ["| time of one operation, us | " + " | ".join(f"{size:,}" for size in SIZES) + " |",
             "|---|" + "---|" * len(SIZES)]
    for workload, name in SHOWN:
        line = figures.get(workload, {}).get(name, {})
        times = [f"{line[size] / 1000:.3g}" if size in line else "" for size in SIZES]
        text.append(f"| {TITLES[workload]}: {name} | " + " | ".join(times) + " |")
    text += ["", "| ratio | " + " | ".join(f"{size:,}" for size in SIZES) + " |",
             "|---|" + "---|" * len(SIZES)]
    for ratio in RATIOS:
        cells = {size: plain(ratio.at(figures, size), goal)
                 for size, goal in zip(ratio.sizes, ratio.goals)}
        text.append(f"| {ratio.title} | " +
                    " | ".join(cells.get(size, "") for size in SIZES) + " |")
    text += ["", "| levels | " + " | ".join(str(level) for level in OPEN.sizes) + " |",
             "|---|" + "---|" * len(OPEN.sizes),
             f"| {OPEN.title} | " +
             " | ".join(plain(OPEN.at(figures, level), goal)
                        for level, goal in zip(OPEN.sizes, OPEN.goals)) + " |"]
    return "\n".join(text)


def plain(value, goal):
    if value is None:
        return ""
    return number(value) if goal is None else f"{number(value)} ({number(goal)})"
