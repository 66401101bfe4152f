"""A run whose bus, broker or tool answers late, not at all or twice: it ends in time, with the right alert and status."""
import os
import shutil
import signal
import time

import endings
import protocol
from desktop import Failure, is_running, processes_of, wait_for
from killed import Runs, content_of
from road import BROKER, PROJECT, alerts_of
from world import check, english, equal, scenario


class Proxied:
    """The session bus of the world behind a proxy, for every program that is started from now on."""

    def __init__(self, world):
        self.world = world
        self.rules = world.folder / "bus-rule"
        path = world.desktop.runtime / "proxied-bus"
        self.program = world.desktop.start("bus-proxy", ["/usr/bin/python3", PROJECT / "tests/support/bus-proxy.py", path,
                                                         world.desktop.runtime / "bus", self.rules])
        wait_for("the proxy", path.exists)
        address = f"unix:path={path}"
        world.desktop.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        tools = world.road.installer / "Contents/Resources"
        world.desktop.add_service(BROKER, ["/usr/bin/env", f"DBUS_SESSION_BUS_ADDRESS={address}",
                                           world.build / "bin/authorizationd", "--session", "--tools", tools])

    def rows(self):
        return [line for line in self.program.text().splitlines() if "#" in line]


def expect_update_with(world, rule):
    """An update to its end under this rule."""
    proxied = Proxied(world)
    proxied.rules.write_text(rule)
    installer = world.start("update")
    world.expect_update_ends(installer)
    endings.expect_success(world, installer)
    return proxied


@scenario("gui", broker=False)
def every_reply_doubled(world):
    """Answers that come twice, and a notification of the rights that does, change nothing."""
    rows = expect_update_with(world, "double *").rows()
    for member in ("Hello", "RequestName", protocol.createFromExternalFormMethod, protocol.copyRightsMethod,
                   protocol.executeWithPrivilegesMethod, protocol.freeMethod, protocol.notificationSignal):
        check(f"{member} was doubled ({rows})", f"{member}#1" in rows)


@scenario("gui", broker=False)
def every_reply_late(world):
    """A bus that takes its time is waited for."""
    expect_update_with(world, "delay * 0.05")


# The texts that may be shown for a status; a success shows nothing.
def alerts_for(status):
    general = [english("<InstallerUnexpectedErrorSubtitle>"), english("<InstallerUnexpectedErrorMessage>")]
    return {endings.DONE: [None], endings.FAILED: [general],
            endings.REFUSED: [general, [english("<InstallerBadPermissionSubtitle>"), english("<InstallerBadPermissionMessage_1>", "Applications")]],
            endings.STILL_RUNNING: [[english("<InstallerKeltoRunningSubtitle_1>", "Kelto"), english("<InstallerKeltoRunningMessage>")]],
            }.get(status, [])


def end_of_run(world, installer, seconds):
    """Waits for the end; the texts of the alert that was shown before, if any."""
    def is_over():
        return not is_running(installer) or alerts_of(world.desktop, installer)
    found = wait_for("the end, or an alert", is_over, seconds, pause=0.05)
    if found is True:
        return None
    world.dismiss(installer)
    wait_for("the end", lambda: not is_running(installer), seconds)
    return found[0]["texts"]


def expect_ending_in_time(runs, rule, seconds, is_replaced=None):
    """One run under this rule; its exit status, with which alert, lines in the log and bundle agree. The bundle is replaced if
    the run was a success, where nothing else is said."""
    world = runs.world
    runs.rules.write_text(rule)
    installer = runs.start()
    begun = time.monotonic()
    shown = end_of_run(world, installer, seconds)
    duration = time.monotonic() - begun
    status = endings.status_of(world, installer)
    check(f"the alert {shown} belongs to the status {status}", shown in alerts_for(status))
    lines = endings.LINE.findall(world.log_of(runs.controller.name))
    equal("the statuses in the log", [line[0] for line in lines], [str(status)] if status else [])
    equal("the bundle", content_of(runs.road.installed), runs.new if is_replaced or (is_replaced is None and status == endings.DONE) else runs.old)
    if status == endings.DONE:
        wait_for("the new version", lambda: [each for each in processes_of(runs.road.installed) if each != runs.controller.pid])
    runs.end_programs()
    runs.expect_nothing_left()
    runs.lay_both()
    return status, duration


def proxied_runs(world):
    proxied = Proxied(world)
    runs = Runs(world)
    runs.proxied, runs.rules = proxied, proxied.rules
    return runs


@scenario("gui", broker=False)
def lost_rights(world):
    """A notification of the rights that never comes is the refusal after five seconds."""
    equal("the status", expect_ending_in_time(proxied_runs(world), "lose Posted#1", 10)[0], endings.REFUSED)


@scenario("gui", broker=False)
def lost_answer_to_the_release_of_rights(world):
    """The new version is not kept waiting for it: the rights end with the connection anyway."""
    equal("the status", expect_ending_in_time(proxied_runs(world), "lose Free#2", 20)[0], endings.DONE)


@scenario("gui", broker=False)
def lost_answer_of_the_application(world):
    """An application that quits without an answer has quit."""
    equal("the status", expect_ending_in_time(proxied_runs(world), "lose ActivateAction#1", 20)[0], endings.DONE)


# Answers of the broker: the status when one is lost. A person may be asked before it answers some of these.
LOST_ANSWERS = {f"{protocol.createFromExternalFormMethod}#1": endings.REFUSED, f"{protocol.copyRightsMethod}#1": endings.REFUSED,
                f"{protocol.copyRightsMethod}#2": endings.REFUSED, f"{protocol.executeWithPrivilegesMethod}#1": endings.FAILED}


@scenario("slow", broker=False)
def lost_answers_of_the_broker(world):
    """The broker says that it asks nobody: its answer is not waited for as if a person were thinking."""
    runs = proxied_runs(world)
    for row, status in LOST_ANSWERS.items():
        found, duration = expect_ending_in_time(runs, f"lose {row}", 40)
        print(f"{row}: status {found} after {duration:.1f} s", flush=True)
        equal(f"the status without {row}", found, status)


# Seconds that a run may take when any message is lost.
PATIENCE = 90


@scenario("slow", broker=False)
def every_reply_in_turn(world):
    """Each message that an undisturbed run gets from the bus, late, lost and doubled."""
    runs = proxied_runs(world)
    equal("the status of a run that nothing disturbs", expect_ending_in_time(runs, "none", 20)[0], endings.DONE)
    failures = []
    for row in runs.proxied.rows():
        for rule in (f"delay {row} 2", f"double {row}", f"lose {row}"):
            try:
                status, duration = expect_ending_in_time(runs, rule, PATIENCE)
                print(f"{rule}: status {status} after {duration:.1f} s", flush=True)
            except Failure as failure:
                failures.append(f"{rule}: {failure}")
                print(f"FAILED {failures[-1]}", flush=True)
                for process in world.installers():
                    os.kill(process, signal.SIGKILL)
                runs.end_programs()
                runs.lay_both()
    equal("the runs that failed", failures, [])


class RunsWithFilteredTool(Runs):
    """Runs whose tool passes on what it says under a rule, and takes so many seconds longer (see tool_filter.cpp)."""

    def __init__(self, world):
        super().__init__(world)
        folder = world.road.installer / "Contents/Resources"
        (folder / "assistantTool").rename(folder / "assistantTool.real")
        shutil.copy(world.build / "bin/tool_filter", folder / "assistantTool")
        self.rules, self.slow, self.seconds = folder / "rule", folder / "slow", 0

    def start(self):
        self.slow.write_text(str(self.seconds))
        return super().start()

    def end_programs(self):
        self.slow.unlink(missing_ok=True)
        super().end_programs()


def expect_endings(runs, statuses, seconds):
    """Of the runs under these rules. The tool has done its job in each."""
    for rule, status in statuses.items():
        found, duration = expect_ending_in_time(runs, rule, seconds, is_replaced=True)
        print(f"{rule}: status {found} after {duration:.1f} s", flush=True)
        equal(f"the status of a run with {rule}", found, status)


# The verdict alone decides: without it nobody knows that the job was done. A short job needs no sign of life.
LOST_FROM_THE_TOOL = {"lost sign": endings.DONE, "lost verdict": endings.FAILED, "lost line": endings.DONE, "lost end": endings.DONE}


@scenario("gui")
def replies_of_the_tool(world):
    """The verdict is lost, the stream stays open, the line is late, and everything comes twice."""
    kept = {rule: LOST_FROM_THE_TOOL[rule] for rule in ("lost verdict", "lost end")}
    expect_endings(RunsWithFilteredTool(world), kept | {"late line": endings.DONE, "twice *": endings.DONE}, 20)


@scenario("slow")
def every_reply_of_the_tool_in_turn(world):
    """Each alone and all together, in a short job; and the signs of life in a job that takes longer than a tool may be silent."""
    runs = RunsWithFilteredTool(world)
    others = {f"{how} {reply}": endings.DONE for how in ("late", "twice") for reply in ("sign", "verdict", "line", "end", "*")}
    expect_endings(runs, others | LOST_FROM_THE_TOOL | {"lost *": endings.FAILED}, 90)
    runs.seconds = 65
    expect_endings(runs, {"none": endings.DONE, "twice sign": endings.DONE}, 90)
    runs.seconds = 600
    status, duration = expect_ending_in_time(runs, "lost sign", 90)
    equal("the status of a long run without a sign", status, endings.FAILED)
    check(f"the tool had its minute ({duration:.1f} s)", duration > 60)
    runs.seconds = 40  # with a second more for each sign
    expect_endings(runs, {"late sign": endings.DONE}, 120)
