"""Where one thing can be changed, and how. A place is known by its file, the text of its line, which
of the lines with this text it is, and the change; so it stays the same when lines move."""
import collections
import hashlib
import re

import masking
import statements

OPPOSITES = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&"}
COMPARISON = re.compile(r'(?<=[\s])(==|!=|<=|>=|<|>|&&|\|\|)(?=\s)')
NOT = re.compile(r'(?<![\w)\]!])!(?=[\w(:])')
NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)(?![\w.'])")
TRUTH = re.compile(r'\b(true|false)\b')
COMPARED = re.compile(r'(?:==|!=|<|>|<=|>=) $')  # the comparison is a place already
FLAG = re.compile(r' \| ([A-Z][A-Z_]{3,})\b(?!\()')
PURE = re.compile(r'\)\s*(?:const\s*)?(?:noexcept\s*)?(?:override\s*)?=\s*$')
LINE = re.compile(r'[^\n]*')


class Place:
    """`begin`, `end` and `text` say what is replaced by what in the file."""

    def __init__(self, file, begin, end, text, change):
        self.file, self.begin, self.end, self.text, self.change = file, begin, end, text, change
        self.line = self.words = self.occurrence = None

    @property
    def key(self):
        return self.file, self.words, self.occurrence, self.change

    @property
    def rank(self):
        """An order that is as good as one by chance, and the same everywhere."""
        return hashlib.sha256("\t".join(map(str, self.key)).encode()).hexdigest()

    @property
    def kind(self):
        return re.sub(r"^flag .*|^[\d'xa-fA-F]+[uUlL]* becomes .*|, number \d+$", "", self.change)

    def __str__(self):
        return f"{self.file}:{self.line}: {self.change}: {self.words}"

    def apply(self, source):
        return source[:self.begin] + self.text + source[self.end:]


def number_changed(digits):
    """A small one grows by one; of a large one half is left, since one more would rarely be seen."""
    plain = digits.replace("'", "")
    value = int(plain, 16 if plain[:2].lower() == "0x" else 8 if plain[0] == "0" else 10)
    return "+ 1" if value < 10 else "/ 2"


def of_flags(file, text):
    for match in FLAG.finditer(text):
        yield Place(file, match.start(), match.end(), "", f"flag {match.group(1)} goes")


def digits_are_zero(match):
    return match.group(1) == "0"


def of_words(file, text):
    for match in COMPARISON.finditer(text):
        new = OPPOSITES[match.group()]
        yield Place(file, match.start(), match.end(), new, f"{match.group()} becomes {new}")
    for match in NOT.finditer(text):
        yield Place(file, match.start(), match.end(), "", "! goes")
    for match in TRUTH.finditer(text):
        new = "false" if match.group() == "true" else "true"
        yield Place(file, match.start(), match.end(), new, f"{match.group()} becomes {new}")


def of_numbers(file, text):
    for match in NUMBER.finditer(text):
        before = text[:match.start()]
        length_of_array = file.endswith(".h") and before.endswith("[")
        compared = digits_are_zero(match) and COMPARED.search(before[-4:])
        if length_of_array or compared or PURE.search(before[-60:]):
            continue
        new = f"({match.group()} {number_changed(match.group(1))})"
        yield Place(file, match.start(), match.end(), new, f"{match.group()} becomes {new[1:-1]}")


def of_conditions(file, text, source):
    for word, begin, end, leaves in statements.conditions(text):
        condition = text[begin:end]
        if re.search(r';|[^=!<>]=[^=]', condition):
            continue
        if leaves and word == "if":
            yield Place(file, begin, end, f"false && ({source[begin:end]})", "guard goes")
        if not COMPARISON.search(condition) and not NOT.match(condition):
            yield Place(file, begin, end, f"!({source[begin:end]})", "condition is negated")


def of_statements(file, text, source):
    found = statements.statements(text)
    for each in found:
        yield Place(file, each.begin, each.end, ";", f"{each.kind} goes")
    for one, other in statements.neighbours(text, found):
        first, between = source[one.begin:one.end], source[one.end:other.begin]
        second = source[other.begin:other.end]
        yield Place(file, one.begin, other.end, second + between + first, "changes place with the next")


def in_file(file, source):
    """All places of a source, by their order in it."""
    text = masking.masked(source)
    places = [*of_words(file, text), *of_flags(file, text), *of_numbers(file, text), *of_conditions(file, text, source),
              *of_statements(file, text, source)]
    places.sort(key=lambda place: (place.begin, place.end, place.change))
    of_line = collections.Counter()
    numbers = {}
    for number, match in enumerate(match for match in LINE.finditer(source)
                                   if match.start() == 0 or source[match.start() - 1] == "\n"):
        words = match.group().strip()
        of_line[words] += 1
        numbers[number + 1] = (words, of_line[words])
    alike = collections.Counter()
    for place in places:
        place.line = source.count("\n", 0, place.begin) + 1
        place.words, place.occurrence = numbers[place.line]
        alike[(place.line, place.change)] += 1
        if alike[(place.line, place.change)] > 1:
            place.change += f", number {alike[(place.line, place.change)]}"
    return places


def by_turns(places):
    """One of each kind, then another one of each."""
    turns = collections.Counter()
    keyed = []
    for place in sorted(places, key=lambda each: each.rank):
        turns[place.kind] += 1
        keyed.append((turns[place.kind], place.rank, place))
    return [place for _, _, place in sorted(keyed, key=lambda each: each[:2])]


def of_project(root, folders=("portable", "RegLib")):
    """All places, spread: whatever number is taken from the front, each file has its share, and in a file
    each kind of change."""
    ordered = []
    files = sorted(path for folder in folders for path in (root / folder).rglob("*")
                   if path.suffix in (".cpp", ".h"))
    for path in files:
        found = in_file(str(path.relative_to(root)), path.read_text(encoding="utf-8"))
        found = by_turns(found)
        ordered += [(index / len(found), place.rank, place) for index, place in enumerate(found)]
    return [place for _, _, place in sorted(ordered, key=lambda each: each[:2])]
