#!/usr/bin/env python3
"""Runs the Python of Markdown texts: check_python.py FILE...

The blocks of one text are one program. A block of text that follows one of Python, with nothing but an empty
line between, is what that prints.
"""
import contextlib
import io
import pathlib
import re
import sys

BLOCK = re.compile(r"^```python\n(.*?)^```\n(?:\n```text\n(.*?)^```\n)?", re.MULTILINE | re.DOTALL)


def check(path: pathlib.Path) -> int:
    """How many blocks it has run. Ends the program at one that prints something else than is shown."""
    text = path.read_text(encoding="utf-8")
    names: dict[str, object] = {"__name__": "__main__"}
    count = 0
    for block in BLOCK.finditer(text):
        place = f"{path}:{text.count(chr(10), 0, block.start()) + 1}"
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            exec(compile(block[1], place, "exec"), names)
        if block[2] is not None and printed.getvalue() != block[2]:
            sys.exit(f"{place}: it prints\n{printed.getvalue()}and not\n{block[2]}")
        count += 1
    return count


for name in sys.argv[1:]:
    blocks = check(pathlib.Path(name))
    if blocks == 0:
        sys.exit(f"{name} has no Python")
    print(f"{name}: {blocks} blocks")
