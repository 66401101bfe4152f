#!/usr/bin/python3
"""How long the installer takes, how smoothly it moves and how much memory it needs, on a real display, bus and disk.

Usage: installer.py JSON
"""
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(PROJECT / "demo"), str(PROJECT / "tests/support")]
import protocol  # noqa: E402
from desktop import Desktop, end_on_signals, missing_programs, started_at, wait_for  # noqa: E402
from private_state import keep_state_private  # noqa: E402
from road import BROKER, Road, tools_of  # noqa: E402

ROUNDS = 7
# The design prescribes this delay between the start of the installer and that of the new controller: the second before
# quitting, and one tick of the poll, because the controller quits within the first.
PRESCRIBED = 1.0 + 0.20000000298023224


# The privileged job during which the progress bar is watched takes this long at least.
JOB_SECONDS = 3.0
MAIN_FRAME = (200, 100, 660, 600)


class Watcher:
    """A program that tells times, one in a line, until it is ended."""

    def __init__(self, desktop, words):
        self.process = subprocess.Popen([str(word) for word in words], env=desktop.environment, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self.process.stdout.readline() != "ready\n":
            sys.exit(f"{words[0]} cannot watch")

    def times(self, count=None):
        """The first `count` times; without it all that there were until now, and the end of the program."""
        if count is None:
            self.process.stdin.close()
        lines = [self.process.stdout.readline() for _ in range(count)] if count else self.process.stdout.readlines()
        return [float(line.split()[-1]) for line in lines if line]

    def end(self):
        self.process.kill()
        self.process.wait()


def memory(process, key):
    """Kilobytes, of a line of the process's status."""
    return int(re.search(rf"{key}:\s+(\d+)", pathlib.Path(f"/proc/{process}/status").read_text()).group(1))


def launch_round(desktop, road, build):
    """Seconds from the start of the installer until its window is painted on the screen, and its resident kilobytes then."""
    # A few pixels of the footer, where the window will be.
    watcher = Watcher(desktop, [build / "bin/screen_watch", 320, desktop.screen_height() - 320, 4, 4])
    watcher.times(1)
    time_of_start = time.monotonic()
    frame = "r: {{%d, %d}, {%d, %d}}" % MAIN_FRAME
    program = desktop.start("installer", [road.installer / "Contents/Linux/KeltoInstaller", protocol.trashPathArgument,
                                          road.installed, protocol.mainFrameArgument, frame])
    painted = watcher.times(1)[0]
    watcher.end()
    wait_for("the wizard's window", lambda: desktop.window_of(program.pid))
    resident = memory(program.pid, "VmRSS")
    program.process.kill()
    program.process.wait()
    return painted - time_of_start, resident


def is_tool(number, folder):
    """Whether the process is the tool, run for this desktop's installer."""
    try:
        return str(folder) in os.readlink(f"/proc/{number}/exe") and "assistantTool" in os.readlink(f"/proc/{number}/exe")
    except OSError:
        return False


def tool_of(folder):
    return next((int(name) for name in os.listdir("/proc") if name.isdigit() and is_tool(name, folder)), None)


def make_heavy(bundle, files):
    """Gives a bundle this many small files."""
    for number in range(files):
        folder = bundle / f"Contents/Resources/heavy/{number // 500}"
        if number % 500 == 0:
            folder.mkdir(parents=True)
        (folder / str(number)).write_bytes(b"x" * 2000)


def job_round(desktop, road, build, files):
    """Seconds that the tool took for a bundle of so many files, and when the window was painted meanwhile."""
    make_heavy(road.new, files)
    road.start_controller("update")
    installer = road.started_installer()
    window = road.wizard(installer)
    watcher = Watcher(desktop, [build / "bin/paint_watch", window])
    tool = wait_for("the tool", lambda: tool_of(desktop.folder), pause=0.002)
    begin = time.monotonic()
    wait_for("the end of the tool", lambda: not is_tool(tool, desktop.folder), 120, pause=0.005)
    end = time.monotonic()
    paints = [each for each in watcher.times() if begin <= each <= end]
    road.relaunched_controller()
    return end - begin, paints


def frames_of(build):
    """Frames a second of the progress bar during a long job, the longest gap between them and the seconds of the job, of the
    first bundle that is large enough for it. It comes from another file system, so that every file has to be copied."""
    files = 30000
    while True:
        with tempfile.TemporaryDirectory(prefix="kelto-bench-", dir="/dev/shm") as downloads:
            seconds, paints = with_desktop(build, lambda desktop, road: job_round(desktop, road, build, files), downloads)
        if seconds >= JOB_SECONDS:
            gaps = [after - before for before, after in zip(paints, paints[1:])]
            return len(paints) / seconds, max(gaps), seconds
        files = int(files * min(max(1.3 * JOB_SECONDS / seconds, 1.3), 8))


def update_round(road):
    """Seconds of one update less what is prescribed; largest resident kilobytes of the installer and of the broker."""
    road.start_controller("update")
    installer = road.started_installer()
    road.controller_gone()
    relaunched = road.relaunched_controller()
    taken = started_at(relaunched) - started_at(installer) - PRESCRIBED
    largest = memory(installer, "VmHWM")
    broker = next(int(name) for name in os.listdir("/proc") if name.isdigit() and is_broker(name, road.desktop.folder))
    return taken, largest, memory(broker, "VmHWM")


def is_broker(number, folder):
    try:
        environment = pathlib.Path("/proc", number, "environ").read_bytes()
        return os.readlink(f"/proc/{number}/exe").endswith("/authorizationd") and str(folder).encode() in environment
    except OSError:
        return False


def with_desktop(build, work, downloads="Downloads"):
    with tempfile.TemporaryDirectory(prefix="kelto-bench-") as folder:
        desktop = Desktop(folder)
        desktop.add_service(BROKER, [build / "bin/authorizationd", "--session", "--tools", tools_of(folder)])
        with desktop:
            return work(desktop, Road(desktop, build, downloads=downloads))


def rows_of(launches, updates, frames):
    def row(figure, values, unit, bound, against):
        value = statistics.median(values)
        return {"figure": figure, "value": value, "unit": unit, "against": against, "ratio": bound / value}
    rate, gap, job = frames
    return [
        {"figure": f"progress bar during a privileged job of {job:.1f} s", "value": rate, "unit": "frames/s",
         "against": "bound of 50 frames/s", "ratio": rate / 50},
        row("longest gap between its frames", [1000 * gap], "ms", 50, "bound of 50 ms"),
        row("launch to first painted frame", [1000 * each[0] for each in launches], "ms", 250, "bound of 250 ms"),
        row("update less prescribed waits", [1000 * each[0] for each in updates], "ms", 300, "bound of 300 ms"),
        row("installer resident, window shown", [each[1] / 1024 for each in launches], "MiB", 80, "bound of 80 MiB"),
        row("installer resident, largest in an update", [each[1] / 1024 for each in updates], "MiB", 80, "bound of 80 MiB"),
        row("broker resident, largest in an update", [each[2] / 1024 for each in updates], "MiB", 8, "bound of 8 MiB"),
    ]


def main():
    end_on_signals()
    missing = missing_programs()
    if missing:
        sys.exit(f"installer.py needs {', '.join(missing)}")
    if not keep_state_private():
        sys.exit("installer.py would change /var/lib, and no namespace can be made")
    report = pathlib.Path(sys.argv[1]).resolve()
    build = report.parent.parent
    frames = frames_of(build)
    launches = [with_desktop(build, lambda desktop, road: launch_round(desktop, road, build)) for _ in range(ROUNDS)]
    updates = [with_desktop(build, lambda _, road: update_round(road)) for _ in range(ROUNDS)]
    rows = rows_of(launches, updates, frames)
    for row in rows:
        print(f"{row['figure']:<58} {row['value']:12.4g} {row['unit']:<10} {row['ratio']:8.2f} times better than the "
              f"{row['against']}")
    report.write_text(json.dumps(rows, indent=1))


if __name__ == "__main__":
    main()
