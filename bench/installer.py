#!/usr/bin/python3
"""How long the installer takes and how much memory it needs, on a real display, bus and disk. Usage: installer.py JSON"""
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import threading
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(PROJECT / "demo"))
from desktop import Desktop, end_on_signals, missing_programs, started_at, wait_for  # noqa: E402
from road import Road  # noqa: E402

ROUNDS = 7
# What the design prescribes between the start of the installer and that of the new controller: the second before quitting,
# and one tick of the poll, because the controller quits within the first.
PRESCRIBED = 1.0 + 0.20000000298023224


class MapWatcher:
    """When the display server showed windows, told by the server itself."""

    def __init__(self, desktop):
        self.process = subprocess.Popen(["xev", "-root", "-event", "substructure"], env=desktop.environment, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.times = []
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            if line.startswith("MapNotify"):
                self.times.append(time.monotonic())

    def end(self):
        self.process.kill()
        self.process.wait()


def memory(process, key):
    """Kilobytes, of a line of the process's status."""
    return int(re.search(rf"{key}:\s+(\d+)", pathlib.Path(f"/proc/{process}/status").read_text()).group(1))


def launch_round(desktop, road):
    """Seconds from the start of the installer until its window is on the screen, and its resident kilobytes then."""
    watcher = MapWatcher(desktop)
    time_of_start = time.monotonic()
    program = desktop.start("installer", [road.installer / "Contents/Linux/KeltoInstaller", "-KMInstallToolTrashPath",
                                          road.installed])
    wait_for("the wizard's window", lambda: desktop.window_of(program.pid))
    mapped = wait_for("the server's word on the window", lambda: [each for each in watcher.times if each > time_of_start])
    watcher.end()
    resident = memory(program.pid, "VmRSS")
    program.process.kill()
    program.process.wait()
    return mapped[0] - time_of_start, resident


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


def with_desktop(build, work):
    with tempfile.TemporaryDirectory(prefix="kelto-bench-") as folder:
        desktop = Desktop(folder)
        desktop.add_service("com.kelto.Authorization1", [build / "bin/authorizationd", "--session"])
        with desktop:
            return work(desktop, Road(desktop, build))


def rows_of(launches, updates):
    def row(figure, values, unit, bound, against):
        value = statistics.median(values)
        return {"figure": figure, "value": value, "unit": unit, "against": against, "ratio": bound / value}
    return [
        row("launch to window on the screen", [1000 * each[0] for each in launches], "ms", 250, "bound of 250 ms"),
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
    report = pathlib.Path(sys.argv[1]).resolve()
    build = report.parent.parent
    launches = with_desktop(build, lambda desktop, road: [launch_round(desktop, road) for _ in range(ROUNDS)])
    updates = [with_desktop(build, lambda _, road: update_round(road)) for _ in range(ROUNDS)]
    rows = rows_of(launches, updates)
    for row in rows:
        print(f"{row['figure']:<58} {row['value']:12.4g} {row['unit']:<10} {row['ratio']:8.2f} times better than the "
              f"{row['against']}")
    report.write_text(json.dumps(rows, indent=1))


if __name__ == "__main__":
    main()
