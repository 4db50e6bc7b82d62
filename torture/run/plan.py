"""What is to be run: which checks, how much of each, and about how long that takes."""
import sys

from checks import CHECKS, OWN
from measured import SECONDS


def whole(options, check):
    """How much of a check its form does; a check that is not in the quick form does a piece when named."""
    if options.count:
        return options.count
    if options.long:
        return check.long
    return check.quick or (check.piece if check.name in options.check else 0)


def has_work(options, check):
    return whole(options, check) > 0 and (not options.sanitizer or options.sanitizer in check.sanitizers)


def named(options, name):
    """The check of this name, or else those whose names begin with it."""
    everything = CHECKS + OWN
    found = [check for check in everything if check.name == name] or \
            [check for check in everything if check.name.startswith(name + ".")]
    if not found:
        sys.exit(f"no such check: {name} (--list names them)")
    found = [check for check in found if has_work(options, check)]
    if not found:
        form = f" with --sanitizer {options.sanitizer}" if options.sanitizer else " in this form"
        sys.exit(f"{name} has nothing to do{form}")
    return found


def chosen(options):
    """The checks that are asked for; those of the driver's own test only by name."""
    if not options.check:
        return [check for check in CHECKS if has_work(options, check)]
    checks = []
    for name in options.check:
        checks += [check for check in named(options, name) if check not in checks]
    return checks


def pieces(options, check, record):
    """Seed and count of each piece that was never run."""
    seed = record["seed"]
    if options.count:
        return [(seed, options.count)]
    most = whole(options, check)
    return [(seed + i, min(check.piece, most - start))
            for i, start in enumerate(range(0, most, check.piece)) if i >= record["pieces"]]


def seconds_of(options, check, record):
    """Of the whole check and of what is left of it; as it went so far, or else as it was measured."""
    left = sum(count for _, count in pieces(options, check, record))
    left += sum(failure["count"] for failure in record["failures"])
    done = record["count"] + sum(failure["count"] for failure in record["failures"])
    pace = record["seconds"] / done if done else SECONDS[check.name] / check.piece
    return whole(options, check) * pace, left * pace


def in_words(seconds):
    if seconds < 120:
        return f"{seconds:.0f} s"
    minutes = round(seconds / 60)
    return f"{minutes} min" if minutes < 120 else f"{minutes // 60} h {minutes % 60} min"


def length(options, tasks):
    """One line on how long the checks and their records take."""
    known = [task for task in tasks if task[0].name in SECONDS or task[1]["pieces"]]
    times = [seconds_of(options, check, record) for check, record in known]
    all_of_it, left = (sum(column) for column in zip(*times)) if times else (0, 0)
    text = f"About {in_words(all_of_it)}, of which {in_words(left)} are left"
    unknown = [check.name for check, record in tasks if (check, record) not in known]
    return text + (f"; not measured: {', '.join(unknown)}." if unknown else ".")
