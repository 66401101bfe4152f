#!/usr/bin/env python3
"""Literal formats that do not fit their arguments must not compile, each for its own reason; those that fit must.

Usage: format_checks.py ROOT COMPILER
"""
import itertools
import os
import re
import subprocess
import sys

HEAD = """#include "logging/FormatString.h"
struct Unprintable {};
struct Printed { friend std::ostream& operator<<(std::ostream& stream, const Printed&) { return stream; } };
template <class... Arguments>
void log(std::type_identity_t<logging::FormatString<Arguments...>> format, const Arguments&... arguments) {
  logging::withArguments([](auto) {}, arguments...);
  (void)format;
}
"""

BAD = [
    ('log("%@ and %@", 1);', "aConversionHasNoArgument"),
    ('log("%d");', "aConversionHasNoArgument"),
    ('log("%3$@", 1, 2);', "aConversionHasNoArgument"),
    ('log("%@", 1, 2);', "anArgumentHasNoConversion"),
    ('log("none", "text");', "anArgumentHasNoConversion"),
    ('log("%2$@", 1, 2);', "anArgumentHasNoConversion"),
    ('log("%y", 1);', "theConversionIsNotKnown"),
    ('log("100%");', "theConversionIsNotKnown"),
    ('log("%n", 1);', "theConversionIsNotKnown"),
    ('log("%d", "text");', "theArgumentDoesNotFitItsConversion"),
    ('log("%s", 5);', "theArgumentDoesNotFitItsConversion"),
    ('log("%f", 5);', "theArgumentDoesNotFitItsConversion"),
    ('log("%x", 1.5);', "theArgumentDoesNotFitItsConversion"),
    ('log("%p", 5);', "theArgumentDoesNotFitItsConversion"),
    ('log("%@", Unprintable());', "an argument of a format must be text"),
]

GOOD = [
    'log("nothing");',
    'log("%@ of %d, %5.1f%% at %p", "text", 5, 1.5, static_cast<const void*>(nullptr));',
    'log("%2$@ before %1$d", 5, "text");',
    'log("%1$+05.2f of %2$zu %%", 1.5, 2);',
    'log("%llu %hhx %-5s", 5ull, 5, std::string("text"));',
    'log("%@ %@ %@", 1, 1.5, Printed());',
    'log(static_cast<const char*>(nullptr), 1);',
    'log(std::string("%@ made at run time"));',
]


def errors_of(root, compiler, statements):
    """The compiler's complaints about each statement, by its place in the list."""
    lines = [f"void f{number}() {{ {statement} }}" for number, statement in enumerate(statements)]
    source = HEAD + '#line 0 "statements"\n' + "\n".join(lines) + "\n"
    run = subprocess.run([compiler, "-std=c++20", "-fsyntax-only", "-I", root, "-x", "c++", "-"], input=source,
                         capture_output=True, text=True, env={**os.environ, "LC_ALL": "C"})
    messages = [line for line in run.stderr.splitlines() if re.match(r"\S+:\d+(:\d+)?: ", line)]
    # g++ names the statement before an error that lies in a header, clang after it, in a note.
    errors = {}
    place = None
    for number, message in enumerate(messages):
        if mentioned := re.match(r"statements:(\d+):", message):
            place = int(mentioned[1])
        if " error: " not in message:
            continue
        notes = list(itertools.takewhile(lambda line: ": note: " in line, messages[number + 1:]))
        later = re.search(r"^statements:(\d+):", "\n".join([message] + notes), re.MULTILINE)
        errors.setdefault(int(later[1]) if later else place, []).extend([message] + notes)
    return errors


def main():
    root, compiler = sys.argv[1:]
    problems = [f"refused: {errors}" for errors in errors_of(root, compiler, GOOD).values()]
    errors = errors_of(root, compiler, [statement for statement, _ in BAD])
    for number, (statement, reason) in enumerate(BAD):
        found = errors.pop(number, [])
        if not any(reason in line for line in found):
            problems.append(f"{statement} should not compile because of {reason}; found: {found}")
    problems += [f"not understood: {rest}" for rest in errors.values()]
    print("\n".join(problems) or f"{len(GOOD)} formats accepted, {len(BAD)} refused")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
