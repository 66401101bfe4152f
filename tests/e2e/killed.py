"""The installer is killed at many moments of a run: the bundle is whole, another run succeeds, and nothing is left behind."""
import collections
import hashlib
import os
import pathlib
import shutil
import signal
import time

from desktop import Failure, is_running, processes_of, wait_for
from road import version_of
from world import check, equal, scenario

NOTES = pathlib.Path("/var/lib/kelto/jobs")
STEPS = ("the start", "the wizard", "the rights handed over", "the application asked to quit", "the job", "the new version in its place",
         "the new version started")


def content_of(bundle):
    """For each item of the bundle its kind, rights and content."""
    found = {}
    for path in sorted(bundle.rglob("*")):
        status = path.lstat()
        content = hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else None
        found[str(path.relative_to(bundle))] = (status.st_mode, content)
    return found


class Runs:
    """Runs of the installer, one after the other, in one world. Each begins with version 1 installed."""

    def __init__(self, world):
        self.world = world
        self.road = world.road
        self.old, self.new = content_of(self.road.installed), content_of(self.road.new)
        self.number = 0

        self.kept = {}
        for bundle in (self.road.installed, self.road.new):
            self.kept[bundle] = shutil.copytree(bundle, world.folder / f"Kept/{bundle.parent.name}.app")

    def lay(self, bundle):
        if bundle.exists():
            shutil.rmtree(bundle)
        shutil.copytree(self.kept[bundle], bundle)

    def lay_both(self):
        self.lay(self.road.installed)
        self.lay(self.road.new)

    def start(self):
        """The installer's process, as soon as there is one."""
        self.number += 1
        words = [self.road.installed / "Contents/Linux/KeltoController", "-KDStart", "update", "-KDInstaller", self.road.installer,
                 "-KDNewBundle", self.road.new]
        self.controller = self.world.desktop.start(f"controller-of-run-{self.number}", words)
        return wait_for("the start of the installer", lambda: next(iter(self.world.installers()), None), pause=0.002)

    def step(self):
        """How far the run has come."""
        tools = processes_of(self.road.installer / "Contents/Resources")
        if [each for each in processes_of(self.road.installed) if each != self.controller.pid]:
            return 6
        if version_of(self.road.installed) != "1.0":
            return 5
        if tools or not self.controller.is_running():
            return 4
        if self.controller.says("Asked to quit"):
            return 3
        return 2 if self.controller.says("The rights were handed over") else 0

    def end_programs(self):
        """A job goes on without the installer; then the user quits everything."""
        wait_for("the end of the tool", lambda: not processes_of(self.road.installer / "Contents/Resources"))
        for process in processes_of(self.road.installed):
            os.kill(process, signal.SIGKILL)
        wait_for("the end of every copy", lambda: not processes_of(self.road.installed))

    def expect_success(self):
        self.lay(self.road.new)
        installer = self.start()
        wait_for("the end of the installer", lambda: not is_running(installer), 60)
        controller = self.controller
        check("the application has quit", wait_for("its end", lambda: not controller.is_running()))
        equal("the installed bundle", content_of(self.road.installed), self.new)
        wait_for("the new version", lambda: processes_of(self.road.installed))
        self.end_programs()
        self.expect_nothing_left()

    def expect_nothing_left(self):
        self.world.expect_no_leftovers()
        equal("what the job's files leave", [str(each) for each in self.world.desktop.runtime.glob("kelto*")], [])
        equal("the tool's notes", os.listdir(NOTES) if NOTES.exists() else [], [])
        names = self.world.desktop.ask("busctl", f"--address={self.world.desktop.environment['DBUS_SESSION_BUS_ADDRESS']}", "list", "--acquired", "--no-legend")
        equal("names on the bus", [line.split()[0] for line in names.splitlines() if line.startswith("com.kelto.installer")], [])

    def expect_whole(self):
        check("the bundle is the old one or the new one", content_of(self.road.installed) in (self.old, self.new))


def kill(runs, installer):
    """Kills it now; the step that the run had come to, the last one if it was over."""
    if not is_running(installer):
        return len(STEPS) - 1
    os.kill(installer, signal.SIGSTOP)
    step = runs.step() or (1 if runs.world.desktop.window_of(installer) else 0)
    os.kill(installer, signal.SIGKILL)
    runs.road.installer_gone(installer)
    return step


def kill_at_step(runs, step):
    installer = runs.start()
    wait_for(STEPS[step], lambda: runs.step() >= step or not is_running(installer), pause=0.002)
    return kill(runs, installer)


def kill_after(runs, quitting, seconds):
    """This many seconds after the start, or after the application was asked to quit."""
    installer = runs.start()
    if quitting:
        wait_for("the request to quit", lambda: runs.controller.says("Asked to quit"), pause=0.001)
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline and is_running(installer):
        time.sleep(0.001)
    return kill(runs, installer)


def durations(runs):
    """Of a run that nobody disturbs: until the application is asked to quit, and from then on to the end."""
    installer = runs.start()
    times = [time.monotonic()]
    wait_for("the request to quit", lambda: runs.controller.says("Asked to quit"), pause=0.001)
    times.append(time.monotonic())
    wait_for("the end of the installer", lambda: not is_running(installer), pause=0.001)
    return times[1] - times[0], time.monotonic() - times[1]


@scenario("gui")
def killed_at_four_steps(world):
    runs = Runs(world)
    for step in (0, 2, 4, 5):
        check(f"killed at {STEPS[step]} or later", kill_at_step(runs, step) >= step)
        runs.end_programs()
        runs.expect_whole()
        runs.lay_both()
    runs.expect_success()


@scenario("slow")
def killed_at_200_moments(world):
    """A third of them before the application is asked to quit, when little happens, the others from then on."""
    for number in range(500):
        (world.road.new / f"Contents/Resources/{number}").write_text(f"{number}\n" * 100)
    runs = Runs(world)
    before, after = durations(runs)
    moments = [(False, before * each / 66) for each in range(66)] + [(True, after * each / 134) for each in range(134)]
    hits = collections.Counter()
    for quitting, seconds in moments:
        runs.end_programs()
        runs.lay_both()
        step = STEPS[kill_after(runs, quitting, seconds)]
        hits[step] += 1
        try:
            runs.end_programs()
            runs.expect_whole()
            runs.expect_success()
        except Failure as failure:
            raise Failure(f"killed {seconds:.3f} s after the {'request to quit' if quitting else 'start'}, at {step}: {failure}") from failure
    print(f"of {before:.2f} s and {after:.2f} s killed at", ", ".join(f"{step}: {hits[step]}" for step in STEPS))
