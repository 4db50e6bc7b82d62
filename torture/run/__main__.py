"""Does violence to stores and says what held; scripts/torture builds the programs and calls this."""
import argparse
import os
import pathlib
import random
import sys

import processes
from checks import CHECKS, OWN
from results import Results

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/torture", description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--sanitizer", choices=["address", "thread"],
                        help="only what makes sense with it, in a build that has it")
    form = parser.add_mutually_exclusive_group()
    form.add_argument("--quick", action="store_true", help="within five minutes; the default")
    form.add_argument("--long", action="store_true",
                      help="the whole of it, for hours; goes on where it was stopped")
    form.add_argument("--count", type=int, metavar="N", help="one run of N with exactly the seed")
    parser.add_argument("--seed", type=int, metavar="S", help="printed when it is not given")
    parser.add_argument("--results", type=pathlib.Path, metavar="FILE",
                        help="of the long form; otherwise in the build")
    parser.add_argument("--fresh", action="store_true", help="forgets what the results file has")
    parser.add_argument("--list", action="store_true", help="names all checks and their counts")
    parser.add_argument("check", nargs="*", metavar="CHECK", help="its name, or the first part of it")
    return parser.parse_args()


def chosen(options):
    """The checks that are asked for; those of the driver's own test only by name."""
    everything = CHECKS + OWN
    if not options.check:
        checks = CHECKS
    else:
        checks = []
        for name in options.check:
            found = [check for check in everything
                     if check.name == name or check.name.startswith(name + ".")]
            if not found:
                sys.exit(f"no such check: {name} (--list names them)")
            checks += [check for check in found if check not in checks]
    if options.sanitizer:
        checks = [check for check in checks if options.sanitizer in check.sanitizers]
    return checks


def command(options, check):
    return [str(options.programs / "private_root"), str(options.programs / check.program)]


def pieces(options, check, seed, done):
    """Seed and count of each piece that is left."""
    if options.count:
        return [(seed, options.count)]
    whole = check.long if options.long else check.quick
    starts = range(0, whole, check.piece)
    return [(seed + i, min(check.piece, whole - start))
            for i, start in enumerate(starts) if i >= done]


def repeat_command(options, check, seed, count):
    sanitizer = f" --sanitizer {options.sanitizer}" if options.sanitizer else ""
    return f"scripts/torture{sanitizer} {check.name} --seed {seed} --count {count}"


def run_check(options, check, results, seed):
    """Runs what is left of a check. False when something did not hold."""
    record = results.of(check, seed)
    places = options.programs.parent / "places"
    for piece_seed, count in pieces(options, check, record["seed"], record["pieces"]):
        outcome = processes.run_piece(command(options, check), check, piece_seed, count, places)
        results.keep(check, piece_seed, count, outcome)
        if outcome.reason:
            print(f"FAILED  {check.name}: {outcome.reason.strip()}\n"
                  f"        again: {repeat_command(options, check, piece_seed, count)}", flush=True)
        if outcome.cannot:
            break
    report(check, record)
    return not record["failures"]


def report(check, record):
    if record.get("cannot"):
        print(f"CANNOT  {check.name}: {record['cannot']}", flush=True)
        return
    figures = ", ".join(f"{name.replace('_', ' ')} {number:,.10g}"
                        for name, (_, number) in sorted(record["figures"].items()))
    state = "FAILED " if record["failures"] else "ok     "
    print(f"{state} {check.name} ({check.title}): {figures}; {record['seconds']:.0f} s", flush=True)


def print_list():
    for check in CHECKS:
        print(f"{check.name:32} {check.title} ({check.quick:,} quick, {check.long:,} long)")


def main():
    options = arguments()
    if options.list:
        print_list()
        return 0
    seed = options.seed if options.seed is not None else random.randrange(1 << 32)
    path = None
    if options.long:
        sanitizer = f"-{options.sanitizer}" if options.sanitizer else ""
        path = options.results or options.programs.parent / f"results{sanitizer}.json"
    results = Results(path, options.fresh)
    processes.adopt_orphans()
    checks = [check for check in chosen(options)
              if options.count or (check.long if options.long else check.quick)]
    print(f"Seed {seed}, {len(checks)} checks.", flush=True)
    held = [run_check(options, check, results, seed) for check in checks]
    print(f"{sum(held)} of {len(held)} checks hold.")
    return 0 if all(held) else 1


if __name__ == "__main__":
    if os.path.dirname(__file__) not in sys.path:
        sys.path.insert(0, os.path.dirname(__file__))
    sys.exit(main())
