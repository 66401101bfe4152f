"""The wizard and every alert without a mouse and without eyes: what assistive tools hear, and what the keyboard does."""
import endings
import protocol
from copies import process_of, stacked
from desktop import Failure, is_running, wait_for
from failures import break_tool
from road import alerts_of
from world import check, english, equal, scenario

CANCEL, OK = english("<Cancel>"), english("<OK>")


def wizard_with_keyboard(world, *arguments):
    """The installer's process, once its wizard has the keyboard."""
    process = world.start_installer(protocol.trashPathArgument, world.road.installed, *arguments)
    number = world.desktop.window_of(process)
    wait_for("the wizard with the keyboard", lambda: world.desktop.ask("xdotool", "getactivewindow").strip() == number)
    return process


def wizard(world, process):
    return wait_for("the wizard", lambda: world.desktop.windows(process))[0]


def type_until(world, keys, what, condition):
    """Types, again when nothing came of it: a key in the moment in which a window gets the keyboard may be lost."""
    def is_so():
        world.desktop.ask("xdotool", "key", keys)
        try:
            return wait_for(what, condition, 0.5)
        except Failure:
            return False
    wait_for(what, is_so)


@scenario("gui")
def wizard_is_told(world):
    """Every element of the wizard has a role and a name; the keyboard can reach what can be pressed, and nothing else."""
    found = wizard(world, wizard_with_keyboard(world))
    title = english("<InstallerUninstallKeltoSubtitle>")
    equal("the window", (found["role"], found["name"], found["description"]),
          ("frame", "Kelto Installer", f"{title}\n{english('<InstallerUninstallKeltoBody>')}"))
    equal("what says that it is busy", found["busy"], [title])
    equal("its elements", found["elements"],
          [["label", title], ["label", english("<InstallerUninstallKeltoBody>")], ["progress bar", title],
           ["push button", CANCEL], ["push button", english("<Done>")]])
    equal("what can have the keyboard", [name for name in found["focusable"] if name in found["enabled"]], [CANCEL])
    equal("what has it at first", found["focused"], [])


@scenario("gui")
def wizard_by_keyboard(world):
    """Tab goes to Cancel and stays there, both ways; Space presses it, and nothing typed before did."""
    process = wizard_with_keyboard(world)
    world.desktop.ask("xdotool", "key", "space", "Return")
    for keys in ("Tab", "Tab", "shift+Tab"):
        type_until(world, keys, "the keyboard on Cancel", lambda: wizard(world, process)["focused"] == [CANCEL])
    check("neither Space nor Return has pressed anything", is_running(process))
    type_until(world, "space", "the end", lambda: not is_running(process))


@scenario("gui")
def wizard_by_escape(world):
    """Escape is Cancel, wherever the keyboard is."""
    process = wizard_with_keyboard(world)
    type_until(world, "Escape", "the end", lambda: not is_running(process))


def expect_told_alert(world, process, headline, text):
    """The alert's roles, names and order of elements; its button has the keyboard and keeps it."""
    alert = wait_for("the alert", lambda: alerts_of(world.desktop, process))[0]
    equal("the alert's window", (alert["role"], alert["name"], alert["description"]),
          ("alert", "Kelto Installer", ""))
    equal("its elements", alert["elements"], [["label", headline], ["label", text], ["push button", OK]])
    wait_for("the keyboard on the button", lambda: alerts_of(world.desktop, process)[0]["focused"] == [OK])
    world.desktop.ask("xdotool", "key", "Tab")
    equal("what has the keyboard after Tab", alerts_of(world.desktop, process)[0]["focused"], [OK])


def dismiss_by_keyboard(world, process, keys):
    type_until(world, keys, "the end of the alert",
               lambda: not is_running(process) or not alerts_of(world.desktop, process))


def expect_alert_by_keyboard(world, process, headline, text, keys):
    """This alert is told; `keys` dismiss it, and that is the end."""
    expect_told_alert(world, process, headline, text)
    dismiss_by_keyboard(world, process, keys)
    world.road.installer_gone(process)


def expect_general_failure(world, keys):
    process = world.start_installer(protocol.trashPathArgument, world.folder / "Nowhere.app")
    expect_alert_by_keyboard(world, process, english("<InstallerUnexpectedErrorSubtitle>"),
                             english("<InstallerUnexpectedErrorMessage>"), keys)


@scenario("gui")
def general_failure_by_keyboard(world):
    """The alert of the general failure is told, and Return, Space and Escape each dismiss it."""
    for keys in ("Return", "space", "Escape"):
        expect_general_failure(world, keys)


@scenario("gui")
def refused_rights_by_keyboard(world):
    """The alert about missing rights."""
    expect_alert_by_keyboard(world, world.start_update_with("wrong"), english("<InstallerBadPermissionSubtitle>"),
                             english("<InstallerBadPermissionMessage_1>", "Applications"), "Return")


@scenario("gui")
def running_controller_by_keyboard(world):
    """The alert about a controller that would not quit. It leaves the keyboard to the controller until the user turns to it."""
    process = world.start("update", RefuseToQuit="YES")
    world.alert(process)
    alert = next(window for window in reversed(stacked(world)) if process_of(world, window) == process)
    world.desktop.ask("xdotool", "windowactivate", "--sync", str(int(alert, 16)))
    expect_alert_by_keyboard(world, process,
                             english("<InstallerKeltoRunningSubtitle_1>", "Kelto"),
                             english("<InstallerKeltoRunningMessage>"), "Escape")
    endings.expect_still_running_ends(world, process)


@scenario("gui")
def failed_removal_by_keyboard(world):
    """The alert about a bundle that cannot be removed."""
    break_tool(world)
    expect_alert_by_keyboard(world, world.start("uninstall"), english("<InstallerUnableToUninstallSubtitle>"),
                             english("<InstallerUnableToUninstallMessage_1>", "Kelto"), "space")
