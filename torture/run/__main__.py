"""Does violence to stores and says what held; scripts/torture builds the programs and calls this."""
import argparse
import os
import pathlib
import random
import sys
import time

import processes
from checks import CHECKS, OWN
from plan import chosen, length, pieces
from results import Results, all_figures, identities

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/torture", description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--sanitizer", choices=["address", "thread"],
                        help="only what makes sense with it, in a build that has it")
    form = parser.add_mutually_exclusive_group()
    form.add_argument("--quick", action="store_true", help="within five minutes; the default")
    form.add_argument("--long", action="store_true",
                      help="the whole of it, for hours; goes on where it was stopped, once it "
                           "has run again what failed")
    form.add_argument("--count", type=int, metavar="N", help="one run of N with exactly the seed")
    parser.add_argument("--seed", type=int, metavar="S", help="printed when it is not given")
    parser.add_argument("--results", type=pathlib.Path, metavar="FILE",
                        help="of the long form; otherwise in the build")
    parser.add_argument("--fresh", action="store_true", help="forgets what the results file has")
    parser.add_argument("--list", action="store_true", help="names all checks and their counts")
    parser.add_argument("check", nargs="*", metavar="CHECK",
                        help="its name, or the first part of several names")
    options = parser.parse_args()
    options.programs = options.programs.resolve()  # stores are looked for at every access
    return options


def command(options, check):
    return [str(options.programs / "private_root"), str(options.programs / check.program)]


def repeat_command(options, check, seed, count):
    sanitizer = f" --sanitizer {options.sanitizer}" if options.sanitizer else ""
    return f"scripts/torture{sanitizer} {check.name} --seed {seed} --count {count}"


def run_pieces(options, check, results, left):
    """Keeps what becomes of each, until one cannot run."""
    places = options.programs.parent / "places"
    for seed, count in left:
        outcome = processes.run_piece(command(options, check), check, seed, count, places)
        results.keep(check, seed, count, outcome)
        if outcome.reason:
            print(f"FAILED  {check.name}: {outcome.reason.strip()}\n"
                  f"        again: {repeat_command(options, check, seed, count)}", flush=True)
        if outcome.cannot:
            break


def run_failed_pieces(options, check, record, results):
    for failure in list(record["failures"]):
        print(f"AGAIN   {check.name}, which failed: "
              f"{repeat_command(options, check, failure['seed'], failure['count'])}", flush=True)
        run_pieces(options, check, results, [(failure["seed"], failure["count"])])


def report(options, check, record):
    if record.get("cannot") and not record["failures"]:
        print(f"LEFT OUT: torture {check.name}, because it cannot run: {record['cannot']}", flush=True)
        return
    figures = ", ".join(f"{name.replace('_', ' ')} {number:,.10g}"
                        for name, (_, number) in sorted(all_figures(record).items()))
    state = "FAILED " if record["failures"] else "ok     "
    seed = f"seed {record['seed']}, " if options.long else ""
    print(f"{state} {check.name} ({check.title}): {figures}; {seed}{record['seconds']:.0f} s", flush=True)
    for failure in record["held_again"]:
        print(f"        failed once and held when it was run again: "
              f"{repeat_command(options, check, failure['seed'], failure['count'])}", flush=True)


def run(options, tasks, results):
    """What has failed before comes first: a mend is what most people wait for."""
    for check, record in tasks:
        run_failed_pieces(options, check, record, results)
    for check, record in tasks:
        run_pieces(options, check, results, pieces(options, check, record))
        report(options, check, record)


def summary(records, seconds):
    failed = sum(bool(record["failures"]) for record in records)
    cannot = sum(bool(record.get("cannot") and not record["failures"]) for record in records)
    text = f"{len(records) - failed - cannot} of {len(records)} checks hold"
    text += f", {cannot} could not run" if cannot else ""
    return f"{text}; {seconds:.0f} s."


def print_list():
    for check in CHECKS:
        print(f"{check.name:32} {check.title} ({check.quick:,} quick, {check.long:,} long)")


def open_results(options):
    """Of the long form alone; the others forget."""
    if not options.long:
        return Results(None)
    sanitizer = f"-{options.sanitizer}" if options.sanitizer else ""
    path = options.results or options.programs.parent / f"results{sanitizer}.json"
    return Results(path, identities(options.programs, CHECKS + OWN), options.fresh)


def main():
    options = arguments()
    if options.list:
        print_list()
        return 0
    begin = time.monotonic()
    seed = options.seed if options.seed is not None else random.randrange(1 << 32)
    checks = chosen(options)
    results = open_results(options)
    processes.adopt_orphans()
    processes.end_in_order()
    tasks = [(check, results.of(check, seed)) for check in checks]
    print(f"Seed {seed}, {len(checks)} checks.", flush=True)
    if options.long:
        print("What has begun before goes on with the seed it began with.")
        print(length(options, tasks), flush=True)
    try:
        run(options, tasks, results)
    finally:
        processes.end_all(None)  # a signal may have come where a piece was being ended
    records = [record for _, record in tasks]
    print(summary(records, time.monotonic() - begin))
    return 1 if any(record["failures"] for record in records) else 0


if __name__ == "__main__":
    if os.path.dirname(__file__) not in sys.path:
        sys.path.insert(0, os.path.dirname(__file__))
    sys.exit(main())
