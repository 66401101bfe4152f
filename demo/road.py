"""The files that a run of the installer needs, and the steps that it takes: shared by the demo and the end-to-end tests."""
import os
import pathlib
import plistlib
import secrets
import shutil
import sys

from desktop import Failure, is_running, processes_of, wait_for

PROJECT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(PROJECT / "protocol"))
from constants import constants  # noqa: E402

BROKER = constants()["brokerBusName"]
CONTROLLER_IDENTIFIER = "com.kelto.macController"
SERVER_FILES = ("com.kelto.KeltoLibraryServer.plist", "com.kelto.KeltoLibraryServer.service")


def identifier_of_this_run():
    """The installer asks every copy of the controller to quit that this user runs. A controller of one run must not be taken
    for one of another, or for a real one, so each run has an identifier of its own."""
    return f"{CONTROLLER_IDENTIFIER}.run{secrets.token_hex(6)}"


def make_controller(build, bundle, version, identifier, server=None):
    """A bundle of the demo controller. `server` is the program of the Library Server that it brings along."""
    contents = pathlib.Path(bundle) / "Contents"
    (contents / "Linux").mkdir(parents=True)
    (contents / "Resources").mkdir()
    for file in ("bin/KeltoController", "sdk/libkelto-controller.so.1"):
        shutil.copy(build / file, contents / "Linux")
    (contents / "Info.plist").write_bytes(plistlib.dumps({
        "CFBundleExecutable": "KeltoController", "CFBundleIdentifier": identifier, "CFBundleName": "Kelto",
        "CFBundlePackageType": "APPL", "CFBundleShortVersionString": version, "CFBundleVersion": version}))
    if server:
        folder = contents / "Resources/LibraryServer"
        folder.mkdir()
        shutil.copy(server, folder / "KeltoLibraryServer")
        for name in SERVER_FILES:
            shutil.copy(PROJECT / "demo/library-server" / name, folder / name)


def version_of(bundle):
    """The version that the bundle on disk has; nothing when there is no bundle."""
    try:
        return plistlib.loads(pathlib.Path(bundle, "Contents/Info.plist").read_bytes())["CFBundleShortVersionString"]
    except OSError:
        return None


def alerts_of(desktop, process):
    return [window for window in desktop.windows(process) if window["role"] in ("dialog", "alert")]


def tools_of(folder):
    """The folder of the installer's tool, for a desktop in `folder`. The broker runs no program from anywhere else."""
    return pathlib.Path(folder) / "Installer/KeltoInstaller.app/Contents/Resources"


def list_tools(folder):
    """The same for the broker of a system bus of our own: its policy file lies in the namespace."""
    if not os.path.isdir("/run/kelto/etc"):
        raise Failure("the policy file of this machine is not ours to write")
    pathlib.Path(constants()["policyFilePath"]).write_text(f"tools = {tools_of(folder)}\n")


class Road:
    """The bundles of one run, below the desktop's folder, and what becomes of them.

    Applications/ holds the installed bundle and, when the desktop has an account of its own, belongs to whoever runs this.
    Downloads/ holds the new bundle, Installer/ a copy of the installer, unless an installed one is named.
    """

    def __init__(self, desktop, build, applications="Applications", downloads="Downloads", new_name="Kelto.app", installer=None):
        self.desktop = desktop
        self.applications = desktop.folder / applications
        self.installed = self.applications / "Kelto.app"
        self.new = desktop.folder / downloads / new_name
        self.installer = pathlib.Path(installer or desktop.folder / "Installer/KeltoInstaller.app")
        identifier = identifier_of_this_run()
        make_controller(build, self.installed, "1.0", identifier)
        make_controller(build, self.new, "2.0", identifier, build / "bin/KeltoLibraryServer-2")
        if installer is None:
            shutil.copytree(build / "bin/KeltoInstaller.app", self.installer)
        if desktop.account:
            for path in [self.new.parent, *self.new.parent.rglob("*")]:
                os.chown(path, desktop.account.uid, desktop.account.gid)
        self.controller = None
        self.installer_process = None

    def start_controller(self, mode=None, **switches):
        """Starts the installed controller, which then starts the installer in that mode. Switches without their KD."""
        words = [self.installed / "Contents/Linux/KeltoController"]
        for key, value in {"Start": mode, "Installer": self.installer, "NewBundle": self.new, **switches}.items():
            if value is not None:
                words += [f"-KD{key}", value]
        self.controller = self.desktop.start("controller-1", words)
        return self.controller

    # Each of these waits for a step and gives what it is about.

    def window_of_controller(self):
        def window():
            if not self.controller.is_running():
                raise Failure("the controller ended before it showed a window")
            return self.desktop.window_of(self.controller.pid)
        return wait_for("the controller's window", window)

    def started_installer(self):
        """The installer's process."""
        def process():
            processes = processes_of(self.installer)
            return processes[0] if processes else None
        self.installer_process = wait_for("the start of the installer", process)
        return self.installer_process

    def require_no_alert(self):
        for alert in alerts_of(self.desktop, self.installer_process) if self.installer_process else []:
            raise Failure(f"the installer shows an alert: {' '.join(alert['texts'])}")

    def wizard(self, process):
        """The number of the wizard's window."""
        def window():
            if not is_running(process):
                raise Failure("the installer ended before it showed a window")
            return self.desktop.window_of(process)
        return wait_for("the wizard's window", window)

    def controller_says(self, line):
        wait_for(f"the controller's word “{line}”", lambda: self.controller.says(line))

    def controller_gone(self):
        wait_for("the end of the controller", lambda: not self.controller.is_running())

    def replaced(self):
        """Waits until version 2 is on disk; its version."""
        def version():
            self.require_no_alert()
            return "2.0" if version_of(self.installed) == "2.0" else None
        return wait_for("the new version on disk", version)

    def relaunched_controller(self, bundle=None):
        """The process of the controller that the installer has started."""
        def process():
            self.require_no_alert()
            others = [each for each in processes_of(bundle or self.installed) if each != self.controller.pid]
            return others[0] if others else None
        return wait_for("the relaunched controller", process)

    def installer_gone(self, process):
        wait_for("the end of the installer", lambda: not is_running(process))

    def texts_of_window(self, process):
        """The texts in the window of a controller."""
        def texts():
            return [text for window in self.desktop.windows(process) for text in window["texts"]]
        return wait_for("the texts of a window", texts)

    def require(self, what, is_so):
        if not is_so:
            raise Failure(f"not as it should be: {what}")
