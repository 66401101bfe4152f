"""The desktop entry that an application brings, as a program of the distribution that reads the menus finds it."""
import os
import subprocess
import sys

from command_line import DONE, SHELL, Shell
from desktop import wait_for
from road import PROJECT
from world import check, equal, scenario

DATA = "/usr/local/share"
EXAMPLE = PROJECT / "sdk/examples/desktop/com.example.Editor.desktop"
# Notes the name that the menus show and that of the icon, then starts the application.
MENU = """import gi, sys
from gi.repository import Gio
found = Gio.DesktopAppInfo.new(sys.argv[1] + ".desktop")
with open("shown", "w") as shown:
    print(found.get_name(), found.get_icon().to_string(), file=shown)
found.launch([], None)
"""


def bring_entry(shell, bundle, version):
    desktop = bundle / "Contents/Resources/Desktop"
    icons = desktop / "icons/hicolor/48x48/apps"
    icons.mkdir(parents=True)
    (icons / f"{shell.identifier}.png").write_bytes(b"picture " + version.encode())
    entry = EXAMPLE.read_text(encoding="utf-8").replace("com.example.Editor", shell.identifier)
    entry = entry.replace("Linux/Editor %F", "Linux/Kelto --from-menu %F").replace("Linux/Editor", "Linux/Kelto")
    (desktop / f"{shell.identifier}.desktop").write_text(entry, encoding="utf-8")
    for path in bundle.rglob("*"):
        os.chown(path, os.stat(bundle).st_uid, os.stat(bundle).st_gid)


@scenario("system", where="grant", **SHELL)
def entry_follows_the_application(bare):
    """An update brings the entry and its icon into the menus of all users, and the removal takes both away."""
    # Owners count for nothing on a file system without set-id programs, which a temporary folder can be.
    applications = bare.folder / "Applications"
    applications.mkdir()
    for folder in (DATA, applications):
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)
        bare.callback(subprocess.run, ["umount", "--lazy", folder], check=True)
    shell = Shell(bare)
    shell.environment["XDG_DATA_DIRS"] = f"{DATA}:/usr/share"
    bring_entry(shell, shell.new, "2.0")
    entry = f"{DATA}/applications/{shell.identifier}.desktop"
    icon = f"{DATA}/icons/hicolor/48x48/apps/{shell.identifier}.png"
    shell.kelto("update", shell.new, "--to", shell.installed)
    check("the distribution finds nothing wrong with the entry",
          subprocess.run(["desktop-file-validate", entry], capture_output=True, check=True).stdout == b"")
    with open(icon, "rb") as picture:
        equal("the icon", picture.read(), b"picture 2.0")
    subprocess.run([sys.executable, "-c", MENU, shell.identifier], check=True, **shell.options())
    equal("what the menus show", (shell.new.parent / "shown").read_text(), f"Editor {shell.identifier}\n")
    wait_for("the application that was started from the menu", lambda: shell.starts() == ["--from-menu"])
    shell.kelto("remove", shell.installed, status=DONE)
    equal("what is left in the menus", [path for path in (entry, icon) if os.path.lexists(path)], [])
