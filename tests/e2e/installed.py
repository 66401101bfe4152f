"""An installation by an administrator, used by an ordinary user: no program of the build folder but the application."""
import contextlib
import os
import pathlib
import subprocess

from road import constants
from world import check, equal, scenario

PROGRAMS = pathlib.Path(constants()["packagedToolFolder"])
# Where the application is installed, when not in the test's own folder; and a command to run in the middle of an update.
APPLICATIONS = os.environ.get("KELTO_E2E_APPLICATIONS", "Applications")
MEANWHILE = os.environ.get("KELTO_E2E_MEANWHILE", "true")
INSTALLED = {"where": "installed-grant", "account": True, "system_bus": True,
             "road": {"installer": PROGRAMS / "KeltoInstaller.app", "applications": APPLICATIONS}}


def broker():
    """The process of the broker that runs."""
    for entry in pathlib.Path("/proc").iterdir():
        with contextlib.suppress(OSError):
            if entry.name.isdigit() and (entry / "comm").read_text().strip() == "authorizationd":
                return int(entry.name)
    return None


def mapped_by(process):
    """The files that a process has in memory: its program, its libraries, its plug-ins."""
    lines = pathlib.Path(f"/proc/{process}/maps").read_text().splitlines()
    return {line.split(maxsplit=5)[5] for line in lines if len(line.split(maxsplit=5)) == 6}


@scenario("system", **INSTALLED)
def installed_update(world):
    """The user's application has the installed installer, broker and tool replace it where only root can write."""
    check("the broker waits to be asked", broker() is None)
    installer = world.start_waiting("update")
    equal("the installer's user", os.stat(f"/proc/{installer}").st_uid, world.desktop.account.uid)
    programs = installer, broker()
    for process in programs:
        check("an installed program runs", os.readlink(f"/proc/{process}/exe").startswith(f"{PROGRAMS}/"))
        equal("what it has from the build folder", [path for path in mapped_by(process) if path.startswith(f"{world.build}/")], [])
    subprocess.run(MEANWHILE, shell=True, check=True)
    world.hand_over()
    world.expect_update_ends(installer)
    check("no other broker has served", broker() in (programs[1], None))
    for path in [world.road.installed, *world.road.installed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, 0)


@scenario("system", **INSTALLED)
def installed_uninstall(world):
    """The same for the end: the application is in its user's Trash."""
    installer = world.start_waiting("uninstall")
    world.hand_over()
    world.road.installer_gone(installer)
    check("the installed bundle is gone", not os.path.lexists(world.road.installed))
    user = world.desktop.account.uid
    trashes = [world.desktop.home / ".local/share/Trash", pathlib.Path(f"/.Trash-{user}")]  # of the home and of another volume
    trashed = [each for each in (trash / "files/Kelto.app" for trash in trashes) if each.exists()]
    equal("the owners of what is in the Trash", [os.lstat(each).st_uid for each in trashed], [user])


@scenario("system", **{**INSTALLED, "where": "installed-deny"})
def installed_refused(world):
    """A refusal of the policy is the end, and changes nothing."""
    world.road.start_controller("update")
    world.road.controller_says("Administrator rights were refused")
    world.expect_nothing_changed()
