"""What has been done and found, kept in a file so that a long run can go on where it was stopped."""
import json
import os


def merge(figures, more):
    for name, (kind, number) in more.items():
        if name not in figures:
            figures[name] = [kind, number]
        elif kind == "max":
            figures[name][1] = max(figures[name][1], number)
        else:
            figures[name][1] += number


class Results:
    """A file with, for each check, the seed it began with, how many pieces are done, and figures."""

    def __init__(self, path, fresh=False):
        self.path = path
        self.checks = {}
        if path is not None and path.exists() and not fresh:
            self.checks = json.loads(path.read_text(encoding="utf-8"))

    def of(self, check, seed):
        return self.checks.setdefault(check.name, {
            "seed": seed, "pieces": 0, "count": 0, "seconds": 0, "figures": {}, "failures": []})

    def keep(self, check, seed, count, outcome):
        record = self.checks[check.name]
        record["pieces"] += 1
        record["seconds"] += outcome.seconds
        merge(record["figures"], outcome.figures)
        if outcome.reason:
            record["failures"].append({"seed": seed, "count": count, "reason": outcome.reason})
        elif not outcome.cannot:
            record["count"] += count
        record["cannot"] = outcome.cannot
        self.write()

    def write(self):
        """The file is whole at any moment: a long run may be killed."""
        if self.path is None:
            return
        self.path.parent.mkdir(parents=True, exist_ok=True)
        new = self.path.with_suffix(".new")
        new.write_text(json.dumps(self.checks, indent=1) + "\n", encoding="utf-8")
        os.replace(new, self.path)
