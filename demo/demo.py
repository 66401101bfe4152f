#!/usr/bin/python3
"""Shows one run of the installer: demo.py BUILD_FOLDER [update|install|uninstall] [--system]. See ../demo.sh."""
import argparse
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

from desktop import (LIBC, PR_SET_PDEATHSIG, Account, Desktop, Failure, end_on_signals, is_running, missing_programs,
                     print_logs, wait_for)
from road import BROKER, PROJECT, Road, list_tools, tools_of, version_of

ON_SYSTEM_BUS = PROJECT / "tests/support/system-bus.sh"


class Demo:
    def __init__(self, mode, build, desktop):
        self.mode = mode
        self.desktop = desktop
        self.begin = time.monotonic()
        self.road = Road(desktop, build)
        self.pictures = []
        self.picture_is_taken = desktop.folder / "picture-is-taken"

    def say(self, text):
        print(f"{time.monotonic() - self.begin:7.2f} s  {text}", flush=True)

    def take_picture(self, name, frame):
        self.pictures.append(self.desktop.take_picture(name, frame))

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
        controller = self.road.start_controller(self.mode, HandOverWhen=self.picture_is_taken)
        window = self.road.window_of_controller()
        self.say(f"controller 1.0 shows its window (process {controller.pid})")
        frame = self.desktop.frame_of(window)
        self.take_picture("1-controller", frame)
        return controller, frame

    def show_wizard(self, frame):
        installer = self.road.started_installer()
        self.say(f"the installer was started (process {installer}{self.as_whom(installer)})")
        self.road.wizard(installer)
        self.say("the installer shows its wizard window over the controller's")
        # The wizard waits 5 s for the rights. Once it has them it may be gone before a slow machine has its picture.
        time.sleep(0.4)  # for the picture only: by then the progress bar has something to show
        self.take_picture("2-wizard", frame)
        self.picture_is_taken.touch()
        self.road.controller_says("The rights were handed over")
        self.say("the controller handed its rights over")
        return installer

    def as_whom(self, process):
        return f", user {os.stat(f'/proc/{process}').st_uid}" if self.desktop.account else ""

    def owned_by_whom(self):
        return f" and belongs to user {os.stat(self.road.installed).st_uid}" if self.desktop.account else ""

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
        self.take_picture("3-relaunched-controller", self.desktop.frame_of(self.desktop.window_of(process)))
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

    def trashed_bundle(self):
        places = [self.desktop.home / ".local/share/Trash", *self.desktop.folder.glob(".Trash*")]
        found = [bundle for place in places for bundle in place.glob("files/*.app")]
        return found[0] if found else self.desktop.folder / "nowhere"

    def end_of_installer(self, installer):
        wait_for("the end of the installer", lambda: not is_running(installer) or self.road.require_no_alert())
        self.say("the installer is gone")

    def conclusion(self):
        pictures = ", ".join(str(picture) for picture in self.pictures)
        if self.mode == "uninstall":
            on_disk = f"{self.road.installed} is gone, its version {version_of(self.trashed)} is in {self.trashed}"
        else:
            on_disk = f"{self.road.installed} is version {version_of(self.road.installed)}{self.owned_by_whom()}"
        return f"On disk now: {on_disk}. Pictures: {pictures}"


def run_demo(mode, build, folder, is_inside):
    os.chmod(folder, 0o755)
    account = Account.add(folder, folder / "home") if is_inside else None
    language = {key: os.environ[key] for key in ("LANG", "LANGUAGE", "LC_ALL", "LC_MESSAGES") if key in os.environ}
    desktop = Desktop(folder, account, own_display=not is_inside, system_bus=is_inside, environment=language)
    if not is_inside:
        desktop.add_service(BROKER, [build / "bin/authorizationd", "--session", "--tools", tools_of(folder)])
    else:
        list_tools(folder)
    try:
        with desktop:
            demo = Demo(mode, build, desktop)
            demo.run()
            print(demo.conclusion(), flush=True)
    except (Failure, subprocess.SubprocessError, OSError) as failure:
        print_logs(desktop)
        print(f"The demo failed: {failure}. The logs are above and in {desktop.logs}.", file=sys.stderr)
        return 1
    return 0


def run_on_system_bus(arguments):
    """The same road in a namespace with a system bus, the policy service and an account of its own."""
    if os.geteuid() != 0:
        print("--system needs root, for a namespace with a system bus of its own. Without it, "
              f"“./demo.sh {arguments.mode}” shows the same on a bus of this user's.", file=sys.stderr)
        return 1
    words = [str(ON_SYSTEM_BUS), "--grant", "--build", arguments.build, "--", sys.executable, __file__, arguments.build,
             arguments.mode, "--inside"]
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
    parser.add_argument("build")
    parser.add_argument("mode", nargs="?", default="update", choices=["update", "install", "uninstall"])
    parser.add_argument("--system", action="store_true")
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
    return run_demo(arguments.mode, pathlib.Path(arguments.build).resolve(), folder, arguments.inside)


if __name__ == "__main__":
    sys.exit(main())
