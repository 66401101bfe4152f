#!/usr/bin/env python3
"""Checks every include of the tree against the table of ARCHITECTURE.md that says which folder may include what.

Usage: include_lint.py ROOT
Prints one line for each include that breaks a rule, each arrow of the table that no include uses and each loop, and exits
with 1 when there is any. The table has the columns `folder`, `holds` and `may include`. Names of folders and files stand in
backquotes there. A row may also name single files, which then may include more than their folder. In the last column:
"everything" allows every folder of the table and every library, "third-party headers" every library, "POSIX headers" those
of the bare operating system, a header in angle brackets this one alone. The standard library needs no mention. A folder
inside a folder belongs to it unless it has a row of its own; then arrows to the outer folder do not reach it.
"""
import re

import lint_report

HEADER = "| folder | holds | may include |"
BARE_SYSTEM_HEADER = re.compile(
    r"^(sys|linux|asm|bits)/|"
    r"^(unistd|fcntl|dirent|errno|signal|spawn|poll|pwd|grp|fnmatch|limits|time|mntent|sched|syslog)\.h$")
OPERATING_SYSTEM = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif)\b.*\b(__linux__|__APPLE__|_WIN32|__unix__|__gnu_linux__)\b")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


class Row:
    """The permissions of one row of the table."""

    def __init__(self, cell=""):
        self.targets = [name.rstrip("/") for name in re.findall(r"`([^`]+)`", cell)]
        self.everything = "everything" in cell
        self.third_party = self.everything or "third-party headers" in cell
        self.bare_system = "POSIX headers" in cell

    def allows(self, target, target_room):
        return self.everything or target in self.targets or target_room in self.targets


class Table:
    def __init__(self, text):
        self.folders, self.files = {}, {}
        for cells in self._rows(text):
            row = Row(cells[2])
            for name in re.findall(r"`([^`]+)`", cells[0]):
                (self.folders if name.endswith("/") else self.files)[name.rstrip("/")] = row

    @staticmethod
    def _rows(text):
        lines = text.splitlines()
        if HEADER not in lines:
            return
        for line in lines[lines.index(HEADER) + 2:]:
            if not line.startswith("|"):
                return
            yield [cell.strip() for cell in line.strip("|").split("|")]

    def room_of(self, path):
        return max((room for room in self.folders if path.startswith(room + "/")), key=len, default=None)

    def rows_for(self, source):
        return [row for row in (self.folders[self.room_of(source)], self.files.get(source)) if row]

    def targets(self):
        """Every arrow: the folder or file it starts from, and where it leads."""
        return {(source, target) for rows in (self.folders, self.files) for source, row in rows.items() for target in row.targets}


class Lint:
    def __init__(self, root):
        self.root = root
        self.table = Table((root / "ARCHITECTURE.md").read_text(encoding="utf-8"))
        self.used = set()
        files = (str(path.relative_to(root)) for pattern in ("*.h", "*.cpp", "*.inc") for path in root.rglob(pattern))
        self.files = sorted(path for path in files if self.table.room_of(path))

    def project_include(self, source, target):
        room, target_room = self.table.room_of(source), self.table.room_of(target)
        if target_room is None:
            yield f'includes "{target}", which names no folder of the table in ARCHITECTURE.md'
            return
        self.used |= {(start, end) for start in (room, source) for end in (target, target_room)}
        rows = self.table.rows_for(source)
        if target_room != room and not any(row.allows(target, target_room) for row in rows):
            allowed = ", ".join(name for row in rows for name in row.targets)
            yield f'includes "{target}"; {room}/ may include only {allowed or "itself"}'

    def library_include(self, source, target):
        rows = self.table.rows_for(source)
        standard = "." not in target and "/" not in target and not target.startswith("Q")
        bare = BARE_SYSTEM_HEADER.match(target) and any(row.bare_system for row in rows)
        named = any(f"<{target}>" in row.targets for row in rows)
        self.used |= {(start, f"<{target}>") for start in (self.table.room_of(source), source)}
        if not standard and not bare and not named and not any(row.third_party for row in rows):
            yield f"includes <{target}>; its folder may not include third-party or system headers"

    def problems_of_line(self, source, line):
        if OPERATING_SYSTEM.match(line) and not any(row.third_party for row in self.table.rows_for(source)):
            yield "asks which operating system it is; only folders below platform/ know"
        found = INCLUDE.match(line)
        if found:
            check = self.project_include if found.group(1) == '"' else self.library_include
            yield from check(source, found.group(2))

    def lines_of(self, path):
        return enumerate((self.root / path).read_text(encoding="utf-8").splitlines(), 1)

    def problems(self):
        if not self.table.folders:
            return [f"ARCHITECTURE.md has no table with the header {HEADER}"]
        found = [f"{path}:{number}: {problem}" for path in self.files for number, line in self.lines_of(path)
                 for problem in self.problems_of_line(path, line)]
        unused = sorted(self.table.targets() - self.used)
        found += [f"ARCHITECTURE.md: no file uses the arrow from {source} to {target}" for source, target in unused]
        return found + [f"loop: {loop}" for loop in self.loops()]

    def includes_of(self, path):
        for _, line in self.lines_of(path):
            found = INCLUDE.match(line)
            if found and found.group(1) == '"':
                yield found.group(2)

    def loops(self):
        """Chains of files that include each other."""
        graph = {path: list(self.includes_of(path)) for path in self.files}
        done = set()

        def visit(path, chain):
            if path in chain:
                yield " -> ".join(chain[chain.index(path):] + [path])
            elif path not in done:
                for target in graph.get(path, []):
                    yield from visit(target, chain + [path])
                done.add(path)

        for path in self.files:
            yield from visit(path, [])


def lint(root):
    check = Lint(root)
    return check.files, check.problems()


if __name__ == "__main__":
    lint_report.end(lint)
