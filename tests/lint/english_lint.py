#!/usr/bin/env python3
"""Finds sentences that make a reader stumble.

Usage: english_lint.py [--count] ROOT
Prints file, line and sentence for each of these, or with --count how many there are in each folder, and exits with 1 when
there is any:
- a sentence that opens with "What", "Whoever", "Who", "So many", "So often" or "As many" used as a noun; a question is fine
- "is no ..." and "is none"
It reads comments, names of tests and the texts of string literals that hold several words.
"""
import collections
import re
import subprocess
import sys
from pathlib import Path

OPENING = re.compile(r"^(What(?:ever)?|Whoever|Whom?|So many|So often|So much|As many|As often)\b")
NO_NOUN = re.compile(r"\b(?:is|are|was|were) (?:none\b|no (?!longer\b|more\b|less\b|fewer\b|better\b|other\b|different\b))")
# "There is no folder": the subject exists or does not, which is plain.
EXISTENCE = re.compile(r"\b(?:there|here) (?:is|are|was|were) (?:no|none)\b", re.IGNORECASE)
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
TEST = re.compile(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)|^TYPED_TEST(?:_P)?\((\w+),\s*(\w+)\)|^\s*def test_(\w+)\(|^@?def (\w+)\(")
C_LIKE = {".h", ".cpp", ".inc", ".c"}
HASH_LIKE = {".py", ".sh", ".cmake", ".txt", ".awk"}


def is_shell(path):
    return path.suffix == "" and path.read_bytes()[:2] == b"#!"


def comment_of(line, mark):
    """The comment of a line without its mark, and whether nothing stands before it; nothing when there is none."""
    bare = LITERAL.sub(lambda found: '"' + "x" * (len(found.group(0)) - 2) + '"', line)
    start = bare.find(mark)
    if start < 0 or (mark == "#" and start > 0 and not bare[start - 1].isspace()):
        return None
    return line[start:].lstrip("/#! *"), not bare[:start].strip()


def comment_blocks(lines, mark):
    """Comments, each as the list of its lines with their numbers. Lines that follow each other belong together."""
    block = []
    for number, line in enumerate(lines, 1):
        found = comment_of(line, mark)
        if found and found[1] and block:
            block.append((number, found[0]))
            continue
        if block:
            yield block
        block = [(number, found[0])] if found else []
    if block:
        yield block


def prose_blocks(lines, fences):
    """The paragraphs between `fences`: a pair of patterns that open and close them."""
    inside, block = False, []
    for number, line in enumerate(lines, 1):
        opens = not inside and re.search(fences[0], line)
        text = re.split(fences[0], line, 1)[1] if opens else line
        inside = inside or bool(opens)
        closes = inside and re.search(fences[1], text)
        if inside:
            block.append((number, re.split(fences[1], text, 1)[0].strip(" */")))
        if closes:
            inside = False
            yield block
            block = []


def sentences(block):
    """The sentences of a block with the number of the line that each begins on, and whether each is a question."""
    text, starts = "", []
    for number, line in block:
        starts.append((len(text), number))
        # A blank line or the item of a list begins a sentence of its own.
        text += ("\0 " if not line.strip() or re.match(r"[-*] ", line.strip()) else "") + line.strip().lstrip("-* ") + " "
    for found in re.finditer(r"[^\0.?!:]+(?:[.:](?!\s)[^\0.?!:]*)*[.?!:\0]?", text):
        sentence = found.group(0)
        begin = found.start() + len(sentence) - len(sentence.lstrip())
        number = [line for start, line in starts if start <= begin][-1]
        yield number, sentence.strip(" \0")


def complaints(sentence):
    plain = re.sub(r"`[^`]*`|\"[^\"]*\"", "x", sentence)
    if OPENING.match(plain) and not plain.endswith("?"):
        yield "opens with a clause as its subject"
    if NO_NOUN.search(EXISTENCE.sub("", plain)):
        yield 'says "is no" or "is none"'


def literals(lines):
    """Texts of several words outside comments."""
    for number, line in enumerate(lines, 1):
        if line.lstrip().startswith(("//", "#", "*")):
            continue
        for text in LITERAL.findall(line):
            if text.count(" ") >= 2 and re.match(r"[A-Za-z%<]", text):
                yield number, text


def test_names(lines):
    for number, line in enumerate(lines, 1):
        found = TEST.match(line)
        name = found and (found.group(2) or found.group(4) or found.group(5))
        if name:
            words = re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])|_", " ", name)
            yield number, words[:1].upper() + words[1:].lower()


def texts_of(path, lines):
    """Everything that the file says in English, as blocks."""
    if path.suffix in C_LIKE:
        yield from comment_blocks(lines, "//")
        yield from prose_blocks(lines, (r"/\*", r"\*/"))
    elif path.suffix == ".md":
        yield list(enumerate(lines, 1))
        return
    else:
        yield from comment_blocks(lines, "#")
        if path.suffix == ".py":
            yield from prose_blocks(lines, (r'"""', r'"""'))
    for single in (*literals(lines), *test_names(lines)):
        yield [single]


def findings(path, text):
    blocks = texts_of(path, text.splitlines())
    # A docstring is a comment and a literal.
    return sorted({(number, complaint, sentence) for block in blocks for number, sentence in sentences(block)
                   for complaint in complaints(sentence)})


def sources(root):
    listed = subprocess.run(["git", "-C", root, "ls-files", "-co", "--exclude-standard"], capture_output=True, text=True)
    for name in listed.stdout.splitlines():
        path = root / name
        known = path.suffix in C_LIKE | HASH_LIKE | {".md"}
        # The lint and its test quote what they look for.
        if path.is_file() and "english_lint" not in name and "/corpus/" not in name and (known or is_shell(path)):
            yield name, path


def lint(root):
    for name, path in sources(root):
        for number, complaint, sentence in findings(path, path.read_text(encoding="utf-8")):
            yield name, number, complaint, sentence


def folder_of(name):
    parts = name.split("/")[:-1]
    depth = 2 if parts[:1] and parts[0] in ("tests", "platform", "privileged", "foundation") else 1
    return "/".join(parts[:depth]) or "."


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--count"]
    found = sorted(lint(Path(arguments[0])))
    if "--count" in sys.argv:
        for folder, count in sorted(collections.Counter(folder_of(name) for name, *_ in found).items()):
            print(f"{count:5} {folder}")
    else:
        for name, number, complaint, sentence in found:
            print(f"{name}:{number}: {complaint}: {sentence[:100]}")
    print(f"{len(found)} sentences to rewrite")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
