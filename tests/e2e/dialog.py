"""The wizard as a dialog of the controller's window, where the display knows such dialogs between programs."""
import json
import os
import pathlib
import shutil
import signal
import subprocess

import protocol
from copies import process_in_front
from desktop import is_running, wait_for
from screens import WIDTH
from wayland import find_windows_by_accessibility, leave_x
from world import Skip, check, english, equal, scenario

SCREEN = (0, 0, 1280, 800)
HEIGHT = 320  # of the wizard for an update
VARIABLE = protocol.parentWindowVariable
# No edges: a window that fills the screen is as large as the screen.
SWAY = "xwayland disable\noutput * resolution 1280x800 position 0,0\ndefault_border none\ndefault_floating_border none\n"


def start_sway(world):
    """A compositor that knows xdg-foreign, without a screen; the programs that are started from now on find no other display."""
    if not shutil.which("sway"):
        raise Skip("sway is not installed")
    desktop = world.desktop
    leave_x(world)
    configuration = desktop.services / "sway.conf"
    configuration.write_text(SWAY)
    headless = ["WLR_BACKENDS=headless", "WLR_LIBINPUT_NO_DEVICES=1", "WLR_RENDERER=pixman"]
    # It refuses to run as root; in a namespace where it is somebody else, root's programs can still reach it.
    as_another = ["unshare", "--user", "--map-user=1000"] if os.geteuid() == 0 else []
    if as_another and subprocess.run([*as_another, "true"], capture_output=True).returncode:
        raise Skip("namespaces are not allowed here")
    desktop.start("sway", [*as_another, "/usr/bin/env", *headless, "sway", "--config", configuration])
    def socket(pattern):
        return wait_for("the compositor", lambda: [each for each in desktop.runtime.glob(pattern) if each.is_socket()])[0]
    desktop.environment |= {"SWAYSOCK": str(socket("sway-ipc.*")), "WAYLAND_DISPLAY": socket("wayland-*").name}
    find_windows_by_accessibility(desktop)


def window_in(tree, process):
    """The compositor's description of the window of a process."""
    if tree.get("pid") == process:
        return tree
    found = (window_in(each, process) for each in tree["nodes"] + tree["floating_nodes"])
    return next((each for each in found if each), None)


def window_of(world, process):
    return wait_for("a window in the compositor",
                    lambda: window_in(json.loads(world.desktop.ask("swaymsg", "--raw", "--type", "get_tree")), process))


def place_of(window):
    return tuple(window["rect"][key] for key in ("x", "y", "width", "height"))


def fill_screen_with_controller(world):
    """Over a window that fills the screen the compositor shows its dialogs, and no other window."""
    process = world.road.controller.pid
    world.desktop.ask("swaymsg", f"[pid={process}]", "fullscreen", "enable")
    wait_for("the controller on the whole screen", lambda: window_of(world, process)["fullscreen_mode"] == 1)


def name_given_to(installer):
    variables = pathlib.Path(f"/proc/{installer}/environ").read_text().split("\0")
    return dict(each.split("=", 1) for each in variables if "=" in each).get(VARIABLE)


@scenario("gui")
def dialog_on_wayland(world):
    """The compositor has the wizard over the middle of the controller's window, as its dialog, and the update goes its way."""
    start_sway(world)
    installer = world.start_waiting("update")
    fill_screen_with_controller(world)
    wizard = window_of(world, installer)
    left, top, width, height = SCREEN
    equal("the controller's place", place_of(window_of(world, world.road.controller.pid)), SCREEN)
    equal("the wizard's place", place_of(wizard), (left + (width - WIDTH) // 2, top + (height - HEIGHT) // 2, WIDTH, HEIGHT))
    check("the wizard is a dialog of the controller's window", wizard["visible"])
    world.hand_over()
    relaunched = world.expect_update_ends(installer)
    variables = pathlib.Path(f"/proc/{relaunched}/environ").read_text()
    check("the new version knows nothing of the old one's window", VARIABLE not in variables)


@scenario("gui")
def dialog_gives_way_on_wayland(world):
    """A controller that is asked to quit can come in front of the wizard, with what it asks its user."""
    start_sway(world)
    installer = world.start_waiting("update", RefuseToQuit="YES")
    fill_screen_with_controller(world)
    check("the wizard is in front until then", window_of(world, installer)["visible"])
    world.hand_over()
    wait_for("the controller in front", lambda: not window_of(world, installer)["visible"])
    check("the installer runs", is_running(installer))


@scenario("gui")
def dialog_stays_without_its_parent(world):
    """The controller dies: the wizard stays, and can be used. The name of the window that has gone harms no later run."""
    start_sway(world)
    installer = world.start_waiting("update")
    name = name_given_to(installer)
    check(f"the name is one of Wayland's ({name})", name.startswith("wayland:"))
    os.kill(world.road.controller.pid, signal.SIGKILL)
    world.road.controller_gone()
    wait_for("the wizard alone", lambda: window_of(world, installer)["focused"])
    check("the wizard is shown", window_of(world, installer)["visible"])
    check("Cancel can be pressed", world.desktop.press(installer, english("<Cancel>")))
    world.road.installer_gone(installer)
    expect_ignored(world, name, "the display does not know it")


@scenario("gui")
def dialog_of_nothing(world):
    """A name that no controller sends changes nothing."""
    start_sway(world)
    expect_ignored(world, "wayland:" + 255 * "%n", "it does not name a window")
    expect_ignored(world, "wayland:" + 127 * "%n", "the display does not know it")
    expect_ignored(world, "x11:1400003", "it is on another display")


def expect_ignored(world, name, reason):
    world.desktop.environment[VARIABLE] = name
    installer = world.start_installer(protocol.trashPathArgument, world.road.installed)
    check("the wizard is shown", window_of(world, installer)["visible"])
    wait_for(f"the log's line: {reason}", lambda: reason in world.log_of("installer"))
    os.kill(installer, signal.SIGTERM)
    world.road.installer_gone(installer)


@scenario("gui")
def dialog_on_x11(world):
    """Here too the wizard is a dialog of the controller's window, until the controller may have something to ask."""
    installer = world.start_waiting("update", RefuseToQuit="YES")
    controller = world.road.window_of_controller()
    def parent():
        text = world.desktop.ask("xprop", "-id", world.desktop.window_of(installer), "WM_TRANSIENT_FOR")
        return int(text.rpartition("#")[2], 16) if "#" in text else None
    wait_for("the wizard as a dialog", lambda: parent() == int(controller))
    world.desktop.ask("xdotool", "windowactivate", "--sync", controller)
    equal("the process in front", process_in_front(world), installer)
    world.hand_over()
    wait_for("the controller in front", lambda: process_in_front(world) == world.road.controller.pid)
    equal("the wizard's parent", parent(), None)
