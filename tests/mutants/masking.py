"""Sources without what is no code: the same text, of the same length, with blanks in its place."""
import re

WORDLESS = re.compile(
    r'//[^\n]*'
    r'|/\*.*?\*/'
    r'|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'"
    r'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*',
    re.MULTILINE | re.DOTALL)
# Annotations, what is checked when it is compiled, and what only writes a line of the trace.
NO_CODE = re.compile(
    r'\b(?:REGLIB_TRACE|static_assert|alignas|__attribute__|CAPABILITY|GUARDED_BY|REQUIRES|ACQUIRE'
    r'|TRY_ACQUIRE|RELEASE|NO_THREAD_SAFETY_ANALYSIS|SCOPED_CAPABILITY)\b')
ATTRIBUTE = re.compile(r'\[\[\w+(?:\([^)]*\))?\]\]')


def blank(text):
    return re.sub(r'[^\n]', ' ', text)


def without_words(match):
    """A text keeps its quotes, so that it still stands for something; a comment or directive goes."""
    found = match.group()
    if found[0] not in "\"'":
        return blank(found)
    return found[0] + "S" * (len(found) - 2) + found[-1]


def end_of_bracket(text, begin):
    """The index behind the bracket that closes the one at `begin`."""
    depth = 0
    for index in range(begin, len(text)):
        if text[index] in "([{":
            depth += 1
        elif text[index] in ")]}":
            depth -= 1
            if depth == 0:
                return index + 1
    raise ValueError("a bracket is not closed")


def masked(text):
    text = WORDLESS.sub(without_words, text)
    text = ATTRIBUTE.sub(lambda match: blank(match.group()), text)
    at = 0
    while match := NO_CODE.search(text, at):
        end = match.end()
        if text[end:end + 1] == "(":
            end = end_of_bracket(text, end)
        trace = match.group() == "REGLIB_TRACE" and text[end:end + 1] == ";"
        text = text[:match.start()] + blank(text[match.start():end + trace]) + text[end + trace:]
        at = end
    return text
