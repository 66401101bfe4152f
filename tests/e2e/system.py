"""On a real system bus with the real policy service: an ordinary user updates what belongs to root."""
import os

from desktop import processes_of
from road import version_of
from world import check, english, equal, scenario

PERSON = {"account": True, "system_bus": True}


@scenario("system", where="grant", **PERSON)
def system_update(world):
    """With the right granted without interaction, the bundle that only root can change is replaced."""
    road, user = world.road, world.desktop.account.uid
    equal("who owns the folder of the installed bundle", os.stat(road.applications).st_uid, 0)
    installer = world.start_waiting("update")
    equal("the installer's user", os.stat(f"/proc/{installer}").st_uid, user)
    world.hand_over()
    process = world.expect_update_ends(installer)
    equal("the user of the new version", os.stat(f"/proc/{process}").st_uid, user)
    for path in [road.installed, *road.installed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, 0)


@scenario("system", where="grant", **PERSON)
def system_uninstall(world):
    """The bundle that belonged to root is in the user's own Trash, and belongs to that user there."""
    installer = world.start("uninstall")
    world.road.installer_gone(installer)
    check("the installed bundle is gone", not os.path.lexists(world.road.installed))
    trashed = world.desktop.home / ".local/share/Trash/files/Kelto.app"
    equal("the version in the Trash", version_of(trashed), "1.0")
    for path in [trashed, *trashed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, world.desktop.account.uid)
    equal("what runs", processes_of(world.folder), [])


def expect_refusal(world):
    installer = world.start_update_with("empty")
    world.expect_alert(installer, english("<InstallerBadPermissionSubtitle>"),
                       english("<InstallerBadPermissionMessage_1>", "Applications"))
    check("the controller still runs", world.road.controller.is_running())
    world.expect_nothing_changed()


@scenario("system", where="challenge", **PERSON)
def system_challenge(world):
    """A right that would need a person's consent counts as refused: the installer asks nobody."""
    expect_refusal(world)


@scenario("system", where="deny", **PERSON)
def system_denied(world):
    """The installer refuses whatever the policy refuses."""
    expect_refusal(world)


@scenario("system", where="deny", **PERSON)
def system_denied_to_controller(world):
    """A controller that is refused the right starts no installer."""
    world.road.start_controller("update")
    world.road.controller_says("Administrator rights were refused")
    equal("installers", processes_of(world.road.installer), [])
    world.expect_nothing_changed()
