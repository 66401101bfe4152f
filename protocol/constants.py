"""The constants of the headers in this folder, for programs in Python: constants()["key::filePath"] is a text.

A name has the namespaces that it stands in, without "protocol"; a constant with several texts is a tuple of them.
"""
import re
from pathlib import Path

NAMESPACE = re.compile(r"^(?:inline )?namespace ([\w:]+) \{")
END = re.compile(r"^\}+\s*// namespace ([\w:]+)")
CONSTANT = re.compile(r"\bconstexpr\b[^=;(]*?\b(\w+)\s*(?:\[\w*\])?\s*(?:=|\{)([^;]*);")
COMMENT = re.compile(r'^\s*//.*|\s+//[^"]*$|(?<=[;,{])\s+//.*$')
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def constants_of(text):
    """The constants of one header: their names and their literals."""
    spaces, statement = [], ""
    for line in text.splitlines():
        opened, closed = NAMESPACE.match(line), END.match(line)
        if opened:
            spaces.append(opened.group(1))
        elif closed and spaces:
            spaces.pop()
        code = COMMENT.sub("", line)
        statement += code + "\n"
        if not code.rstrip().endswith(";"):
            continue
        found = CONSTANT.search(statement)
        statement = ""
        if found and LITERAL.search(found.group(2)):
            name = "::".join([*spaces, found.group(1)])
            yield re.sub(r"^protocol::", "", name), tuple(LITERAL.findall(found.group(2)))


def constants(folder=Path(__file__).parent):
    known = {}
    for path in sorted(folder.glob("*.h")):
        for name, texts in constants_of(path.read_text(encoding="utf-8")):
            known[name] = texts[0] if len(texts) == 1 else texts
    return known
