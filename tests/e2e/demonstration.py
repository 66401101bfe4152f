"""The demonstration does what it says, says when it does not, and leaves nothing running."""
import os
import pathlib
import re
import shutil
import signal
import subprocess

from desktop import PYTHON, Failure, processes_of, wait_for
from road import PROJECT
from world import check, equal, scenario

STAGES = ["the desktop is up", "on disk:", "controller 1.0 shows its window", "the installer was started", "the installer shows its wizard window",
          "the controller handed its rights over", "controller 1.0 was asked to quit", "controller 1.0 is gone"]
ENDS = {
    "update": ["the bundle was replaced: on disk is version 2.0 now", "controller 2.0 was started by the installer",
               "its window says: Kelto, Version 2.0, Resumed its self-update", "the installer is gone"],
    "install": ["the bundle was replaced: on disk is version 2.0 now", "controller 2.0 was started by the installer",
                "its window says: Kelto, Version 2.0, Ready", "the installer is gone"],
    "uninstall": ["the installer is gone", "the bundle is in the Trash", "a window shows what is in the Trash"],
}


def start(world, *words, build=None, **variables):
    """Starts the demonstration, without this session's display and language."""
    left_out = ("DISPLAY", "LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG")
    environment = {key: value for key, value in os.environ.items() if key not in left_out}
    environment |= {"TMPDIR": str(world.folder), **variables}
    return subprocess.Popen([PYTHON, "-B", str(PROJECT / "demo/demo.py"), str(build or world.build), *words], text=True,
                            env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def expect_nothing_runs(world):
    """Nothing has a file of the demonstration's folder open as its program or as its environment's home."""
    def nothing():
        return not processes_of(world.folder) and not processes_with(f"{world.folder}/")
    wait_for("the end of all processes of the demonstration", nothing, 5)


def processes_with(text):
    """The processes that have this text in their environment or arguments, this one and its parents left out."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) != os.getpid():
            try:
                words = (entry / "environ").read_bytes() + (entry / "cmdline").read_bytes()
            except OSError:
                continue
            if text.encode() in words:
                found.append(int(entry.name))
    return found


def expect_stages(output, stages):
    """The stages in this order, each with a time stamp, none earlier than the one before."""
    times, lines = [], iter(output.splitlines())
    for stage in stages:
        for line in lines:
            found = re.match(r" *(\d+\.\d\d) s  (.*)", line)
            if found and found.group(2).startswith(stage):
                times.append(float(found.group(1)))
                break
        else:
            raise Failure(f"the stage “{stage}” is missing in order in:\n{output}")
    equal("the time stamps", times, sorted(times))


def expect_demonstration(world, mode, *options, **environment):
    process = start(world, mode, *options, **environment)
    output, errors = process.communicate(timeout=60)
    equal("the exit status", (process.returncode, errors if process.returncode else ""), (0, ""))
    expect_stages(output, STAGES + ENDS[mode])
    conclusion, last = output.splitlines()[-2:]
    check(f"what is on disk is said: {conclusion}", conclusion.startswith("On disk at the end: "))
    check(f"the last line says what stays: {last}", last.startswith("Only these pictures stay, everything else is removed: "))
    expect_only_these_stay(world, [pathlib.Path(picture) for picture in last.partition(": ")[2].split(", ")])
    expect_nothing_runs(world)
    return output


def expect_only_these_stay(world, pictures):
    equal("the number of pictures", len(pictures), 3)
    equal("what stays", sorted(path for path in world.folder.rglob("*") if "kelto-demo" in str(path) and not path.is_dir()),
          sorted(pictures))
    equal("the folders that stay", list(world.folder.glob("kelto-demo*")), [pictures[0].parent])
    for picture in pictures:
        equal("the start of a picture", picture.read_bytes()[:8], b"\x89PNG\r\n\x1a\n")


@scenario("gui", bare=True)
def demo_update(world):
    """The update is shown stage by stage."""
    check("the version is told", "Kelto.app was version 2.0." in expect_demonstration(world, "update"))


@scenario("gui", bare=True)
def demo_install(world):
    """The installation is shown stage by stage, in the caller's language."""
    output = expect_demonstration(world, "install", LANG="de_DE.UTF-8")
    check(f"the wizard speaks German: {output}", "Kelto wird installiert" in output)
    check("the version is told", "Kelto.app was version 2.0." in output)


@scenario("gui", bare=True)
def demo_uninstall(world):
    """The removal is shown stage by stage."""
    check("the place is told", "its version 1.0 was in " in expect_demonstration(world, "uninstall"))


@scenario("slow", bare=True)
def demo_slowly(world):
    """Each stage is on the screen for three seconds and more."""
    output = expect_demonstration(world, "uninstall", "--slow")
    times = {stage: float(time) for time, stage in re.findall(r"^ *(\d+\.\d\d) s  (.*?)(?: \(|:|$)", output, re.MULTILINE)}
    for first, last in (("controller 1.0 shows its window", "the installer was started"),
                        ("the installer shows its wizard window over the controller's", "the installer is gone")):
        check(f"there are three seconds between “{first}” and “{last}”: {times}", times[last] - times[first] >= 3)


@scenario("gui")
def demo_on_this_display(world):
    """With a display in the session the demonstration shows itself there, and the rest is its own."""
    desktop = world.desktop.environment
    process = start(world, "update", DISPLAY=desktop["DISPLAY"], XAUTHORITY=desktop["XAUTHORITY"])
    output, errors = process.communicate(timeout=60)
    equal("the exit status", (process.returncode, errors), (0, ""))
    expect_stages(output, ["the desktop is up: this display", *STAGES[1:], *ENDS["update"]])
    wait_for("the end of all its processes", lambda: not [each for folder in world.folder.glob("kelto-demo-*")
                                                          for each in processes_of(folder)])


@scenario("system", where="root", bare=True)
def demo_on_system_bus(world):
    """The same on a system bus, where the bundle stays root's; who called through sudo can open the pictures."""
    caller = {"SUDO_UID": "1234", "SUDO_GID": "1235"}
    check("the owner is told", "belonged to user 0." in expect_demonstration(world, "update", "--system", **caller))
    pictures = list(world.folder.glob("kelto-demo-pictures-*/*"))
    for path in [pictures[0].parent, *pictures]:
        equal(f"the owner of {path}", (path.stat().st_uid, path.stat().st_gid), (1234, 1235))


@scenario("gui", bare=True)
def demo_tells_what_is_not_so(world):
    """With a tool that does nothing the demonstration fails, in words and with the logs."""
    build = world.folder / "build"
    shutil.copytree(world.build / "bin", build / "bin", ignore=lambda _, names: [each for each in names if "test" in each])
    (build / "sdk").mkdir()
    shutil.copy(world.build / "sdk/libkelto-controller.so.1", build / "sdk")
    tool = build / "bin/KeltoInstaller.app/Contents/Resources/assistantTool"
    tool.unlink()
    shutil.copy("/usr/bin/true", tool)
    process = start(world, "update", build=build)
    output, errors = process.communicate(timeout=60)
    equal("the exit status", process.returncode, 1)
    check("nothing is said to be on disk", "On disk now" not in output)
    check(f"the reason is told: {errors}", "The demo failed: the installer shows an alert" in errors)
    check("the logs are told", "controller-1.log" in errors and "The rights were handed over" in errors)
    expect_nothing_runs(world)


def expect_end_with(world, number, status):
    """Ended by a signal at the wizard, everything else ends too."""
    process = start(world, "update")
    for line in process.stdout:
        if "shows its wizard window" in line:
            break
    check("there is something to end", processes_of(world.folder))
    process.send_signal(number)
    process.communicate(timeout=20)
    equal("the exit status", process.returncode, status)
    expect_nothing_runs(world)


@scenario("gui", bare=True)
def demo_interrupted(world):
    """An interrupted demonstration takes everything with it."""
    expect_end_with(world, signal.SIGINT, 128 + signal.SIGINT)


@scenario("gui", bare=True)
def demo_killed(world):
    """A killed demonstration takes everything with it."""
    expect_end_with(world, signal.SIGKILL, -signal.SIGKILL)


@scenario("gui", bare=True)
def demo_words(world):
    """The command refuses words that it does not know, and says which there are."""
    done = subprocess.run([str(PROJECT / "demo.sh"), "upgrade"], text=True, capture_output=True, cwd=world.folder)
    equal("the exit status", done.returncode, 2)
    check("the words are told", "./demo.sh [update | install | uninstall] [--system] [--slow]" in done.stderr)
