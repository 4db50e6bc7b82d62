"""What is known of each place: results.tsv and equivalent.tsv, both kept with the sources.

A result is "killed", "survived" or "unbuildable", and by which test. An equivalent change is one that
nobody can see, with the reason why; in its column of changes a * stands for all changes of that line.
Records of lines that are gone go as well.
"""
import os

RESULTS = ("file", "line", "occurrence", "change", "outcome", "by")
EQUIVALENT = ("file", "line", "occurrence", "change", "reason")


def read_table(path, columns):
    if not path.exists():
        return []
    rows = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        cells = line.split("\t")
        if line and not line.startswith("#"):
            if len(cells) != len(columns) or not all(cells[:5]):
                raise SystemExit(f"{path}:{number}: not the {len(columns)} columns {', '.join(columns)}")
            rows.append(dict(zip(columns, cells)))
    return rows


def key_of(row):
    return row["file"], row["line"], int(row["occurrence"]), row["change"]


class Records:
    def __init__(self, directory):
        self.path = directory / "results.tsv"
        self.results = {key_of(row): (row["outcome"], row["by"])
                        for row in read_table(self.path, RESULTS)}
        self.reasons = {key_of(row): row["reason"]
                        for row in read_table(directory / "equivalent.tsv", EQUIVALENT)}

    def outcome(self, place):
        return self.results.get(place.key, (None, ""))[0]

    def by(self, place):
        return self.results.get(place.key, (None, ""))[1]

    def reason(self, place):
        return self.reasons.get(place.key) or self.reasons.get((*place.key[:3], "*"))

    def keep(self, place, outcome, by):
        self.results[place.key] = (outcome, by)

    def write(self, places):
        known = {place.key for place in places}
        lines = ["# " + "\t".join(RESULTS)]
        for key in sorted(key for key in self.results if key in known):
            lines.append("\t".join([*map(str, key), *self.results[key]]))
        part = self.path.with_name("results.tsv.part")
        part.write_text("\n".join(lines) + "\n", encoding="utf-8")
        os.replace(part, self.path)

    def stray_reasons(self, places):
        """Reasons for what is no place any more."""
        lines = {place.key[:3] for place in places}
        known = {place.key for place in places}
        return [key for key in self.reasons
                if key not in known and not (key[3] == "*" and key[:3] in lines)]
