"""Applications of the distribution as the running copy: each is asked, shows its own question in front, and is never forced."""
import itertools
import os
import plistlib
import re
import shutil
import subprocess

from desktop import wait_for
from road import version_of
from world import Skip, check, english, equal, scenario


def bundle_of(world, name):
    """A second bundle of the controller's identifier; the path of its program, which is not there yet."""
    installed = plistlib.loads((world.road.installed / "Contents/Info.plist").read_bytes())
    contents = world.folder / f"Editors/{name}.app/Contents"
    (contents / "Linux").mkdir(parents=True)
    (contents / "Info.plist").write_bytes(plistlib.dumps(installed | {"CFBundleExecutable": "editor"}))
    return contents / "Linux/editor"


def require(program):
    found = shutil.which(program)
    if not found:
        raise Skip(f"{program} is not installed")
    return found


def start_copied(world, program, *arguments, **variables):
    """The program itself, in the bundle."""
    path = bundle_of(world, program)
    shutil.copy(require(program), path)
    return world.desktop.start(program, [path, *arguments], env=world.desktop.environment | variables)


def start_launched(world, program, *arguments):
    """A launcher script in the bundle, started as a desktop starts applications from their menu."""
    path = bundle_of(world, program)
    path.write_text(f"#!/bin/sh\nexec {require(program)} {' '.join(arguments)}\n")
    path.chmod(0o755)
    installed = plistlib.loads((world.road.installed / "Contents/Info.plist").read_bytes())
    entry = world.folder / f"{installed['CFBundleIdentifier']}.desktop"
    entry.write_text(f"[Desktop Entry]\nType=Application\nName=Editor\nExec={path}\n")
    return world.desktop.start(program, ["/bin/sh", "-c", 'GIO_LAUNCHED_DESKTOP_FILE="$1" GIO_LAUNCHED_DESKTOP_FILE_PID=$$ '
                                         'exec "$2"', "sh", entry, path])


def stacked(world):
    """The windows, from the lowest to the topmost."""
    return re.findall(r"0x[0-9a-f]+", world.desktop.ask("xprop", "-root", "_NET_CLIENT_LIST_STACKING"))


def process_of(world, window):
    number = world.desktop.ask("xprop", "-id", window, "_NET_WM_PID")
    return int(number.rpartition("=")[2]) if "=" in number else None


def process_in_front(world):
    windows = stacked(world)
    return process_of(world, windows[-1]) if windows else None


def processes_stacked(world):
    """The processes of the windows, from the lowest to the topmost, each once in a row."""
    return [number for number, _ in itertools.groupby(process_of(world, window) for window in stacked(world))]


def open_bystander(world):
    """The window of a program that has nothing to do with the run, and does not name its process."""
    world.desktop.start("bystander", ["xev", "-geometry", "900x700+0+0", "-event", "keyboard"])
    window = wait_for("another window", lambda: world.desktop.ask("xdotool", "search", "--name", "^Event Tester$")).strip()
    wait_for("it on the desktop", lambda: int(window) in [int(each, 16) for each in stacked(world)])
    return window


def write_something(world, window):
    world.desktop.ask("xdotool", "windowactivate", "--sync", window)
    title = world.desktop.ask("xdotool", "getwindowname", window)

    def is_written():
        world.desktop.ask("xdotool", "type", "--window", window, "unsaved")
        world.desktop.ask("xdotool", "key", "space", "w", "o", "r", "k")
        return world.desktop.ask("xdotool", "getwindowname", window) != title
    wait_for("an unsaved document", is_written, pause=0.3)


def expect_question_in_front(world, editor, window, turns_away=False, turns_to_wizard=False):
    """The editor asks its own question in front of wizard and alert, and keeps what was written."""
    bystander = open_bystander(world)
    write_something(world, window)
    title = world.desktop.ask("xdotool", "getwindowname", window)
    installer = world.start("update")
    wait_for("the editor's question", lambda: [process_of(world, window) for window in stacked(world)].count(editor.pid) > 1)
    wait_for("the editor in front of the wizard", lambda: process_in_front(world) == editor.pid)
    if turns_to_wizard:
        world.desktop.ask("xdotool", "windowactivate", "--sync", world.desktop.window_of(installer))
        wait_for("the editor in front of the wizard again", lambda: process_in_front(world) == editor.pid, 2)
    if turns_away:
        world.desktop.ask("xdotool", "windowactivate", "--sync", bystander)
    expect_alert_behind(world, installer, editor.pid, None if turns_away else installer if turns_to_wizard else editor.pid)
    expect_still_running(world, installer, editor)
    equal("the document's title", world.desktop.ask("xdotool", "getwindowname", window), title)


def expect_alert_behind(world, installer, editor, writing):
    """The alert hides nothing that the editor (None: whose windows do not name it) shows, and is in front of everything else.
    It leaves the keyboard to the process that the user is writing in."""
    world.alert(installer)
    wait_for("the alert behind the editor's windows", lambda: processes_stacked(world)[-3:] == [None, installer, editor], 3)
    active = world.desktop.ask("xdotool", "getactivewindow").strip()
    equal(f"the process that has the keyboard, of editor {editor} and installer {installer}", process_of(world, active), writing)
    check("Cancel is greyed out", not world.desktop.press(installer, english("<Cancel>")))
    alert = next(window for window in reversed(stacked(world)) if process_of(world, window) == installer)
    states = world.desktop.ask("xprop", "-id", alert, "_NET_WM_STATE")
    equal("how the alert says that it wants no keyboard", world.desktop.ask("xprop", "-notype", "-id", alert, "_NET_WM_USER_TIME").strip(),
          "_NET_WM_USER_TIME = 0")
    check(f"the alert asks for attention ({states})", writing == installer or "_NET_WM_STATE_DEMANDS_ATTENTION" in states)


def expect_still_running(world, installer, editor):
    world.expect_alert(installer, english("<InstallerKeltoRunningSubtitle_1>", "Kelto"),
                       english("<InstallerKeltoRunningMessage>"))
    check("the editor still runs", editor.is_running())
    equal("runs of the tool", world.tool_runs(), 0)
    equal("the installed version", version_of(world.road.installed), "1.0")


def window_of(world, editor):
    return wait_for("the editor's window", lambda: world.desktop.window_of(editor.pid))


@scenario("gui")
def unsaved_work_in_l3afpad(world):
    """An editor without a bus name, copied into the bundle. The user turns to the wizard, which would hide the question."""
    editor = start_copied(world, "l3afpad")
    expect_question_in_front(world, editor, window_of(world, editor), turns_to_wizard=True)


@scenario("gui")
def unsaved_work_in_mousepad(world):
    """An editor that a launcher script becomes; it owns another name than the bundle's identifier. The user has turned to
    another program when the alert appears."""
    editor = start_launched(world, "mousepad", "--disable-server")
    expect_question_in_front(world, editor, window_of(world, editor), turns_away=True)


@scenario("gui")
def unsaved_work_in_featherpad(world):
    """An editor of the other toolkit."""
    editor = start_copied(world, "featherpad", "--standalone")
    expect_question_in_front(world, editor, window_of(world, editor))


@scenario("slow")
def unsaved_work_in_scite(world):
    """An editor with neither actions nor a name on the bus, of a toolkit whose other programs have both."""
    editor = start_copied(world, "SciTE")
    expect_question_in_front(world, editor, window_of(world, editor))


@scenario("slow")
def unsaved_work_in_gnome_text_editor(world):
    """An editor of the newer version of a toolkit, started by its launcher; it owns another name than the bundle's identifier."""
    editor = start_launched(world, "gnome-text-editor", "--standalone")
    expect_question_in_front(world, editor, window_of(world, editor))


@scenario("gui")
def unsaved_work_in_a_python_program(world):
    """A program that an interpreter runs, whose windows do not name their process."""
    if subprocess.run(["/usr/bin/python3", "-c", "import tkinter"], capture_output=True).returncode:
        raise Skip("python3-tk is not installed")
    path = bundle_of(world, "tk")
    path.write_text("#!/usr/bin/python3\n"
                    "import tkinter, tkinter.messagebox as box\n"
                    "root = tkinter.Tk()\nroot.title('Notes')\n"
                    "def closing():\n"
                    "    print('asked', flush=True)\n"
                    "    box.askyesno('Unsaved', 'Close without saving?') and root.destroy()\n"
                    "root.protocol('WM_DELETE_WINDOW', closing)\nroot.mainloop()\n")
    path.chmod(0o755)
    open_bystander(world)
    editor = world.desktop.start("tk", [path])
    wait_for("the program's window", lambda: world.desktop.ask("xdotool", "search", "--onlyvisible", "--name", "^Notes$"))
    installer = world.start("update")
    wait_for("its question", lambda: editor.says("asked"))
    check("the wizard is not in front", process_in_front(world) != installer)
    expect_alert_behind(world, installer, None, None)
    expect_still_running(world, installer, editor)


@scenario("gui")
def program_on_wayland(world):
    """A window of a Wayland compositor cannot be asked from outside: the program is left alone."""
    weston = require("weston")
    world.desktop.start("weston", [weston, "--backend=headless-backend.so", "--socket=wayland-kelto", "--idle-time=0"])
    wait_for("the compositor", (world.desktop.runtime / "wayland-kelto").exists)
    editor = start_copied(world, "featherpad", "--standalone", QT_QPA_PLATFORM="wayland", WAYLAND_DISPLAY="wayland-kelto")
    if not os.path.exists("/usr/lib/x86_64-linux-gnu/qt5/plugins/platforms/libqwayland-generic.so"):
        raise Skip("qtwayland5 is not installed")
    wait_for("its window", lambda: any(each["role"] == "frame" for each in world.desktop.windows(editor.pid)))
    installer = world.start("update")
    expect_still_running(world, installer, editor)
