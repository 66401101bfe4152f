"""Everything that ends in an alert."""
import shutil
import signal
import subprocess

import endings
import protocol
from desktop import processes_of, started_at
from road import version_of
from world import check, english, equal, scenario, uptime


@scenario("gui")
def no_credentials(world):
    """When no rights arrive, the general failure is shown 5.0 seconds after launch."""
    installer = world.start_waiting("update")
    shown = uptime()
    world.alert(installer)
    seen = uptime()
    check(f"the alert is not early ({seen - started_at(installer):.2f} s)", seen - started_at(installer) >= 5.0)
    check(f"the alert is not late ({seen - shown:.2f} s)", seen - shown < 6.5)
    world.expect_general_failure(installer)
    endings.expect_ending(world, installer, "controller-1", endings.REFUSED, "wait for the rights", world.road.installed,
                          "no rights were handed over")
    check("the controller still runs", world.road.controller.is_running())
    equal("runs of the tool", world.tool_runs(), 0)
    world.expect_nothing_changed()


@scenario("gui")
def wrong_credentials(world):
    """Bytes that stand for no rights are refused, naming the folder of the installed bundle."""
    installer = world.start_update_with("wrong")
    world.expect_alert(installer, english("<InstallerBadPermissionSubtitle>"),
                       english("<InstallerBadPermissionMessage_1>", "Applications"))
    check("the controller still runs", world.road.controller.is_running())
    equal("runs of the tool", world.tool_runs(), 0)
    world.expect_nothing_changed()


@scenario("bus")
def notification_without_credentials(world):
    """A notification without rights in it is the general failure at once."""
    installer = world.start_installer(protocol.trashPathArgument, world.road.installed)
    started = uptime()
    subprocess.run(["busctl", f"--address={world.desktop.environment['DBUS_SESSION_BUS_ADDRESS']}", "emit",
                    "--destination=com.kelto.installer", protocol.notificationsPath,
                    protocol.notificationsInterface, protocol.notificationSignal, "ssa{sv}", protocol.credentialsNotification, "",
                    "0"], check=True)
    world.alert(installer)
    check("it did not wait for the time-out", uptime() - started < 3)
    world.expect_general_failure(installer)
    world.expect_nothing_changed()


@scenario("gui")
def controller_refuses_to_quit(world):
    """A controller that does not quit is named in an alert after 5 seconds, and not replaced. A signal ends the installer under
    this alert, too, which is not a modal one."""
    installer = world.start("update", RefuseToQuit="YES")
    world.road.controller_says("Asked to quit, and stays")
    asked = uptime()
    world.alert(installer)
    waited = uptime() - asked
    check(f"the alert comes after 5 seconds ({waited:.2f} s)", 4.8 <= waited < 6.5)
    world.expect_alert_stays(installer, english("<InstallerKeltoRunningSubtitle_1>", "Kelto"),
                             english("<InstallerKeltoRunningMessage>"))
    endings.expect_end_by(world, installer, signal.SIGTERM)
    endings.expect_still_running_ends(world, installer)
    check("the controller still runs", world.road.controller.is_running())
    equal("it was asked once", world.road.controller.text().count("Asked to quit"), 1)
    equal("runs of the tool", world.tool_runs(), 0)
    world.expect_nothing_changed()


def break_tool(world):
    """A tool that does nothing and says nothing."""
    tool = world.road.installer / "Contents/Resources/assistantTool"
    tool.unlink()
    shutil.copy("/usr/bin/true", tool)


@scenario("gui")
def failing_tool(world):
    """A tool that says nothing has failed: the general failure, and nothing is started."""
    break_tool(world)
    installer = world.start("update")
    world.expect_general_failure(installer)
    equal("runs of the tool", world.tool_runs(), 1)
    equal("what runs", processes_of(world.folder), [])
    world.expect_nothing_changed()


@scenario("gui")
def failing_tool_when_removing(world):
    """A removal that fails names the bundle without its extension."""
    break_tool(world)
    installer = world.start("uninstall")
    world.expect_alert(installer, english("<InstallerUnableToUninstallSubtitle>"),
                       english("<InstallerUnableToUninstallMessage_1>", "Kelto"))
    world.expect_nothing_changed()


@scenario("gui")
def missing_tool(world):
    """Without a tool among its resources the installer fails in the general way."""
    (world.road.installer / "Contents/Resources/assistantTool").unlink()
    installer = world.start("update")
    world.expect_general_failure(installer)
    world.expect_nothing_changed()


@scenario("gui", road={"new_name": "Kelto 2.app"})
def rename_fails(world):
    """When the new version cannot get its own name it stays under the old one, and nothing is started."""
    # A link to nowhere does not exist for who follows it, and yet has the name.
    installer = world.start_waiting("update")
    wanted = world.road.applications / "Kelto 2.app"
    wanted.symlink_to("nowhere")
    world.hand_over()
    world.expect_general_failure(installer)
    equal("the version under the old name", version_of(world.road.installed), "2.0")
    check("the name is the link's still", wanted.is_symlink())
    equal("runs of the tool", world.tool_runs(), 2)
    equal("what runs", processes_of(world.folder), [])


@scenario("gui")
def nothing_installed(world):
    """A path that names no bundle is the general failure at once."""
    program = world.desktop.start("installer", [world.road.installer / "Contents/Linux/KeltoInstaller",
                                                protocol.trashPathArgument, world.folder / "Nowhere.app"])
    world.alert(program.pid, seconds=4)
    check("it did not wait for rights", uptime() - started_at(program.pid) < 4.5)
    world.expect_general_failure(program.pid)


@scenario("gui")
def uninstall_of_nothing(world):
    """The installer ends quietly when the bundle that it is to remove has already gone."""
    installer = world.start_waiting("uninstall")
    shutil.rmtree(world.road.installed)
    world.hand_over()
    world.road.installer_gone(installer)
    equal("runs of the tool", world.tool_runs(), 0)
    check("there is no Trash", not (world.desktop.home / ".local/share/Trash").exists())


@scenario("bus", broker=False)
def no_broker(world):
    """Without a broker there are no rights to hand over, and the controller starts no installer."""
    world.road.start_controller("update")
    world.road.controller_says("Administrator rights were refused")
    equal("installers", processes_of(world.road.installer), [])
    world.expect_nothing_changed()
