"""The three modes from the controller's launch to the end, and what may be different about bundles, paths and windows."""
import math
import os
import pathlib
import re
import shutil
import subprocess
import urllib.parse

import protocol
from desktop import is_running, processes_of, wait_for
from road import version_of
from world import Skip, arguments_of, check, english, equal, scenario


def expected_origin(main, width, height):
    """Where a window of this size belongs over the controller's, given as x, y, width, height from the bottom-left."""
    return main[0] + math.floor((main[2] - width) * 0.5), math.floor((main[3] - height) * 0.5) + main[1] + 6


def frame_argument(installer):
    """The frame that the controller has passed on."""
    arguments = arguments_of(installer)
    text = arguments[arguments.index(protocol.mainFrameArgument) + 1]
    return [float(number) for number in text.removeprefix("r: ").replace("{", "").replace("}", "").split(",")]


def expect_place_over_controller(world, installer, height):
    """The frame that was passed on is the controller's, and the wizard stands where it belongs, to the pixel."""
    window = world.road.window_of_controller()
    left, top, width, tall = world.desktop.frame_of(window)
    main = frame_argument(installer)
    equal("the controller's frame", main, [left, world.desktop.screen_height() - top - tall, width, tall])
    frame = wait_for("the wizard's final height",
                     lambda: (found := world.frame_of_wizard(installer)) and found[3] == height and found)
    equal("the wizard's origin", frame[:2], expected_origin(main, frame[2], frame[3]))


@scenario("gui")
def update(world):
    """The controller is replaced by its new version, which resumes its self-update."""
    installer = world.start_waiting("update")
    expect_place_over_controller(world, installer, 320)
    equal("the wizard", world.wizard_texts(installer),
          ([english("<ControllerUpdateWizard_Title>"), english("<ControllerUpdateWizard_Installing>")],
           [english("<Cancel>"), english("<Next>")]))
    equal("the wizard's title", world.desktop.ask("xdotool", "getwindowname", world.desktop.window_of(installer)).strip(),
          "Kelto Installer")
    world.hand_over()
    world.expect_update_ends(installer)
    check("the source was moved", not world.road.new.exists())
    equal("runs of the tool", world.tool_runs(), 1)


@scenario("gui")
def install(world):
    """An installation over an old copy shows a low wizard and starts the new version without arguments."""
    installer = world.start_waiting("install", Frame="{{101, 57}, {801, 603}}")
    expect_place_over_controller(world, installer, 206)
    equal("the wizard", world.wizard_texts(installer),
          ([english("<InstallerInstallKeltoSubtitle>"), english("<InstallerInstallKeltoBody>")],
           [english("<Cancel>"), english("<Done>")]))
    world.hand_over()
    world.expect_update_ends(installer, resumed=False)


@scenario("gui")
def uninstall(world):
    """The installed bundle is in the user's Trash afterwards, ready to be restored, and nothing is started."""
    installer = world.start_waiting("uninstall")
    expect_place_over_controller(world, installer, 206)
    equal("the wizard", world.wizard_texts(installer),
          ([english("<InstallerUninstallKeltoSubtitle>"), english("<InstallerUninstallKeltoBody>")],
           [english("<Cancel>"), english("<Done>")]))
    world.hand_over()
    world.road.installer_gone(installer)
    expect_in_trash(world)
    equal("what runs", processes_of(world.folder), [])


def expect_in_trash(world):
    trash = world.desktop.home / ".local/share/Trash"
    check("the installed bundle is gone", not os.path.lexists(world.road.installed))
    equal("the version in the Trash", version_of(trash / "files/Kelto.app"), "1.0")
    note = (trash / "info/Kelto.app.trashinfo").read_text()
    check("the Trash knows where it was", f"Path={urllib.parse.quote(str(world.road.installed))}\n" in note)
    world.expect_no_leftovers()


@scenario("gui", road={"new_name": "Kelto 2.app"})
def new_file_name(world):
    """A new version of another file name ends up under its own name, and is started from there."""
    installer = world.start("update")
    bundle = world.road.applications / "Kelto 2.app"
    world.expect_update_ends(installer, bundle)
    check("nothing is under the old name", not os.path.lexists(world.road.installed))
    equal("runs of the tool", world.tool_runs(), 2)


@scenario("gui", road={"new_name": "Kelto 2.app"})
def new_name_already_taken(world):
    """When something else has the new name, the run fails before the controller is asked to quit."""
    taken = world.road.applications / "Kelto 2.app"
    shutil.copytree(world.road.installed, taken)
    installer = world.start("update")
    world.expect_general_failure(installer)
    check("the controller still runs", world.road.controller.is_running())
    equal("runs of the tool", world.tool_runs(), 0)
    equal("the version under the new name", version_of(taken), "1.0")
    world.expect_nothing_changed()


@scenario("gui")
def link_as_new_bundle(world):
    """A link is not installed: the run fails before the controller is asked to quit."""
    real = world.road.new.with_name("Real.app")
    world.road.new.rename(real)
    world.road.new.symlink_to(real)
    installer = world.start("update")
    world.expect_general_failure(installer)
    check("the controller still runs", world.road.controller.is_running())
    check("the link is where it was", world.road.new.is_symlink())
    world.expect_nothing_changed()


ODD = "Ünter 100% “q” 'x' \"y\" %@ %d $HOME {a; b}"


@scenario("gui", road={"applications": ODD, "downloads": f"日本 {ODD}", "new_name": "Kelto %d.app"})
def odd_paths(world):
    """Blanks, quotes, percent signs and letters of any language in a path arrive as they are."""
    installer = world.start_waiting("update")
    arguments = arguments_of(installer)
    equal("the path of the new bundle", arguments[arguments.index(protocol.sourcePathArgument) + 1], str(world.road.new))
    world.hand_over()
    world.expect_update_ends(installer, world.road.applications / "Kelto %d.app")


@scenario("gui")
def cancel(world):
    """The wizard's Cancel button ends the installer before anything is changed."""
    installer = world.start_waiting("update")
    check("Cancel can be pressed", wait_for("the Cancel button", lambda: world.desktop.press(installer, english("<Cancel>"))))
    world.road.installer_gone(installer)
    check("the controller still runs", world.road.controller.is_running())
    world.expect_nothing_changed()


@scenario("gui")
def without_a_frame(world):
    """Without the controller's frame the wizard is in the middle of the screen."""
    installer = world.start_installer(protocol.trashPathArgument, world.road.installed)
    frame = wait_for("the wizard's final height",
                     lambda: (found := world.frame_of_wizard(installer)) and found[3] == 206 and found)
    equal("the wizard's frame", frame, ((1280 - 460) // 2, (800 - 206) // 2, 460, 206))
    check("it waits", is_running(installer))


@scenario("gui")
def update_flag_with_a_removal(world):
    """With the update flag and no new bundle the wizard speaks of an update, and the bundle is removed."""
    world.road.start_controller()
    world.road.window_of_controller()
    installer = world.start_installer(protocol.trashPathArgument, world.road.installed, protocol.isUpdateArgument, "YES")
    equal("the wizard's texts", world.wizard_texts(installer)[0],
          [english("<ControllerUpdateWizard_Title>"), english("<ControllerUpdateWizard_Installing>")])
    equal("the wizard's height", world.frame_of_wizard(installer)[3], 320)


@scenario("bus")
def second_notification(world):
    """Rights that come twice are taken twice, and the update happens once; only the installer's connection gets them."""
    monitor = world.desktop.start("monitor", ["dbus-monitor", "--session", f"interface='{protocol.notificationsInterface}'"])
    wait_for("the monitor", lambda: "NameLost" in monitor.text())
    installer = world.start_update_with("twice")
    world.expect_update_ends(installer)
    equal("runs of the tool", world.tool_runs(), 1)
    signals = [line for line in monitor.text().splitlines() if "member=Posted" in line]
    equal("notifications", len(signals), 2)
    for line in signals:
        check("it was sent to one connection", "destination=:" in line)


@scenario("gui")
def preference_is_left_alone(world):
    """Without a Library Server no preference is written."""
    installer = world.start("update")
    world.expect_update_ends(installer)
    equal("preferences", list(pathlib.Path(world.desktop.environment["XDG_CONFIG_HOME"]).glob("*.plist")), [])


@scenario("gui")
def threads_of_an_update(world):
    """From the hand-over on, one update starts at most three threads: one makes the long calls, the others log."""
    require_tracing()
    installer = world.start_waiting("update")
    trace = world.folder / "trace"
    tracer = world.desktop.start("strace", ["strace", "-f", "-qq", "-o", trace, "-e", "trace=clone,clone3", "-p", installer])
    wait_for("the tracer", lambda: tracer_of(installer) != "0")
    world.hand_over()
    world.expect_update_ends(installer)
    started = len(threads_started_by(installer, trace.read_text()))
    check(f"at most three threads are started ({started})", started <= 3)


@scenario("gui")
def nothing_waits_for_the_fence_of_logging(world):
    """The kernel makes a process wait for some 20 ms that asks for the fence with more than one thread."""
    require_tracing()
    trace = world.folder / "trace"
    world.desktop.start("strace", ["strace", "-f", "-qq", "-o", trace, "-e", "trace=clone,clone3,membarrier",
                                   world.road.installer / "Contents/Linux/KeltoInstaller", protocol.trashPathArgument,
                                   world.road.installed])
    world.road.wizard(world.road.started_installer())
    calls = [line.split()[1] for line in trace.read_text().splitlines()]
    check("the first thread is started", any(call.startswith("clone") for call in calls))
    threads = [number for number, call in enumerate(calls) if call.startswith("clone")]
    asked = [number for number, call in enumerate(calls) if call.startswith("membarrier(MEMBARRIER_CMD_REGISTER")]
    check("it asks once, before its second thread", len(asked) == 1 and asked[0] < threads[0])


def tracer_of(process):
    return re.search(r"TracerPid:\s*(\d+)", pathlib.Path(f"/proc/{process}/status").read_text()).group(1)


def threads_started_by(process, trace):
    """The threads that the traced process has started, and these; not those of the programs that it has started."""
    threads, open_calls = {str(process)}, set()
    for line in trace.splitlines():
        thread, _, call = line.partition(" ")
        if call.lstrip().startswith("clone") and "CLONE_THREAD" in call:
            open_calls.add(thread)
        number = call.rpartition(" = ")[2].split()[0] if " = " in call else ""
        if thread in threads and thread in open_calls and number.isdigit():
            open_calls.discard(thread)
            threads.add(number)
    return threads - {str(process)}


def require_tracing():
    if not shutil.which("strace") or subprocess.run(["strace", "-o", "/dev/null", "true"], capture_output=True).returncode:
        raise Skip("processes cannot be traced here")
