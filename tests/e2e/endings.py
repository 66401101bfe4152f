"""Every way in which a run can end: its exit status, and the one line that says why it was not a success."""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess

import protocol
from desktop import is_running, processes_of, wait_for
from road import BROKER, alerts_of, version_of
from world import check, english, equal, scenario

DONE, FAILED, BAD_ARGUMENTS, NO_DISPLAY, REFUSED, STILL_RUNNING, CANCELLED = range(7)
LINE = re.compile(r'^KeltoInstaller: [A-Z][a-z ]+ \(status (\d)\): step "(.*?)"(?:, path "(.*?)")?, cause: (.*)$', re.MULTILINE)


def status_kept_for(process):
    """The exit status of a process whose parent has not asked for it; -1 when a signal ended it."""
    with contextlib.suppress(OSError):
        words = pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
        if words[0] == "Z":
            return max(os.waitstatus_to_exitcode(int(words[49])), -1)
    return None


def status_of(world, process):
    """The exit status of an installer that has ended. A controller that started it and still runs has asked for it, and says it."""
    for program in world.desktop.programs:
        if program.pid == process:
            return program.process.wait(10)

    def find():
        kept = status_kept_for(process)
        told = re.findall(rf"^Process {process} ended with status (-?\d+)$", "".join(world.texts_of_controllers()), re.MULTILINE)
        return [kept] if kept is not None else told
    return int(wait_for("the exit status", find)[0])


def expect_ending(world, process, log, status, step, path, cause):
    """The exit status, and exactly one line: with this step and path, and a cause that holds this text."""
    world.road.installer_gone(process)
    equal("the exit status", status_of(world, process), status)
    lines = LINE.findall(world.log_of(log))
    equal("number, step and path of the lines", [line[:3] for line in lines], [(str(status), step, str(path))])
    check(f"the cause “{lines[0][3]}” says “{cause}”", cause in lines[0][3])


def expect_success(world, process, log="controller-1"):
    world.road.installer_gone(process)
    equal("the exit status", status_of(world, process), DONE)
    equal("lines about a failure", LINE.findall(world.log_of(log)), [])


# Mistakes that can be known before anybody is asked to quit. Each takes the world, makes its mistake and returns the source
# and the destination to pass, the path that the line names, and what its cause says.

def relative_source(world):
    return "Downloads/Kelto.app", world.road.installed, "Downloads/Kelto.app", "not absolute"


def relative_destination(world):
    return world.road.new, "Applications/Kelto.app", "Applications/Kelto.app", "not absolute"


def dots(world):
    path = f"{world.road.new.parent}/../Downloads/Kelto.app"
    return path, world.road.installed, path, 'holds ".."'


def equal_paths(world):
    return world.road.installed, world.road.installed, world.road.installed, "is the installed one"


def source_inside(world):
    inner = world.road.installed / "Contents/Kelto.app"
    shutil.copytree(world.road.new, inner)
    return inner, world.road.installed, world.road.installed, "inside the installed one"


def destination_inside(world):
    return world.road.new, world.road.new / "Contents/Kelto.app", world.road.new / "Contents/Kelto.app", "inside the new one"


def pipe_in_bundle(world):
    os.mkfifo(world.road.new / "Contents/pipe")
    return world.road.new, world.road.installed, world.road.new, "a pipe"


def missing_source(world):
    return world.folder / "None.app", world.road.installed, world.folder / "None.app", "No such file"


def missing_folder(world):
    path = world.folder / "Nowhere/Kelto.app"
    return world.road.new, path, path, "No such file"


def link_of_others(world):
    shared = world.folder / "shared"
    shared.mkdir()
    shared.chmod(0o775)
    (shared / "link").symlink_to(world.road.applications)
    return world.road.new, shared / "link/Kelto.app", shared / "link/Kelto.app", "symbolic link"


def source_is_a_file(world):
    path = world.folder / "File.app"
    path.touch()
    return path, world.road.installed, path, "not a folder"


def without_identifier(world):
    (world.road.new / "Contents/Info.plist").unlink()
    return world.road.new, world.road.installed, world.road.new, "CFBundleIdentifier"


def expect_refused_at_once(world, mistake):
    world.road.start_controller()
    world.road.window_of_controller()
    source, destination, path, cause = mistake(world)
    process = world.start_installer(protocol.sourcePathArgument, source, protocol.trashPathArgument, destination)
    world.expect_general_failure(process, 4)
    step = "read the bundle" if mistake is without_identifier else "check the paths"
    expect_ending(world, process, "installer", FAILED, step, path, cause)
    check("the application was not asked to quit", not world.road.controller.says("Asked to quit"))
    check("the application still runs", world.road.controller.is_running())
    equal("runs of the tool", world.tool_runs(), 0)
    equal("the installed version", version_of(world.road.installed), "1.0")


def register(mistake):
    def run(world):
        expect_refused_at_once(world, mistake)
    run.__name__ = f"ending_{mistake.__name__}"
    scenario("gui")(run)


for each in (relative_source, relative_destination, dots, equal_paths, source_inside, destination_inside, pipe_in_bundle,
             missing_source, missing_folder, link_of_others, source_is_a_file, without_identifier):
    register(each)


@scenario("gui")
def ending_done(world):
    """A success is status 0, and no line speaks of a failure."""
    installer = world.start_waiting("update")
    world.hand_over()
    expect_success(world, installer)


@scenario("gui")
def ending_removed(world):
    """So is a removal."""
    installer = world.start_waiting("uninstall")
    world.hand_over()
    expect_success(world, installer)


@scenario("gui")
def ending_with_wrong_rights(world):
    installer = world.start_update_with("wrong")
    world.alert(installer)
    world.dismiss(installer)
    expect_ending(world, installer, "installer", REFUSED, "take over the rights", "", "denied")


def expect_still_running_ends(world, installer):
    identifier = world.identifier_of(world.road.installed)
    expect_ending(world, installer, "controller-1", STILL_RUNNING, f"quit {identifier}", "", "1 copy still runs")


@scenario("gui")
def ending_without_a_tool(world):
    (world.road.installer / "Contents/Resources/assistantTool").unlink()
    installer = world.start("update")
    world.expect_general_failure(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.replaceItemCommand, world.road.installed, "no executable tool assistantTool")


class HeldTool:
    """A tool that waits before it does its job, or fails with the given words."""

    def __init__(self, world, says=None):
        self.folder = world.road.installer / "Contents/Resources"
        tool = self.folder / "assistantTool"
        tool.rename(self.folder / "assistantTool.real")
        shutil.copy(world.build / "bin/held_tool", tool)
        if says:
            (self.folder / "says").write_text(says)

    def wait_until_begun(self):
        wait_for("the tool", (self.folder / "begun").exists)

    def work(self):
        (self.folder / "work").touch()


def broken_tool(world, says):
    HeldTool(world, says).work()


@scenario("gui")
def ending_with_the_tools_reason(world):
    """The tool's reason reaches the installer's log, whatever rights the tool ran with."""
    broken_tool(world, "the disk is full: No space left on device\n")
    installer = world.start("update")
    world.expect_general_failure(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.replaceItemCommand, world.road.installed, "the disk is full: No space left")


@scenario("gui", road={"new_name": "Kelto 2.app"})
def ending_after_a_failed_rename(world):
    wanted = world.road.applications / "Kelto 2.app"
    installer = world.start_waiting("update")
    wanted.symlink_to("nowhere")  # after the check of the paths
    world.hand_over()
    world.expect_general_failure(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.moveFileCommand, wanted, str(wanted))


@scenario("gui")
def ending_of_a_failed_removal(world):
    broken_tool(world, "no Trash\n")
    installer = world.start("uninstall")
    world.alert(installer)
    world.dismiss(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.trashFileCommand, world.road.installed, "no Trash")


@scenario("gui")
def ending_with_nothing_to_start(world):
    """The new version is in its place, but cannot be started."""
    (world.road.new / "Contents/Linux/KeltoController").unlink()
    installer = world.start_waiting("update")
    world.hand_over()
    world.road.installer_gone(installer)
    expect_ending(world, installer, "controller-1", FAILED, "start the application", world.road.installed, "could not be started")


@scenario("gui")
def ending_by_cancel(world):
    installer = world.start_waiting("update")
    check("Cancel can be pressed", wait_for("the Cancel button", lambda: world.desktop.press(installer, english("<Cancel>"))))
    expect_ending(world, installer, "controller-1", CANCELLED, "wait for the rights", world.road.installed, "the user")


@scenario("gui")
def ending_without_paths(world):
    process = world.start_installer(protocol.isUpdateArgument, "YES")
    world.expect_general_failure(process, 4)
    expect_ending(world, process, "installer", BAD_ARGUMENTS, "read the arguments", "", protocol.trashPathArgument)


def answer(world, *words, **environment):
    program = world.road.installer / "Contents/Linux/KeltoInstaller"
    done = subprocess.run([program, *words], env={"PATH": "/usr/bin:/bin", **environment}, capture_output=True, text=True, timeout=20)
    return done.returncode, done.stdout, done.stderr


@scenario("bus")
def ending_before_it_begins(world):
    """Help and version need no display; an unknown argument is named."""
    status, text, errors = answer(world, "--help")
    equal("status and errors of --help", (status, errors), (DONE, ""))
    for words in (protocol.trashPathArgument, protocol.sourcePathArgument, protocol.isUpdateArgument, protocol.mainFrameArgument,
                  *(f"\n  {status}  " for status in range(7))):
        check(f"--help has {words!r}", words in text)
    equal("--version", answer(world, "--version"), (DONE, "KeltoInstaller 2.0.0\n", ""))
    for words, unknown in ((["--verbose"], "--verbose"), (["-Foo", "bar"], "-Foo, bar"),
                           ([protocol.trashPathArgument, "/a", "/b"], "/b"), ([protocol.trashPathArgument, "-x"], "-x")):
        status, text, errors = answer(world, *words)
        equal(f"status and output for {words}", (status, text), (BAD_ARGUMENTS, ""))
        equal("the line", [line[:3] for line in LINE.findall(errors)], [(str(BAD_ARGUMENTS), "read the arguments", "")])
        check(f"{unknown} is named", f"unknown: {unknown} (" in errors)
    status, text, errors = answer(world, protocol.trashPathArgument, str(world.road.installed))
    equal("status and output without a display", (status, text), (NO_DISPLAY, ""))
    equal("the line", [line[:2] for line in LINE.findall(errors)], [(str(NO_DISPLAY), "open the display")])


@scenario("gui", road={"new_name": "Kelto 2.app"})
def ending_with_something_in_the_new_place(world):
    """Another item that takes the new name during the job is neither moved away nor started."""
    tool = HeldTool(world)
    installer = world.start("update")
    tool.wait_until_begun()
    intruder = world.road.applications / "Kelto 2.app"
    shutil.copytree(world.road.installed, intruder)
    tool.work()
    world.expect_general_failure(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.moveFileCommand, intruder, str(intruder))
    equal("the copies of the intruder that run", processes_of(intruder), [])
    equal("the version of the intruder", version_of(intruder), "1.0")


@scenario("slow")
def ending_with_a_silent_tool(world):
    """A tool that never answers is given up after a minute."""
    tool = HeldTool(world)
    installer = world.start("update")
    tool.wait_until_begun()
    world.expect_general_failure(installer, 90)
    expect_ending(world, installer, "controller-1", FAILED, protocol.replaceItemCommand, world.road.installed, "silent for 60 seconds")
    tool.work()
    wait_for("the end of the tool", lambda: not processes_of(tool.folder))


@scenario("gui")
def ending_is_told_at_the_next_start(world):
    broken_tool(world, "the disk is full\n")
    installer = world.start("update")
    world.expect_general_failure(installer)
    record = world.desktop.home / ".local/state/kelto/last-run.plist"
    equal("the rights to the record", record.stat().st_mode & 0o777, 0o600)
    controller = world.road.start_controller()
    equal("the window", world.road.texts_of_window(controller.pid), ["Kelto", "Version 1.0", "Last time: the disk is full"])


# Signals.

SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)


def expect_end_by(world, process, number):
    os.kill(process, number)
    wait_for(f"the end by {number.name}", lambda: not is_running(process), 2)


def signal_while_waiting(world, number):
    installer = world.start_waiting("update")
    expect_end_by(world, installer, number)
    expect_ending(world, installer, "controller-1", CANCELLED, "wait for the rights", world.road.installed, number.name)
    check("the controller still runs", world.road.controller.is_running())
    world.expect_nothing_changed()


def signal_under_an_alert(world, number):
    installer = world.start_update_with("wrong")
    world.alert(installer)
    expect_end_by(world, installer, number)
    expect_ending(world, installer, "installer", REFUSED, "take over the rights", "", "denied")
    world.expect_nothing_changed()


def signal_while_quitting(world, number):
    installer = world.start("update", RefuseToQuit="YES")
    world.road.controller_says("Asked to quit, and stays")
    expect_end_by(world, installer, number)
    expect_ending(world, installer, "controller-1", CANCELLED, f"quit {world.identifier_of(world.road.installed)}", "", number.name)
    world.expect_nothing_changed()


def signal_during_a_job(world, number):
    """The job is done first, and the new version started."""
    tool = HeldTool(world)
    installer = world.start("update")
    tool.wait_until_begun()
    os.kill(installer, number)
    tool.work()
    world.expect_update_ends(installer)
    expect_success(world, installer)


def signal_during_a_failing_job(world, number):
    """No alert is shown to somebody who has gone."""
    tool = HeldTool(world, "the disk is full\n")
    installer = world.start("update")
    tool.wait_until_begun()
    os.kill(installer, number)
    tool.work()
    wait_for("the end", lambda: not is_running(installer), 2)
    expect_ending(world, installer, "controller-1", FAILED, protocol.replaceItemCommand, world.road.installed, "the disk is full")
    world.expect_nothing_changed()


@scenario("bus", broker=False)
def signal_while_the_broker_is_silent(world):
    """A broker that never answers holds nobody."""
    world.desktop.add_service(BROKER, ["/bin/sleep", "1000"])
    process = world.start_installer(protocol.trashPathArgument, world.road.installed)
    subprocess.run(["busctl", f"--address={world.desktop.environment['DBUS_SESSION_BUS_ADDRESS']}", "emit",
                    "--destination=com.kelto.installer", protocol.notificationsPath,
                    protocol.notificationsInterface, protocol.notificationSignal, "ssa{sv}", protocol.credentialsNotification, "",
                    "1", protocol.credentialsKey, "ay", "32", *["7"] * 32], check=True)
    wait_for("the call", lambda: f"Activating service name='{BROKER}'" in world.log_of("session-bus"))
    expect_end_by(world, process, signal.SIGTERM)
    expect_ending(world, process, "installer", CANCELLED, "wait for the rights", world.road.installed, "SIGTERM")


@scenario("gui")
def killed_installer(world):
    """The next start deletes the files that a killed installer has left."""
    tool = HeldTool(world)
    first = world.start("update")
    tool.wait_until_begun()
    os.kill(first, signal.SIGKILL)
    world.road.installer_gone(first)
    left = world.desktop.runtime / "kelto"
    check("it has left its result file", os.listdir(left))
    tool.work()
    wait_for("the end of the tool", lambda: not processes_of(tool.folder))
    second = world.start_installer(protocol.trashPathArgument, world.road.installed)
    equal("what the next one finds", os.listdir(left), [])
    expect_end_by(world, second, signal.SIGTERM)
    check("the folder is gone, too", not left.exists())


def register_signal(step, number):
    def run(world):
        step(world, number)
    run.__name__ = f"{step.__name__}_{number.name.lower()}"
    scenario("gui")(run)


for each in (signal_while_waiting, signal_under_an_alert, signal_while_quitting, signal_during_a_job, signal_during_a_failing_job):
    for number in SIGNALS:
        register_signal(each, number)


@scenario("gui")
def cancel_during_a_job(world):
    """While the tool works, Cancel is greyed out; pressed all the same, it does nothing."""
    tool = HeldTool(world)
    installer = world.start("update")
    tool.wait_until_begun()

    def enabled():
        return [name for window in world.desktop.windows(installer) for name in window["enabled"]]
    wait_for("the Cancel button to be greyed out", lambda: english("<Cancel>") not in enabled(), 3)
    tool.work()
    world.expect_update_ends(installer)
    expect_success(world, installer)


# Two installers.

@scenario("gui")
def forgotten_alert(world):
    """While the alert of a failed run is still shown, another run works."""
    first = world.start_installer(protocol.trashPathArgument, world.folder / "Nowhere.app")
    world.expect_alert_stays(first, english("<InstallerUnexpectedErrorSubtitle>"), english("<InstallerUnexpectedErrorMessage>"))
    expect_update_beside(world, first)
    check("the alert is still shown", alerts_of(world.desktop, first))
    world.dismiss(first)
    world.road.installer_gone(first)


@scenario("gui")
def two_installers(world):
    """A run finds its own installer, though another one waits under the common name."""
    first = world.start_installer(protocol.trashPathArgument, world.road.new)
    expect_update_beside(world, first)


def expect_update_beside(world, first):
    world.road.start_controller("update")
    installer = wait_for("the second installer", lambda: next(iter(set(world.installers()) - {first}), None))
    world.road.controller_says("The rights were handed over")
    world.road.controller_gone()
    wait_for("the new version", lambda: version_of(world.road.installed) == "2.0")
    world.road.installer_gone(installer)
    equal("the exit status", status_of(world, installer), DONE)
