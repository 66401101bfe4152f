#!/usr/bin/env python3
"""Shows that the code in the documentation is code that is tested.

Usage: excerpts_lint.py ROOT
A code block of docs/integration.md stands below a comment with the name of a file, and is a run of that file's lines. Prints
the blocks for which that is not so, and exits with 1 when there is any.
"""
import re
import sys
from pathlib import Path

BLOCK = re.compile(r"(?:<!-- (\S+) -->\n)?```\w*\n(.*?)```\n", re.DOTALL)


def findings(root, text):
    for source, code in BLOCK.findall(text):
        if not source:
            yield f"a code block names no file: {code.splitlines()[0]}"
        elif code not in (root / source).read_text(encoding="utf-8"):
            yield f"not as in {source}: {code.splitlines()[0]}"


def main():
    root = Path(sys.argv[1])
    page = root / "docs/integration.md"
    text = page.read_text(encoding="utf-8")
    problems = list(findings(root, text))
    for problem in problems:
        print(f"{page.name}: {problem}")
    print(f"{len(BLOCK.findall(text))} code blocks, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
