"""Disks that cannot take the new version: the cause is told, and the old version stays whole."""
import shutil
import subprocess

import protocol
from endings import FAILED, expect_ending
from killed import content_of
from world import check, equal, scenario

SURROUNDINGS = {"account": True, "system_bus": True}


def mount_disk(world, free):
    """The installed bundle on a disk of its own with so many free bytes; returns its content."""
    size = sum(path.stat().st_size + 4096 for path in world.road.installed.rglob("*")) + free
    kept = world.folder / "kept"
    shutil.copytree(world.road.installed, kept, symlinks=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "small", world.road.applications], check=True)
    world.callback(subprocess.run, ["umount", "--lazy", world.road.applications])
    shutil.copytree(kept, world.road.installed, symlinks=True)
    return content_of(world.road.installed)


@scenario("system", where="grant", **SURROUNDINGS)
def ending_on_a_full_disk(world):
    """It cannot be known before that the disk has too little room."""
    old = mount_disk(world, 65536)
    installer = world.start("update")
    world.expect_general_failure(installer)
    expect_ending(world, installer, "controller-1", FAILED, protocol.replaceItemCommand, world.road.installed, "No space left on device")
    equal("the installed bundle", content_of(world.road.installed), old)
    world.expect_nothing_changed()


@scenario("system", where="grant", **SURROUNDINGS)
def ending_on_a_read_only_disk(world):
    """This is known before the application is asked to quit."""
    old = mount_disk(world, 65536)
    subprocess.run(["mount", "-o", "remount,ro", world.road.applications], check=True)
    controller = world.road.start_controller()
    world.road.window_of_controller()
    process = world.start_installer(protocol.sourcePathArgument, world.road.new, protocol.trashPathArgument, world.road.installed)
    world.expect_general_failure(process, 4)
    expect_ending(world, process, "installer", FAILED, "check the paths", world.road.installed, "Read-only file system")
    check("the application was not asked to quit", not controller.says("Asked to quit"))
    check("the application still runs", controller.is_running())
    equal("the installed bundle", content_of(world.road.installed), old)
    world.expect_nothing_changed()
