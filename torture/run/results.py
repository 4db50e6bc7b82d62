"""What has been done and found, kept in a file so that a long run can go on where it was stopped."""
import hashlib
import json
import os


def digests(programs):
    """{file's name: digest}, of the programs and of the libraries beside them."""
    files = [*programs.iterdir(), *(programs.parent / "lib").glob("*.so")]
    return {file.name: hashlib.sha1(file.read_bytes()).digest() for file in sorted(files) if file.is_file()}


def identities(programs, checks):
    """{check's program: identity}, given all checks: what others have done proves nothing of these
    programs and libraries, but none depends on the programs of other checks."""
    names = {check.program for check in checks}
    files = digests(programs)

    def identity(program):
        mine = [name.encode() + b"\0" + digest for name, digest in files.items()
                if name == program or name not in names]
        return hashlib.sha1(b"".join(mine)).hexdigest()[:12]

    return {name: identity(name) for name in names}


def merge(figures, more):
    for name, (kind, number) in more.items():
        if name not in figures:
            figures[name] = [kind, number]
        elif kind == "max":
            figures[name][1] = max(figures[name][1], number)
        else:
            figures[name][1] += number


def all_figures(record):
    """Also of the pieces that failed."""
    figures = {}
    for part in [record, *record["failures"]]:
        merge(figures, part["figures"])
    return figures


class Results:
    """A file with, for each check, the programs and the seed it began with, how many pieces are done,
    which of them failed, and figures."""

    def __init__(self, path, builds=None, fresh=False):
        self.path = path
        self.builds = builds or {}  # by the check's program
        self.checks = {}
        if path is not None and path.exists() and not fresh:
            self.checks = json.loads(path.read_text(encoding="utf-8"))

    def of(self, check, seed):
        """A check's record: a new one when there is none that these programs made in such pieces."""
        record = self.checks.get(check.name)
        wanted = {"build": self.builds.get(check.program, ""), "piece": check.piece}
        if record is None or any(record.get(name) != value for name, value in wanted.items()):
            if record is not None:
                print(f"{check.name} begins anew: what is kept of it is of another build", flush=True)
            record = self.checks[check.name] = {
                **wanted, "seed": seed, "pieces": 0, "count": 0, "seconds": 0, "figures": {},
                "failures": [], "held_again": []}
        return record

    def keep(self, check, seed, count, outcome):
        """A piece that could not run stays to be done."""
        record = self.checks[check.name]
        record["cannot"] = outcome.cannot
        if not outcome.cannot:
            record["seconds"] += outcome.seconds
            self.keep_piece(record, seed, count, outcome)
        self.write()

    @staticmethod
    def keep_piece(record, seed, count, outcome):
        """A piece that had failed has been run again: this is what holds of it now."""
        before = [failure for failure in record["failures"]
                  if (failure["seed"], failure["count"]) == (seed, count)]
        record["failures"] = [failure for failure in record["failures"] if failure not in before]
        record["pieces"] += 0 if before else 1
        if outcome.reason:
            record["failures"].append({"seed": seed, "count": count, "reason": outcome.reason,
                                       "figures": outcome.figures})
        else:
            merge(record["figures"], outcome.figures)
            record["count"] += count
            record["held_again"] += before

    def write(self):
        """The file is whole at any moment: a long run may be killed."""
        if self.path is None:
            return
        self.path.parent.mkdir(parents=True, exist_ok=True)
        new = self.path.with_suffix(".new")
        new.write_text(json.dumps(self.checks, indent=1) + "\n", encoding="utf-8")
        os.replace(new, self.path)
