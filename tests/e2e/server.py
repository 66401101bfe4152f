"""With a real service manager that runs the Library Server: its upgrade, and one that fails."""
import os
import pathlib
import plistlib
import shutil
import subprocess

import protocol
from desktop import processes_of, wait_for
from endings import FAILED, expect_ending
from keyboard import dismiss_by_keyboard, expect_told_alert
from road import PROJECT, SERVER_FILES, version_of
from world import check, english, equal, scenario

SURROUNDINGS = {"account": True, "system_bus": True}
UNIT = "com.kelto.KeltoLibraryServer.service"
PROGRAM = pathlib.Path("/Library/Application Support/Kelto/KeltoLibraryServer")
DEFINITION = pathlib.Path("/Library/LaunchDaemons/com.kelto.KeltoLibraryServer.plist")
UNIT_FILE = pathlib.Path("/etc/systemd/system") / UNIT
MARKER = pathlib.Path("/Users/Shared/Kelto/Shares.plist")
BROKER_UNIT = "kelto-authorizationd.service"
STATE = pathlib.Path("/run/com.kelto.KeltoLibraryServer.version")


def systemctl(*words):
    return subprocess.run(["systemctl", *words], check=True, text=True, stdout=subprocess.PIPE).stdout.strip()


def start_old_server(build):
    """Version 1 of the Library Server, installed and running; its process."""
    for path in (PROGRAM, DEFINITION, MARKER):
        path.parent.mkdir(parents=True, exist_ok=True)
    MARKER.write_bytes(plistlib.dumps({}))
    shutil.copy(build / "bin/KeltoLibraryServer-1", PROGRAM)
    for name, place in zip(SERVER_FILES, (DEFINITION, UNIT_FILE)):
        shutil.copy(PROJECT / "demo/library-server" / name, place)
    systemctl("daemon-reload")
    systemctl("start", UNIT)
    expect_server("1")
    return main_process()


def process_of(unit):
    return int(systemctl("show", "--property=MainPID", "--value", unit))


def main_process():
    return process_of(UNIT)


def expect_server(version):
    wait_for(f"version {version} of the Library Server", lambda: STATE.exists() and STATE.read_text() == f"{version}\n")
    equal("the service", systemctl("is-active", UNIT), "active")


def preferences(world, domain="com.kelto.macController"):
    file = pathlib.Path(world.desktop.environment["XDG_CONFIG_HOME"], f"{domain}.plist")
    return plistlib.loads(file.read_bytes()) if file.exists() else {}


@scenario("system", where="services", **SURROUNDINGS)
def server_upgrade(world):
    """A running Library Server is upgraded with the controller, and its version is noted in the controller's preferences."""
    old = start_old_server(world.build)
    world.expect_update_ends(world.start("update"))
    expect_server("2")
    check("it is another process", main_process() not in (0, old))
    equal("the program", PROGRAM.read_bytes(), (world.build / "bin/KeltoLibraryServer-2").read_bytes())
    equal("the preferences", preferences(world), {"LibraryServerVersion": "2"})
    equal("who owns the preferences", {each.stat().st_uid for each in (world.desktop.home / ".config").glob("*.plist")},
          {world.desktop.account.uid})


@scenario("system", where="services", **SURROUNDINGS)
def failing_server_upgrade(world):
    """A Library Server that does not run is told with headline and text exchanged, and dismissed by the keyboard; the old one
    runs again, and the update goes on."""
    start_old_server(world.build)
    server = world.road.new / "Contents/Resources/LibraryServer"
    (server / "KeltoLibraryServer").unlink()
    shutil.copy("/usr/bin/false", server / "KeltoLibraryServer")
    unit = server / UNIT
    unit.write_text(unit.read_text().replace("Restart=on-failure\n", "Restart=no\n"))
    installer = world.start("update")
    expect_told_alert(world, installer, english("<InstallerUnexpectedErrorMessage>"),
                      english("<InstallerUnexpectedErrorSubtitle>"))
    equal("the version on disk", version_of(world.road.installed), "2.0")
    equal("what runs while the alert is up", processes_of(world.road.installed), [])
    dismiss_by_keyboard(world, installer, "Return")
    world.expect_update_ends(installer)
    expect_server("1")
    equal("the program", PROGRAM.read_bytes(), (world.build / "bin/KeltoLibraryServer-1").read_bytes())
    check("the old unit is back", "Restart=on-failure\n" in UNIT_FILE.read_text())
    equal("the preferences", preferences(world), {})


@scenario("system", where="services", **SURROUNDINGS)
def stopped_server(world):
    """A Library Server that is installed and known to the service manager, but does not run, is left alone."""
    start_old_server(world.build)
    # The manager forgets a stopped service that nobody mentions.
    (UNIT_FILE.parent / "mentions.target").write_text(f"[Unit]\nDefaultDependencies=no\nAfter={UNIT}\n")
    systemctl("daemon-reload")
    systemctl("start", "mentions.target")
    systemctl("stop", UNIT)
    check("the manager knows the service", UNIT in systemctl("list-units", "--all", "--no-legend"))
    world.expect_update_ends(world.start("update"))
    equal("the process of the service", main_process(), 0)
    equal("the program", PROGRAM.read_bytes(), (world.build / "bin/KeltoLibraryServer-1").read_bytes())
    equal("the preferences", preferences(world), {})
    check("the marker is still there", os.path.exists(MARKER))


def start_broker_as_service(world):
    """The broker in the unit with which it is installed; its process."""
    shutil.copy(world.build / "share/systemd/system" / BROKER_UNIT, UNIT_FILE.parent)
    systemctl("daemon-reload")
    systemctl("start", BROKER_UNIT)
    broker = process_of(BROKER_UNIT)
    status = dict(line.split(":\t", 1) for line in pathlib.Path(f"/proc/{broker}/status").read_text().splitlines()
                  if ":\t" in line)
    equal("whether the broker may gain rights", status["NoNewPrivs"], "1")
    equal("whether its system calls are filtered", status["Seccomp"], "2")
    equal("its capabilities", int(status["CapBnd"], 16), 0b11001111)
    check("it has no network", os.readlink(f"/proc/{broker}/ns/net") != os.readlink("/proc/self/ns/net"))
    return broker


@scenario("system", where="services", **SURROUNDINGS)
def update_by_bounded_broker(world):
    """With the broker in the bounds of its unit, and the tool in them too, bundle and Library Server are upgraded."""
    old = start_old_server(world.build)
    broker = start_broker_as_service(world)
    world.expect_update_ends(world.start("update"))
    expect_server("2")
    check("it is another process", main_process() not in (0, old))
    equal("the program", PROGRAM.read_bytes(), (world.build / "bin/KeltoLibraryServer-2").read_bytes())
    equal("the broker", process_of(BROKER_UNIT), broker)


@scenario("system", where="services", **SURROUNDINGS)
def uninstall_by_bounded_broker(world):
    """With the broker in the bounds of its unit, what belongs to root still comes into the user's own Trash."""
    broker = start_broker_as_service(world)
    installer = world.start("uninstall")
    world.road.installer_gone(installer)
    check("the installed bundle is gone", not os.path.lexists(world.road.installed))
    trashed = world.desktop.home / ".local/share/Trash/files/Kelto.app"
    equal("the version in the Trash", version_of(trashed), "1.0")
    equal("its owners", {os.lstat(path).st_uid for path in [trashed, *trashed.rglob("*")]}, {world.desktop.account.uid})
    equal("the broker", process_of(BROKER_UNIT), broker)


@scenario("system", where="services", **SURROUNDINGS)
def read_only_folder_of_bounded_broker(world):
    """That the broker's unit has the bundle's folder read-only is known before the application is asked to quit."""
    more = UNIT_FILE.parent / f"{BROKER_UNIT}.d/more.conf"
    more.parent.mkdir()
    more.write_text(f"[Service]\nReadOnlyPaths={world.road.applications}\n")
    start_broker_as_service(world)
    controller = world.road.start_controller()
    world.road.window_of_controller()
    process = world.start_installer(protocol.sourcePathArgument, world.road.new, protocol.trashPathArgument, world.road.installed)
    world.expect_general_failure(process, 4)
    expect_ending(world, process, "installer", FAILED, "check the paths", world.road.installed,
                  f"the broker's service has {world.road.applications} read-only")
    check("the application was not asked to quit", not controller.says("Asked to quit"))
    check("the application still runs", controller.is_running())
    world.expect_nothing_changed()
