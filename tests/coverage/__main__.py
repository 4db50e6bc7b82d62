"""Says which lines of the library no test has run, from what gcovr has counted, and why not.

reasons.tsv has a file, the text of a line and that of the line before it, and the reason why no test runs
it. A branch counts when somebody has written it: what a throw takes, what a catch tells apart, and
what the compiler makes in a statement that has no if, loop, ?:, && or || (destructors, the first use of a
static variable) is left out.
"""
import argparse
import json
import pathlib
import re
import sys

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parent.parent
sys.path.insert(0, str(HERE.parent / "mutants"))

import masking  # noqa: E402

LEAST_LINES, LEAST_BRANCHES = 99.0, 95.0
WRITTEN = re.compile(r"\b(?:if|while|for|switch|case)\b|&&|\|\||\?")
CATCH = re.compile(r"\bcatch \(")
TRACE = re.compile(r"\bREGLIB_TRACE\(")


class File:
    def __init__(self, counted):
        self.name = counted["file"]
        source = (PROJECT / self.name).read_text(encoding="utf-8")
        self.lines = source.splitlines()
        self.code = masking.WORDLESS.sub(masking.without_words, source)
        self.starts = [0]
        for line in self.code.split("\n"):
            self.starts.append(self.starts[-1] + len(line) + 1)
        self.counted = [line for line in counted["lines"] if not line.get("gcovr/noncode")]

    def text(self, number):
        return self.lines[number - 1].strip()

    def key(self, number):
        return self.name, self.text(number - 1) if number > 1 else "", self.text(number)

    def statement(self, number):
        """All of the statement to which a line belongs."""
        begin = max(self.code.rfind(mark, 0, self.starts[number - 1]) for mark in ";{}") + 1
        ends = [self.code.find(mark, self.starts[number] - 1) for mark in ";{}"]
        return self.code[begin:min([end for end in ends if end >= 0], default=len(self.code))]

    def branches(self, line):
        """Of a line: the counts of its branches that somebody has written."""
        number = line["line_number"]
        own = self.code[self.starts[number - 1]:self.starts[number]]
        words = self.statement(number)
        if CATCH.search(own) or not (WRITTEN.search(words) or TRACE.search(words)):
            return []
        return [branch["count"] for branch in line["branches"] if not branch["throw"]]

    def missed(self):
        return [line["line_number"] for line in self.counted if line["count"] == 0]


def read_reasons(path):
    reasons = {}
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        cells = line.split("\t")
        if line and not line.startswith("#"):
            if len(cells) != 4 or not all((cells[0], *cells[2:])):
                raise SystemExit(f"{path}:{number}: a file, the text of two lines and a reason are needed")
            reasons[tuple(cells[:3])] = cells[3]
    return reasons


def show(file, show_branches):
    counts = [file.branches(line) for line in file.counted]
    if show_branches:
        for line, branches in zip(file.counted, counts):
            if line["count"] and 0 in branches:
                print(f"    {file.name}:{line['line_number']}: {branches.count(0)} of {len(branches)} branches "
                      f"not taken: {file.text(line['line_number'])}")
    every = [count for branches in counts for count in branches]
    return len(every), every.count(0)


def share(all_of_them, missed):
    return 100.0 * (all_of_them - missed) / all_of_them if all_of_them else 100.0


def main():
    parser = argparse.ArgumentParser(prog="scripts/coverage", description=__doc__)
    parser.add_argument("--counts", type=pathlib.Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--reasons", type=pathlib.Path, default=HERE / "reasons.tsv", help=argparse.SUPPRESS)
    parser.add_argument("--branches", action="store_true", help="also print the branches that were not taken")
    options = parser.parse_args()
    reasons = read_reasons(options.reasons)
    files = [File(counted) for counted in json.loads(options.counts.read_text())["files"]]
    lines = missed_lines = branches = missed_branches = without = 0
    for file in sorted(files, key=lambda each: each.name):
        lines += len(file.counted)
        missed_lines += len(file.missed())
        for number in file.missed():
            reason = reasons.get(file.key(number))
            without += reason is None
            print(f"{file.name}:{number}: {file.text(number)}\n    {reason or 'NO REASON'}")
        in_file, missed_in_file = show(file, options.branches)
        branches += in_file
        missed_branches += missed_in_file
    there = {file.key(number) for file in files for number in range(1, len(file.lines) + 1)}
    stray = [key for key in reasons if key not in there]
    for name, _, text in stray:
        print(f"a reason for a line that is not there: {name}: {text}")
    of_lines, of_branches = share(lines, missed_lines), share(branches, missed_branches)
    print(f"lines {of_lines:.1f} % ({missed_lines} of {lines} not run, {without} without a reason), "
          f"branches {of_branches:.1f} % ({missed_branches} of {branches} not taken)")
    return 1 if without or stray or of_lines < LEAST_LINES or of_branches < LEAST_BRANCHES else 0


if __name__ == "__main__":
    sys.exit(main())
