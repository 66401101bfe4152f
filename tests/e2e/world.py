"""The base of every scenario: a desktop with two versions of the controller and the installer, and checks on them."""
import contextlib
import json
import os
import pathlib
import plistlib
import re
import shutil
import tempfile
import time

import protocol
from desktop import PYTHON, Account, Desktop, Failure, is_running, print_logs, processes_of, wait_for
from road import BROKER, PROJECT, Road, alerts_of, list_tools, tools_of, version_of

SCENARIOS = {}


class Skip(Exception):
    """The scenario cannot be run here; the text says why."""


def scenario(label, where=None, **options):
    """Registers a function as the scenario of its name. `where` are the surroundings it needs (see run.py), `options` those
    of its World."""
    def register(function):
        SCENARIOS[function.__name__] = (function, label, where, options)
        return function
    return register


def english(key, *arguments):
    return text_in("en", key, *arguments)


def text_in(language, key, *arguments):
    """The text for a key, from the installer's own table."""
    table = (PROJECT / f"resources/{language}.lproj/Localizable.strings").read_text(encoding="utf-8")
    text = re.search(rf'^"{re.escape(key)}"\s*=\s*"(.*)";$', table, re.MULTILINE).group(1)
    for argument in arguments:
        text = text.replace("%@", argument, 1)
    return text


class Bare(contextlib.ExitStack):
    """A folder and a build, and nothing that runs."""

    def __init__(self, build):
        super().__init__()
        self.build = pathlib.Path(build).resolve()
        # The path of a socket in it has to be a short one.
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kelto-e2e-"))
        self.folder.chmod(0o755)
        self.callback(shutil.rmtree, self.folder, ignore_errors=True)


class World(Bare):
    """Use as a context manager.

    account: the programs run as an ordinary user of their own (in a mount namespace only) and not as this user.
    system_bus: the broker of the system bus is used, not one on the session bus.
    broker: whether there is one at all. hears_pointer: see Desktop. road: options of Road; with an installer there, all that is installed stays as it is.
    """

    def __init__(self, build, account=False, system_bus=False, broker=True, road=None, hears_pointer=False):
        super().__init__(build)
        person = Account.add(self.folder, self.folder / "home") if account else None
        self.desktop = Desktop(self.folder, person, system_bus=system_bus, hears_pointer=hears_pointer)
        if broker and not system_bus:
            self.desktop.add_service(BROKER, [self.build / "bin/authorizationd", "--session", "--tools", tools_of(self.folder)])
        if broker and system_bus and "installer" not in (road or {}):
            list_tools(self.folder)
        self.road = Road(self.desktop, self.build, **(road or {}))

    def __enter__(self):
        super().__enter__()
        self.push(self._tell_about_failure)
        self.enter_context(self.desktop)
        return self

    def _tell_about_failure(self, kind, *_):
        if kind is not None and not issubclass(kind, Skip):
            print_logs(self.desktop)

    # Steps.

    def start(self, mode, **switches):
        """Starts the controller with these switches, which starts the installer; its process, once the wizard is up."""
        self.road.start_controller(mode, **switches)
        installer = self.road.started_installer()
        self.road.wizard(installer)
        return installer

    def start_waiting(self, mode, **switches):
        """The same, but the controller keeps its rights until `hand_over`, or for ever: there is time to look at the wizard."""
        return self.start(mode, HandOverWhen=self.folder / "go", **switches)

    def hand_over(self):
        (self.folder / "go").touch()

    def start_update_with(self, rights):
        """Starts a controller, and an installer that is to update it. The rights come from another program, and are of a
        kind that no controller sends: "wrong", "empty" or "twice" (see rights-sender.py). The installer's process."""
        self.road.start_controller()
        self.road.window_of_controller()
        program = self.desktop.readable_copy(PROJECT / "tests/support/rights-sender.py")
        texts = {name: text for name, text in vars(protocol).items() if isinstance(text, str)}
        sender = self.desktop.start("rights-sender", [PYTHON, program, json.dumps(texts), rights,
                                                      self.identifier_of(self.road.installer)])
        wait_for("the sender", lambda: sender.says("ready"))
        return self.start_installer(protocol.sourcePathArgument, self.road.new, protocol.trashPathArgument,
                                    self.road.installed, protocol.isUpdateArgument, "YES")

    def start_installer(self, *arguments):
        """Starts the installer with these arguments and without a controller; its process, once the wizard is up."""
        information = plistlib.loads((self.road.installer / "Contents/Info.plist").read_bytes())
        program = self.desktop.start("installer", [
            self.road.installer / "Contents/Linux" / information["CFBundleExecutable"], *arguments])
        self.road.wizard(program.pid)
        return program.pid

    def alert(self, process, seconds=15):
        """The alert of the installer: headline, informative text and titles of its buttons."""
        def find():
            if not is_running(process):
                raise Failure("the installer ended without an alert")
            return alerts_of(self.desktop, process)
        found = wait_for("an alert", find, seconds, pause=0.05)[0]
        return found["texts"], found["buttons"]

    def wizard_texts(self, process):
        """The texts and the titles of the buttons of the wizard."""
        window = wait_for("the wizard's texts", lambda: self.desktop.windows(process))[0]
        return window["texts"], window["buttons"]

    def dismiss(self, process):
        check("the alert's button can be pressed", self.desktop.press(process, english("<OK>")))
        wait_for("the end of the alert", lambda: not is_running(process) or not alerts_of(self.desktop, process))

    def expect_alert(self, process, headline, text, seconds=15):
        """Exactly this alert; dismissed, it is the end of the run."""
        self.expect_alert_stays(process, headline, text, seconds)
        self.dismiss(process)
        self.road.installer_gone(process)

    def expect_alert_stays(self, process, headline, text, seconds=15):
        equal("headline and text of the alert", self.alert(process, seconds), ([headline, text], [english("<OK>")]))

    def expect_general_failure(self, process, seconds=15):
        self.expect_alert(process, english("<InstallerUnexpectedErrorSubtitle>"),
                          english("<InstallerUnexpectedErrorMessage>"), seconds)

    def expect_update_ends(self, installer, bundle=None, resumed=True):
        """The new version is at its place and runs, and nothing else does."""
        road = self.road
        road.controller_gone()
        process = road.relaunched_controller(bundle)
        state = "Resumed its self-update" if resumed else "Ready"
        equal("the window of the new version", road.texts_of_window(process), ["Kelto", "Version 2.0", state])
        expected = [protocol.resumeArgument, "YES"] if resumed else []
        equal("the arguments of the new version", arguments_of(process)[1:], expected)
        road.installer_gone(installer)
        equal("the version on disk", version_of(bundle or road.installed), "2.0")
        equal("the copies that run", processes_of(bundle or road.installed), [process])
        self.expect_no_leftovers()
        return process

    def expect_nothing_changed(self):
        equal("the installed version", version_of(self.road.installed), "1.0")
        equal("the new version at its old place", version_of(self.road.new), "2.0")
        self.expect_no_leftovers()

    def expect_no_leftovers(self):
        equal("what is in the temporary folder", sorted(os.listdir(self.desktop.temporary)), [])
        equal("what is hidden beside the bundle", [each.name for each in self.road.applications.glob(".*")], [])

    # Questions.

    def identifier_of(self, bundle):
        return plistlib.loads((bundle / "Contents/Info.plist").read_bytes())["CFBundleIdentifier"]

    def installers(self):
        return processes_of(self.road.installer)

    def frame_of_wizard(self, process):
        """Its frame as the display server sees it, origin bottom-left: x, y, width, height."""
        left, top, width, height = self.desktop.frame_of(self.desktop.window_of(process))
        return left, self.desktop.screen_height() - top - height, width, height

    def texts_of_controllers(self):
        return [program.text() for program in self.desktop.programs if program.name.startswith("controller")]

    def log_of(self, name):
        return (self.desktop.logs / f"{name}.log").read_text(errors="replace")

    def tool_runs(self, log="session-bus"):
        """How many times the broker has run the tool."""
        return self.log_of(log).count("authorizationd: runs a tool for user")


def arguments_of(process):
    return pathlib.Path(f"/proc/{process}/cmdline").read_text().split("\0")[:-1]


def uptime():
    return time.clock_gettime(time.CLOCK_BOOTTIME)


def equal(what, found, expected):
    if found != expected:
        raise Failure(f"{what}: found {found!r}, expected {expected!r}")


def check(what, holds):
    if not holds:
        raise Failure(f"does not hold: {what}")
