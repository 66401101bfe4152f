#!/usr/bin/env python3
"""Runs clang-tidy over the sources that changed since they were last found clean.

Usage: tidy_lint.py ROOT BUILD_FOLDER
A file is clean when clang-tidy says nothing about it. The lint keeps a mark for each clean file in the build folder by the hash of
the file, of the project's headers and of the configuration, so that a run without changes takes no time. Files that are compiled
joined are read joined, which takes a fraction of the time.
"""
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess
import sys
from pathlib import Path


def digest(paths):
    total = hashlib.sha256()
    for path in paths:
        total.update(path.read_bytes())
    return total.hexdigest()


def check(path, build):
    # The analyser follows every path through every assertion, which takes long and finds nothing in tests.
    is_test = path.name.startswith("test_") or path.name.endswith("_test.cpp") or "tests" in path.parts
    left_out = [*(["-clang-analyzer-*"] if is_test else []), *(["-bugprone-suspicious-include"] if is_joined(path) else [])]
    checks = ["--checks=" + ",".join(left_out)] if left_out else []
    command = ["clang-tidy", "--quiet", *checks, "--extra-arg=-Wno-unknown-warning-option", f"-p={build}", str(path)]
    run = subprocess.run(command, capture_output=True, text=True)
    lines = [line for line in (run.stdout + run.stderr).splitlines() if "warnings generated" not in line]
    return run.returncode == 0, "\n".join(lines)


def is_checked(path, root, build):
    """Whether the project wrote it: the build folder holds joined files, and what Qt generates."""
    return path.is_relative_to(root) and (not path.is_relative_to(build) or is_joined(path))


def is_joined(path):
    return path.parent.name in ("joined", "Unity")


def sources_of(path):
    """The file, or those that it joins."""
    joined = re.findall(r'^#include "(/.+[.]cpp)"$', path.read_text(), re.MULTILINE) if is_joined(path) else []
    return [path, *map(Path, joined)]


def main():
    root, build = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
    database = json.loads((build / "compile_commands.json").read_text())
    files = sorted({Path(entry["file"]) for entry in database
                    if is_checked(Path(entry["file"]), root, build)})
    settings = sorted(path for name in (".clang-tidy", "*/.clang-tidy") for path in root.glob(name))
    headers = sorted(path for path in root.glob("*/**/*.h") if not path.is_relative_to(root / "build"))
    common = digest([*settings, *headers])
    stamps = build / "clang-tidy-stamps"
    stamps.mkdir(exist_ok=True)
    todo = {}
    for path in files:
        stamp = stamps / hashlib.sha256((common + digest(sources_of(path)) + str(path)).encode()).hexdigest()
        if not stamp.exists():
            todo[path] = stamp
    problems = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for (path, stamp), (clean, text) in zip(todo.items(), pool.map(lambda path: check(path, build), todo)):
            if clean:
                stamp.touch()
            else:
                problems += 1
                print(text, flush=True)
    print(f"{len(files)} files, {len(todo)} checked now, {problems} with problems")
    return 1 if problems or not files else 0


if __name__ == "__main__":
    sys.exit(main())
