#!/usr/bin/env python3
"""Shows that what two programs agree on stands once, in protocol/.

Usage: protocol_lint.py ROOT
The texts are the literals of the constants in protocol/*.h, and the names in protocol/*.xml. Prints file, line and text for
each string literal that repeats one of them elsewhere, in C++ and in Python, and exits with 1 when there is any. A text of
one plain word, such as "command", counts only where it is the whole literal; any other also inside a longer literal. C++
includes the header; Python asks constants() of protocol/constants.py, which reads the headers, or parses the XML.
"""
import importlib.util
import re
import sys
from pathlib import Path

FOLDERS = ("app", "cli", "privileged", "posix", "platform", "logging", "kit", "ui", "foundation", "demo", "examples", "sdk", "fuzz", "tests", "bench")
SUFFIXES = {".h", ".cpp", ".inc", ".c", ".py"}
LITERAL = re.compile(r"\"((?:[^\"\\]|\\.)*)\"|'((?:[^'\\]|\\.)*)'")
WEAK = re.compile(r"^[A-Za-z]?[a-z]+$")
# The lints quote texts to find them.
# The seam knows no protocol, and names the administrator right itself; the broker asserts that the two names are one.
# One example shows every name on the wire; its end-to-end test fails when one is wrong.
# A key of desktop entries has the name of a property of the broker.
EXEMPT = re.compile(r"^tests/lint/|^privileged/tool/DesktopEntry\.cpp$|^platform/Authorization\.h$|^sdk/examples/python/dbus_editor\.py$")


def constants_module():
    path = Path(__file__).resolve().parents[2] / "protocol/constants.py"
    spec = importlib.util.spec_from_file_location("constants", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def texts_of(root):
    """Every text of the protocol, with the file that holds it."""
    for path in sorted((root / "protocol").glob("*.h")):
        for _, texts in constants_module().constants_of(path.read_text(encoding="utf-8")):
            yield from ((text, path.name) for text in texts if len(text) > 2)
    for path in sorted((root / "protocol").glob("*.xml")):
        for name in re.findall(r"<(?:interface|method|signal|node) name=\"([^\"]+)\"", path.read_text(encoding="utf-8")):
            yield name, path.name


def code_of(line, suffix):
    """The line without its comment."""
    mark = "#" if suffix == ".py" else "//"
    kept = LITERAL.sub(lambda found: "x" * len(found.group(0)), line)
    end = kept.find(mark)
    return line if end < 0 or (suffix != ".py" and line.lstrip().startswith("#")) else line[:end]


def repeated(literal, texts):
    """The longest text of the protocol that the literal repeats."""
    return max((text for text in texts if literal == text or (text in literal and not WEAK.match(text))), key=len, default=None)


def findings(path, content, texts):
    for number, line in enumerate(content.splitlines(), 1):
        code = code_of(line, path.suffix)
        if re.match(r"\s*#\s*include", code):
            continue
        for found in LITERAL.finditer(code):
            text = repeated(found.group(1) or found.group(2) or "", texts)
            if text:
                yield number, text


def lint(root):
    texts = dict(texts_of(root))
    found = []
    for path in sorted(path for folder in FOLDERS for path in (root / folder).rglob("*") if path.suffix in SUFFIXES):
        name = str(path.relative_to(root))
        if not EXEMPT.match(name):
            found += [f'{name}:{number}: "{text}" stands in protocol/{texts[text]}'
                      for number, text in findings(path, path.read_text(encoding="utf-8"), texts)]
    return texts, found


def main():
    texts, found = lint(Path(sys.argv[1]))
    print("\n".join(found))
    print(f"{len(texts)} texts in protocol/, {len(found)} repeated elsewhere")
    return 1 if found or not texts else 0


if __name__ == "__main__":
    sys.exit(main())
