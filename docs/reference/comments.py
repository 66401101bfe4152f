#!/usr/bin/env python3
"""Prints a header with its comments as Doxygen takes them.

Usage: comments.py HEADER
The comment at the head belongs to the file, one on lines of its own to what follows, one behind a declaration to that.
Lines that are indented in a comment are code; in the rest no character has a meaning of its own.
"""
import re
import sys

OWN_LINE = re.compile(r"^(?P<indent>\s*)//(?P<text>.*)$")
BEHIND = re.compile(r"^(?P<code>.*\S)\s+// (?P<text>.*)$")
CODE = "    "


def escaped(text):
    return re.sub(r"([\\@<>&#%\"$])", r"\\\1", text)


def block(indent, lines):
    """One comment on lines of its own."""
    result = []
    is_code = False
    for line in lines:
        text = line[1:] if line.startswith(" ") else line
        begins_code = text.startswith("  ")
        if begins_code != is_code and text:
            result.append(f"{indent}/// @{'code' if begins_code else 'endcode'}" + ("{.cpp}" if begins_code else ""))
            is_code = begins_code
        result.append(f"{indent}/// {text if is_code else escaped(text)}".rstrip())
    return result + ([f"{indent}/// @endcode"] if is_code else [])


def converted(lines):
    result = []
    comment = []
    is_head = True
    for line in [*lines, ""]:
        own = OWN_LINE.match(line)
        if own:
            comment.append(own)
            continue
        if comment:
            if is_head:
                result.append("/// @file")
            result += block(comment[0]["indent"], [each["text"] for each in comment])
            if is_head:
                result.append("")
            comment = []
        is_head = is_head and (not line or line.startswith("#pragma once"))
        behind = BEHIND.match(line)
        result.append(f"{behind['code']}  ///< {escaped(behind['text'])}" if behind and '"' not in behind["code"] else line)
    return result


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as header:
        print("\n".join(converted(header.read().splitlines())))
