#!/usr/bin/env python3
"""Checks every include of the tree against the arrows between the folders.

Usage: include_lint.py ROOT
Prints one line for each include that breaks a rule and exits with 1 when there is any. The rules are the table below:
which folders a folder may include, and what else from the system.
"""
import re
import sys
from pathlib import Path

# Folder (longest match counts) -> folders or single files that it may include besides itself.
ARROWS = {
    "app": ["privileged", "logging", "kit", "ui", "platform"],
    "privileged": ["logging", "kit", "platform"],
    "privileged/tool": ["protocol/InstructionArchive.h", "foundation/text/UTF8.h"],
    "logging": ["platform", "kit/NSBundle+Kelto.h", "kit/NSUserDefaults+Debug.h"],
    "kit": ["platform"],
    "ui": ["kit", "platform"],
    "platform": [],
    # The broker's names for what goes over the bus are shared by both of its ends.
    "platform/linux": ["platform", "platform/linux/authorizationd/Interface.h"],
    "platform/linux/qt": ["platform/linux", "platform"],
    "platform/linux/authorizationd": ["platform/Authorization.h", "platform/linux/Descriptor.h"],
    "platform/linux/defaults": ["platform/linux", "platform"],
    "platform/fake": ["platform"],
    "demo": ["platform", "platform/linux"],
    "examples": ["app", "privileged", "logging", "kit", "ui", "platform", "platform/linux"],
}
# Files that may include more than their folder: the localizer and the version parser log.
EXTRA = {
    "kit/KTLocalizer.h": ["logging/KTLogger.h"],
    "kit/KTLocalizer.cpp": ["logging/KTLogger.h"],
    "kit/NSBundle+KeltoVersion.cpp": ["logging/KTLogger.h"],
}
# Folders that include headers of the operating system and of libraries.
THIRD_PARTY = ["platform/linux", "demo", "examples"]
# A program of its own on the bare operating system: POSIX and Linux headers, but no library's.
BARE_SYSTEM = ["privileged/tool"]
BARE_SYSTEM_HEADER = re.compile(
    r"^(sys|linux|asm|bits)/|^(unistd|fcntl|dirent|errno|signal|spawn|poll|pwd|grp|fnmatch|limits|time|mntent|sched|syslog)\.h$")
OPERATING_SYSTEM = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*\b(__linux__|__APPLE__|_WIN32|__unix__|__gnu_linux__)\b")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def room_of(path):
    candidates = [room for room in ARROWS if path == room or path.startswith(room + "/")]
    return max(candidates, key=len, default=None)


def is_within(path, places):
    return any(path == place or path.startswith(place + "/") for place in places)


def may_include(source, target):
    room = room_of(source)
    target_room = room_of(target)
    if target_room == room or target in EXTRA.get(source, []):
        return True
    # An arrow to a folder does not reach the folders inside it that have a row of their own.
    return target in ARROWS[room] or target_room in ARROWS[room]


def problems_of_line(source, line):
    room = room_of(source)
    if OPERATING_SYSTEM.match(line) and not source.startswith("platform/"):
        yield "asks which operating system it is; only platform/ knows"
    found = INCLUDE.match(line)
    if not found:
        return
    kind, target = found.groups()
    if kind == '"':
        if room_of(target) is None:
            yield f'includes "{target}", which names no folder of the project'
        elif not may_include(source, target):
            yield f'includes "{target}"; {room}/ may include only {", ".join(ARROWS[room]) or "itself"}'
    elif "." in target or "/" in target:
        bare = is_within(source, BARE_SYSTEM) and BARE_SYSTEM_HEADER.match(target)
        if not bare and not is_within(source, THIRD_PARTY):
            yield f"includes <{target}>; third-party and system headers belong behind platform/"


def includes_of(root, path):
    for line in (root / path).read_text(encoding="utf-8").splitlines():
        found = INCLUDE.match(line)
        if found and found.group(1) == '"' and (root / found.group(2)).exists():
            yield found.group(2)


def loops(root, files):
    """Chains of files that include each other."""
    graph = {path: list(includes_of(root, path)) for path in files}
    state = {}

    def visit(path, chain):
        if state.get(path) == "done":
            return
        if path in chain:
            yield " -> ".join(chain[chain.index(path):] + [path])
            return
        for target in graph.get(path, []):
            yield from visit(target, chain + [path])
        state[path] = "done"

    for path in files:
        yield from visit(path, [])


def lint(root):
    files = sorted(str(path.relative_to(root)) for pattern in ("*.h", "*.cpp") for path in root.rglob(pattern))
    files = [path for path in files if room_of(path)]
    found = []
    for path in files:
        for number, line in enumerate((root / path).read_text(encoding="utf-8").splitlines(), 1):
            found += [f"{path}:{number}: {problem}" for problem in problems_of_line(path, line)]
    found += [f"loop: {loop}" for loop in loops(root, files)]
    return files, found


def main():
    root = Path(sys.argv[1])
    files, found = lint(root)
    print("\n".join(found))
    if not files:
        print(f"no source files below {root}")
        return 1
    print(f"{len(files)} files, {len(found)} problems")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
