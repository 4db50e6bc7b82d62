"""Changes one thing at a time in a copy of RegLib/ and portable/ - a comparison, a constant, a call or a
guard that goes, two calls in the wrong order - and looks whether a test notices. Without an argument the
first 300 places, spread over all files, and those of which a reason says that nobody can see them; what has a
result already is not run again."""
import argparse
import pathlib
import random
import re
import signal
import sys
import time

import places
import records
import trials
import workshop

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
HERE = pathlib.Path(__file__).resolve().parent
LEAST_KILLED = 0.9


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__)
    parser.add_argument("number", nargs="?", type=int, default=300, metavar="N", help="how many places (300)")
    what = parser.add_mutually_exclusive_group()
    what.add_argument("--recheck", type=int, metavar="K",
                      help="repeat K of those with a result, and fail when one comes out differently")
    what.add_argument("--list", action="store_true", help="only print the places and what is known of them")
    parser.add_argument("--only", metavar="PATTERN",
                        help="only places that match: 'file:line: change: text of the line'")
    parser.add_argument("--again", action="store_true", help="also what has a result")
    parser.add_argument("--units", action="store_true",
                        help="with short unit tests only; --survivors asks all tests about what is left")
    parser.add_argument("--survivors", action="store_true", help="only what has survived and is not equivalent")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--jobs", type=int, default=3, metavar="J", help="tests at a time (3)")
    parser.add_argument("--project", type=pathlib.Path, default=PROJECT, help=argparse.SUPPRESS)
    parser.add_argument("--records", type=pathlib.Path, default=HERE, help=argparse.SUPPRESS)
    parser.add_argument("--patience", type=float, default=15, metavar="S",
                        help="what takes so many seconds more than eight times its time hangs (15)")
    return parser.parse_args()


def chosen(options, every, known):
    if options.only:
        wanted = re.compile(options.only)
        every = [place for place in every if wanted.search(str(place))]
    if options.survivors:
        every = [place for place in every if known.outcome(place) == "survived" and not known.reason(place)]
    if options.recheck:
        settled = [place for place in every if known.outcome(place) in ("killed", "survived")]
        return random.Random(options.seed).sample(settled, min(options.recheck, len(settled)))
    if options.only or options.survivors:
        return every
    wanted = first(options.number, every, known)
    # That nobody notices them has to be seen as well.
    return wanted + [place for place in every if known.reason(place) and place not in wanted]


def first(number, every, known):
    """What the compiler refuses does not count as one."""
    found, count = [], 0
    for place in every:
        if count == number:
            break
        found.append(place)
        count += known.outcome(place) != "unbuildable"
    return found


class Run:
    def __init__(self, options, known, every):
        self.known, self.every = known, every
        self.workshop = workshop.Workshop(options.project, options.project / "build" / "mutants", options.jobs)
        self.trials = trials.Trials(self.workshop, options.jobs, options.patience, options.units)
        print("Building a copy and timing its tests ...", flush=True)
        self.workshop.prepare()
        self.trials.prepare()

    def outcome(self, place):
        try:
            with self.workshop.changed(place) as objects:
                by = self.trials.verdict(place.file, objects)
        except workshop.Unbuildable:
            return "unbuildable", "-"
        return ("killed", by) if by else ("survived", "-")

    def keep_all(self, wanted):
        """Those first of which the copy is built fast again."""
        wanted = sorted(wanted, key=lambda place: len(self.workshop.reaches.get(place.file, [])))
        for number, place in enumerate(wanted, 1):
            began = time.monotonic()
            outcome, by = self.outcome(place)
            print(f"{number}/{len(wanted)} {outcome} after {time.monotonic() - began:.0f} s by {by}: {place}", flush=True)
            self.known.keep(place, outcome, by)
            self.known.write(self.every)

    def recheck(self, wanted):
        different = 0
        for number, place in enumerate(wanted, 1):
            before = self.known.outcome(place)
            outcome, by = self.outcome(place)
            different += outcome != before
            word = "as before" if outcome == before else f"DIFFERENT, was {before}"
            print(f"{number}/{len(wanted)} {outcome} ({word}) by {by}: {place}", flush=True)
        return different


def summary(every, known, wanted):
    """Exit code 1 when too many of those not equivalent are alive, or a reason is for nothing or untrue."""
    outcomes = [known.outcome(place) for place in every if not known.reason(place)]
    killed, survived = outcomes.count("killed"), outcomes.count("survived")
    equivalent = sum(1 for place in every if known.reason(place))
    for place in every:
        if known.outcome(place) == "survived" and not known.reason(place):
            print(f"survivor: {place}")
    stray = known.stray_reasons(every)
    for key in stray:
        print(f"a reason for what is not there: {' '.join(map(str, key))}")
    untrue = [place for place in every if known.reason(place) and known.outcome(place) == "killed"]
    for place in untrue:
        print(f"a reason for what {known.by(place)} notices: {place}")
    missing = sum(1 for place in wanted if not known.outcome(place))
    rate = killed / (killed + survived) if killed + survived else 0.0
    print(f"{killed + survived + equivalent} changes: {killed} killed, {survived} survived, "
          f"{equivalent} equivalent, {outcomes.count('unbuildable')} that do not build; killed of those "
          f"that can be seen: {100 * rate:.1f} %")
    return 1 if stray or untrue or missing or rate < LEAST_KILLED else 0


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # puts the copy in order and ends what runs
    options = arguments()
    every = places.of_project(options.project)
    known = records.Records(options.records)
    wanted = chosen(options, every, known)
    if options.list:
        for place in wanted:
            reason = known.reason(place)
            print(f"{'equivalent' if reason else known.outcome(place) or 'not run'}: {place}"
                  f"{' (' + reason + ')' if reason else ''}")
        return 0
    if options.recheck:
        print(f"Seed {options.seed}")
        return 1 if Run(options, known, every).recheck(wanted) else 0
    again = options.again or options.survivors
    open_ones = [place for place in wanted if again or not known.outcome(place)]
    if open_ones:
        Run(options, known, every).keep_all(open_ones)
    return summary(every, known, wanted)


if __name__ == "__main__":
    sys.exit(main())
