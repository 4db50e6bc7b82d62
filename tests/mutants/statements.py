"""The statements of a masked source that may be taken out or exchanged."""
import re

from masking import end_of_bracket

NOT_ALONE = re.compile(
    r'(?:return|if|for|while|switch|throw|do|else|case|using|goto|break|continue|new|typedef|friend'
    r'|default|template|namespace|struct|class|enum|const|constexpr|static|auto|operator)\b')
CALL = re.compile(r'(?:\(void\))?(?:::)?[\w*(][^=;]*\)')
CHANGE = re.compile(r'\*?[\w:.>\[\]()-]+ (?:[-+*/|&^]|<<|>>)?= [^;]+|(?:\+\+|--)[^=;]+|[^=; ]+(?:\+\+|--)')
DELETE = re.compile(r'delete(?:\[\])? .+')
DECLARATION = re.compile(r'[\w:<>,*&]+(?: const)?[*& ]+[\w:]+(?:\(.*\)|\{.*\})?')
GUARD = re.compile(r'(?:const )?[\w:]*(?:Guard|Lock|NoCancellation|AtEnd|Keeper)\w*(?:<[^;]*>)? \w+(?:\(.*\)|\{.*\})?')
LABEL = re.compile(r'\s*(?:case [^:;]+(?:::\w+)*|default|public|private|protected)\s*:(?!:)')
OF_DECLARATIONS = re.compile(r'(?:^|[\s:>])(?:class|struct|enum|union|namespace)\b[^()=]*$|\bextern "')


class Statement:
    def __init__(self, begin, end, kind, block):
        self.begin, self.end, self.kind, self.block = begin, end, kind, block


def kind_of(words):
    """"call", "change" or "guard" for what can be done without as far as a compiler knows."""
    words = re.sub(r'\s+', ' ', words).strip()
    if GUARD.fullmatch(words):
        return "guard"
    if NOT_ALONE.match(words):
        return None
    if DELETE.fullmatch(words):
        return "call"
    if CHANGE.fullmatch(words):
        return "change"
    return "call" if CALL.fullmatch(words) and not DECLARATION.fullmatch(words) else None


def statements(text):
    """In the order of their ends. The frames are the brackets that are open: what each is, where the
    statement in it began, and whether it has statements at all."""
    found = []
    frames = [["{", 0, False]]
    for index, letter in enumerate(text):
        if letter in "([":
            frames.append([letter, index + 1, False])
        elif letter == "{":
            before = text[frames[-1][1]:index]
            code = not OF_DECLARATIONS.search(before)
            frames.append(["{", index + 1, code])
        elif letter in ")]":
            frames.pop()
        elif letter == "}":
            frames.pop()
            # `{1}` within a statement is no block.
            if frames[-1][0] == "{" and not re.match(r'\s*[;,.)]', text[index + 1:index + 40]):
                frames[-1][1] = index + 1
        elif letter == ";" and frames[-1][0] == "{":
            begin, is_code = frames[-1][1], frames[-1][2]
            frames[-1][1] = index + 1
            if label := LABEL.match(text, begin, index):
                begin = label.end()
            begin += len(text[begin:index]) - len(text[begin:index].lstrip())
            kind = kind_of(text[begin:index]) if is_code else None
            if kind:
                found.append(Statement(begin, index + 1, kind, len(frames)))
    return found


def neighbours(text, found):
    """Pairs of calls and changes with nothing between them."""
    ordered = sorted(found, key=lambda each: each.begin)
    for one, other in zip(ordered, ordered[1:]):
        alike = one.block == other.block and "guard" not in (one.kind, other.kind)
        if alike and not text[one.end:other.begin].strip():
            yield one, other


def conditions(text):
    """Of each if and while: the word, where the condition begins and ends, and whether what follows only
    leaves, which makes it a guard."""
    for match in re.finditer(r'\b(if|while) \(', text):
        begin = match.end() - 1
        end = end_of_bracket(text, begin)
        leaves = False
        if block := re.compile(r'\s*\{\s*(?:return|continue|break|throw)\b[^;]*;\s*\}').match(text, end):
            leaves = block.group().count("{") == 1 or "{}" in block.group()
        yield match.group(1), begin + 1, end - 1, leaves
