#!/usr/bin/python3
"""Shows one run of the installer: demo.py BUILD_FOLDER [update|install|uninstall] [--system] [--slow]. See ../demo.sh."""
import argparse
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from desktop import (HERE, LIBC, PR_SET_PDEATHSIG, PYTHON, Account, Desktop, Failure, end_on_signals, is_running,
                     missing_programs, print_logs, wait_for)
from road import BROKER, PROJECT, Road, list_tools, tools_of, version_of

ON_SYSTEM_BUS = PROJECT / "tests/support/system-bus.sh"
LANGUAGES = ("LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG")
LONG_ENOUGH = 3.0  # seconds to see a stage; the wizard waits 5 for the rights


class Demo:
    def __init__(self, mode, build, desktop, is_slow):
        self.mode = mode
        self.is_slow = is_slow
        self.desktop = desktop
        self.begin = time.monotonic()
        self.road = Road(desktop, build)
        self.pictures = []
        self.controller_was_seen = desktop.folder / "controller-was-seen"
        self.wizard_was_seen = desktop.folder / "wizard-was-seen"

    def say(self, text):
        print(f"{time.monotonic() - self.begin:7.2f} s  {text}", flush=True)

    def show(self, name, frame):
        """Leaves a picture, and time to see the same on the screen."""
        seen = time.monotonic()
        self.pictures.append(self.desktop.take_picture(name, frame))
        if self.is_slow:
            time.sleep(max(0, seen + LONG_ENOUGH - time.monotonic()))

    def run(self):
        controller, frame = self.show_controller()
        installer = self.show_wizard(frame)
        self.road.controller_says("Asked to quit")
        self.say("controller 1.0 was asked to quit")
        self.road.controller_gone()
        self.say(f"controller 1.0 is gone (process {controller.pid})")
        if self.mode == "uninstall":
            self.show_removal(installer)
        else:
            self.show_new_version(installer)

    def show_controller(self):
        self.desktop.paint_background()
        kind = "a display and a session bus of its own" if self.desktop.is_private else "this display, a session bus of its own"
        self.say(f"the desktop is up: {kind}")
        self.say(f"on disk: {self.road.installed} has version {version_of(self.road.installed)}")
        controller = self.road.start_controller(self.mode, StartWhen=self.controller_was_seen, HandOverWhen=self.wizard_was_seen)
        window = self.road.window_of_controller()
        self.say(f"controller 1.0 shows its window (process {controller.pid})")
        frame = self.desktop.frame_of(window)
        self.show("1-controller", frame)
        self.controller_was_seen.touch()
        return controller, frame

    def show_wizard(self, frame):
        installer = self.road.started_installer()
        self.say(f"the installer was started (process {installer}{self.as_whom(installer)})")
        self.road.wizard(installer)
        texts = self.road.texts_of_window(installer)
        self.say(f"the installer shows its wizard window over the controller's: {' '.join(texts)}")
        # The wizard waits 5 s for the rights. Once it has them it may be gone before a slow machine has its picture.
        time.sleep(0.4)  # for the picture only: by then the progress bar has something to show
        self.show("2-wizard", frame)
        self.wizard_was_seen.touch()
        self.road.controller_says("The rights were handed over")
        self.say("the controller handed its rights over")
        return installer

    def as_whom(self, process):
        return f", user {os.stat(f'/proc/{process}').st_uid}" if self.desktop.account else ""

    def owned_by_whom(self):
        return f" and belonged to user {os.stat(self.road.installed).st_uid}" if self.desktop.account else ""

    def show_new_version(self, installer):
        version = self.road.replaced()
        self.say(f"the bundle was replaced: on disk is version {version} now")
        process = self.road.relaunched_controller()
        self.say(f"controller 2.0 was started by the installer (process {process})")
        texts = self.road.texts_of_window(process)
        self.say(f"its window says: {', '.join(texts)}")
        expected = "Resumed its self-update" if self.mode == "update" else "Ready"
        self.road.require(f"the new controller says “{expected}”", expected in texts and "Version 2.0" in texts)
        self.end_of_installer(installer)
        self.show("3-relaunched-controller", self.desktop.frame_of(self.desktop.window_of(process)))
        self.road.require("the relaunched controller runs", is_running(process))
        if self.desktop.account:
            owner = os.stat(self.road.installed).st_uid
            self.road.require("the new bundle belongs to root", owner == 0)

    def show_removal(self, installer):
        self.end_of_installer(installer)
        self.road.require("the installed bundle is gone", not os.path.lexists(self.road.installed))
        self.trashed = self.trashed_bundle()
        self.road.require("the bundle is in the Trash", version_of(self.trashed) == "1.0")
        self.say(f"the bundle is in the Trash: {self.trashed}")
        self.show_trash(self.trashed.parents[1])

    def show_trash(self, trash):
        view = self.desktop.start("trash", [PYTHON, self.desktop.readable_copy(HERE / "trash.py"), trash,
                                            self.desktop.readable_copy(PROJECT / "resources/artwork/application-icon-64.png")])
        window = wait_for("the view of the Trash", lambda: self.desktop.window_of(view.pid))
        self.say("a window shows what is in the Trash")
        self.show("3-trash", self.desktop.frame_of(window))

    def trashed_bundle(self):
        places = [self.desktop.home / ".local/share/Trash", *self.desktop.folder.glob(".Trash*")]
        found = [bundle for place in places for bundle in place.glob("files/*.app")]
        return found[0] if found else self.desktop.folder / "nowhere"

    def end_of_installer(self, installer):
        wait_for("the end of the installer", lambda: not is_running(installer) or self.road.require_no_alert())
        self.say("the installer is gone")

    def conclusion(self):
        if self.mode == "uninstall":
            return f"{self.road.installed} was gone, its version {version_of(self.trashed)} was in {self.trashed}"
        return f"{self.road.installed} was version {version_of(self.road.installed)}{self.owned_by_whom()}"


def language_of_caller():
    """The caller's session chooses the language; one of the desktop's own would win over it."""
    found = {key: os.environ[key] for key in LANGUAGES if key in os.environ}
    return {"LANGUAGE": ""} | found if found else {}


def keep_pictures(pictures):
    """Moves them to a folder that the caller can open, also one who has become root for this."""
    kept = pathlib.Path(tempfile.mkdtemp(prefix="kelto-demo-pictures-"))
    pictures = [pathlib.Path(shutil.move(picture, kept)) for picture in pictures]
    caller = os.environ.get("SUDO_UID"), os.environ.get("SUDO_GID")
    for path in [*pictures, kept]:
        if os.geteuid() == 0:
            os.chown(path, *(map(int, caller) if all(caller) else (0, 0)))
    return pictures


def run_demo(arguments, folder):
    os.chmod(folder, 0o755)
    account = Account.add(folder, folder / "home") if arguments.inside else None
    desktop = Desktop(folder, account, own_display=not arguments.inside, system_bus=arguments.inside,
                      environment=language_of_caller())
    if arguments.inside:
        list_tools(folder)
    else:
        desktop.add_service(BROKER, [arguments.build / "bin/authorizationd", "--session", "--tools", tools_of(folder)])
    try:
        with desktop:
            demo = Demo(arguments.mode, arguments.build, desktop, arguments.slow)
            demo.run()
        conclusion = demo.conclusion()
        pictures = ", ".join(map(str, keep_pictures(demo.pictures)))
    except (Failure, subprocess.SubprocessError, OSError) as failure:
        print_logs(desktop)
        print(f"The demo failed: {failure}. The logs are above.", file=sys.stderr)
        return 1
    print(f"On disk at the end: {conclusion}.\nOnly these pictures stay, everything else is removed: {pictures}", flush=True)
    return 0


def run_on_system_bus(arguments):
    """The same road in a namespace with a system bus, the policy service and an account of its own."""
    if os.geteuid() != 0:
        print("--system needs root, for a namespace with a system bus of its own. Without it, "
              f"“./demo.sh {arguments.mode}” shows the same on a bus of this user's.", file=sys.stderr)
        return 1
    words = [str(ON_SYSTEM_BUS), "--grant", "--build", arguments.build, "--", sys.executable, __file__, arguments.build,
             arguments.mode, "--inside", *(["--slow"] if arguments.slow else [])]
    with tempfile.TemporaryFile("w+") as log:
        # Everything in the namespace ends with its first process, and that with this one.
        namespace = subprocess.Popen(words, start_new_session=True, stderr=log,
                                     preexec_fn=lambda: LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0))
        try:
            status = namespace.wait()
        finally:
            namespace.kill()
            namespace.wait()
        if status != 0:
            log.seek(0)
            print(log.read(), end="", file=sys.stderr)
    return status


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=lambda folder: pathlib.Path(folder).resolve())
    parser.add_argument("mode", nargs="?", default="update", choices=["update", "install", "uninstall"])
    parser.add_argument("--system", action="store_true")
    parser.add_argument("--slow", action="store_true")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    end_on_signals()
    if arguments.system:
        return run_on_system_bus(arguments)
    missing = missing_programs()
    if missing:
        print(f"The demo needs {', '.join(missing)}.", file=sys.stderr)
        return 1
    folder = pathlib.Path(tempfile.mkdtemp(prefix="kelto-demo-"))
    try:
        return run_demo(arguments, folder)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
