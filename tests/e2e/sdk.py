"""Applications that update themselves through the controller library, or over D-Bus alone: the examples as they stand."""
import pathlib
import plistlib
import shutil

import protocol
from desktop import processes_of, wait_for
from road import PROJECT, identifier_of_this_run, version_of
from world import arguments_of, equal, scenario

EXAMPLES = PROJECT / "sdk/examples"


def make_editor(bundle, version, identifier, program):
    contents = pathlib.Path(bundle) / "Contents"
    shutil.rmtree(bundle)
    (contents / "Linux").mkdir(parents=True)
    shutil.copy(program, contents / "Linux/editor")
    (contents / "Linux/editor").chmod(0o755)
    (contents / "Info.plist").write_bytes(plistlib.dumps({
        "CFBundleExecutable": "editor", "CFBundleIdentifier": identifier, "CFBundleName": "Editor",
        "CFBundlePackageType": "APPL", "CFBundleShortVersionString": version, "CFBundleVersion": version}))


def update(world, program):
    """The program replaces the bundle that it runs from, quits when asked, and its new version is started."""
    road, desktop = world.road, world.desktop
    identifier = identifier_of_this_run()
    for bundle, version in ((road.installed, "1.0"), (road.new, "2.0")):
        make_editor(bundle, version, identifier, program)
    desktop.environment |= {"EDITOR_IDENTIFIER": identifier, "PYTHONPATH": str(PROJECT / "sdk/python"),
                            "PYTHONDONTWRITEBYTECODE": "1",
                            "KELTO_CONTROLLER_LIBRARY": str(world.build / "sdk/libkelto-controller.so.1")}
    editor = desktop.start("editor", [road.installed / "Contents/Linux/editor", "update", road.new, road.installer])
    road.controller = editor
    installer = road.started_installer()
    road.controller_says("the rights were handed over (0)")
    road.controller_gone()
    road.replaced()
    road.installer_gone(installer)
    equal("the version on disk", version_of(road.installed), "2.0")
    return editor


def relaunched(world):
    """The process of the new version, which runs by itself or by an interpreter."""
    program = str(world.road.installed / "Contents/Linux/editor")

    def process():
        for number in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = arguments_of(number.name)
            except (OSError, UnicodeDecodeError):
                continue
            if program in words[:2]:
                return int(number.name)
        return None
    return wait_for("the new version's process", process)


def expect_resumed(world):
    words = arguments_of(relaunched(world))
    equal("the arguments of the new version", words[-2:], [protocol.resumeArgument, "YES"])


@scenario("gui")
def sdk_c(world):
    """An application in C, with a loop of its own around poll()."""
    update(world, world.build / "bin/kelto-example-c")
    expect_resumed(world)
    equal("the copies that run", len(processes_of(world.road.installed)), 1)


@scenario("gui")
def sdk_qt(world):
    """A Qt application with a window."""
    update(world, world.build / "bin/kelto-example-qt")
    expect_resumed(world)


@scenario("gui")
def sdk_python(world):
    """A Python program without a window, through the same library."""
    update(world, EXAMPLES / "python/editor.py")
    expect_resumed(world)


@scenario("gui")
def sdk_gtk(world):
    """A GTK application, which owns its bus name and offers "quit" by itself."""
    update(world, EXAMPLES / "python/gtk_editor.py")
    expect_resumed(world)


@scenario("gui")
def sdk_dbus(world):
    """A Python program that links nothing and speaks D-Bus."""
    update(world, EXAMPLES / "python/dbus_editor.py")
    expect_resumed(world)


@scenario("gui")
def sdk_c_removes(world):
    """The application in C has its own bundle moved to the Trash."""
    road, desktop = world.road, world.desktop
    identifier = identifier_of_this_run()
    make_editor(road.installed, "1.0", identifier, world.build / "bin/kelto-example-c")
    desktop.environment |= {"EDITOR_IDENTIFIER": identifier}
    road.controller = desktop.start("editor", [road.installed / "Contents/Linux/editor", "remove", road.installer])
    installer = road.started_installer()
    road.controller_says("the rights were handed over (0)")
    road.installer_gone(installer)
    equal("the installed bundle", road.installed.exists(), False)
