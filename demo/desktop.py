"""A desktop of one's own: display, window manager, session bus, accessibility, and the programs started on it.

Everything lies in one folder and ends with the process that made it, also when that is killed.
"""
import contextlib
import ctypes
import json
import os
import pathlib
import secrets
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import time

LIBC = ctypes.CDLL(None, use_errno=True)
PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
SCREEN = (1280, 800)
HERE = pathlib.Path(__file__).resolve().parent
PYTHON = "/usr/bin/python3"  # the one that the packages' modules are for


class Failure(Exception):
    """Something is not as it should be; the text says what."""


def wait_for(what, condition, seconds=20.0, pause=0.02):
    """Polls until `condition()` is true and returns what it gave."""
    deadline = time.monotonic() + seconds
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > deadline:
            raise Failure(f"{what}: not within {seconds:g} seconds")
        time.sleep(pause)


def end_on_signals():
    """Makes a request to end an exception, so that everything is cleaned up."""
    def end(number, _frame):
        signal.signal(number, signal.SIG_IGN)
        raise SystemExit(128 + number)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, end)


class Account:
    """The user that the programs run as."""

    def __init__(self, uid, gid, name):
        self.uid, self.gid, self.name = uid, gid, name

    @staticmethod
    def add(folder, home):
        """Adds an ordinary user to this mount namespace; nothing on disk changes."""
        account = Account(47011, 47011, "kelto-person")
        for file, line in (("passwd", f"{account.name}:x:{account.uid}:{account.gid}::{home}:/bin/sh\n"),
                           ("group", f"{account.name}:x:{account.gid}:\n")):
            copy = pathlib.Path(folder, file)
            copy.write_text(pathlib.Path("/etc", file).read_text() + line)
            copy.chmod(0o644)
            subprocess.run(["mount", "--bind", copy, f"/etc/{file}"], check=True)
        return account


class Program:
    """A program started on the desktop, with what it prints."""

    def __init__(self, name, process, log):
        self.name, self.process, self.log = name, process, log
        self.pid = process.pid

    def text(self):
        return self.log.read_text(errors="replace")

    def is_running(self):
        return self.process.poll() is None

    def says(self, line):
        return line in self.text().splitlines()


class Desktop:
    """Use as a context manager. `account` is who the programs run as (root only); without one, this user.

    own_display: uses the display of this session when there is one that works.
    system_bus: whether the programs may talk to the system bus.
    hears_pointer: whether assistive tools are told where the pointer is; not for the display of this session.
    """

    def __init__(self, folder, account=None, own_display=False, system_bus=False, environment=None, hears_pointer=False):
        self.folder = pathlib.Path(folder)
        self.account = account
        self.programs = []
        self._own_display = own_display
        self._hears_pointer = hears_pointer
        self._reader = None
        self.is_private = True
        self.home = self._make_folder("home")
        self.temporary = self._make_folder("tmp")
        self.runtime = self._make_folder("run")
        self.services = self._make_folder("services")
        self.logs = self._make_folder("logs")
        self.pictures = self._make_folder("pictures")
        self.environment = {
            "PATH": "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin", "LANG": "C.UTF-8", "LANGUAGE": "en",
            "HOME": str(self.home), "TMPDIR": str(self.temporary), "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CONFIG_HOME": str(self.home / ".config"), "XDG_DATA_HOME": str(self.home / ".local/share"),
            "XDG_STATE_HOME": str(self.home / ".local/state"), "XDG_CACHE_HOME": str(self.home / ".cache"),
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "QT_QPA_PLATFORM": "xcb",
        }
        if not system_bus:
            self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = f"unix:path={self.runtime}/no-system-bus"
        self.environment.update(environment or {})

    def _make_folder(self, name):
        path = self.folder / name
        path.mkdir(mode=0o700)
        if self.account:
            os.chown(path, self.account.uid, self.account.gid)
        return path

    def __enter__(self):
        LIBC.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
        try:
            self._start_display()
            self._start_bus()
            self._start_window_manager()
            self._start_accessibility()
        except BaseException:
            self.end()
            raise
        return self

    def __exit__(self, *_):
        self.end()

    # Programs.

    def start(self, name, words, **options):
        """Starts a program that dies with this process; what it prints goes to a log of its name."""
        log = self.logs / f"{name}.log"
        parent = os.getpid()

        def tie_to_parent():
            LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
            if os.getppid() != parent:
                os._exit(127)

        if self.account:
            options |= {"user": self.account.uid, "group": self.account.gid, "extra_groups": []}
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("env", self.environment)
        with open(log, "ab") as output:
            options.setdefault("stdout", output)
            process = subprocess.Popen([str(word) for word in words], stderr=output, cwd="/", start_new_session=True,
                                       preexec_fn=tie_to_parent, **options)
        program = Program(name, process, log)
        self.programs.append(program)
        return program

    def ask(self, *words):
        """Runs a short command and returns its output."""
        done = subprocess.run(words, env=self.environment, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, timeout=20)
        return done.stdout

    def end(self):
        """Ends everything that was started here, and what that has started."""
        self._reader = None
        for _ in range(100):
            children = children_of(os.getpid())
            if not children:
                return
            for number in children:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(number, signal.SIGKILL)
            # The children of what has ended are this process's now.
            for number in children:
                with contextlib.suppress(ChildProcessError):
                    os.waitpid(number, 0)

    # Parts of the desktop.

    def _start_display(self):
        if self._own_display and self._take_own_display():
            return
        # A cookie for every display number: the server chooses its number itself.
        authority = self.runtime / "Xauthority"
        name, cookie = b"MIT-MAGIC-COOKIE-1", secrets.token_bytes(16)
        authority.write_bytes(struct.pack(">HHHH", 0xFFFF, 0, 0, len(name)) + name + struct.pack(">H", len(cookie)) + cookie)
        if self.account:
            os.chown(authority, self.account.uid, self.account.gid)
        authority.chmod(0o600)
        reading, writing = os.pipe()
        self.start("Xvfb", ["Xvfb", "-displayfd", writing, "-screen", "0", f"{SCREEN[0]}x{SCREEN[1]}x24", "-nolisten", "tcp",
                            "-noreset", "-auth", authority], pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as numbers:
            number = numbers.readline().strip()
        if not number:
            raise Failure("the display server did not start")
        self.environment |= {"DISPLAY": f":{number}", "XAUTHORITY": str(authority)}

    def _take_own_display(self):
        # In a Wayland session the display's root window has no picture of what is on the screen.
        display = None if os.environ.get("WAYLAND_DISPLAY") else os.environ.get("DISPLAY")
        if not display or self.account:
            return False
        authority = os.environ.get("XAUTHORITY", os.path.expanduser("~/.Xauthority"))
        tried = self.environment | {"DISPLAY": display, "XAUTHORITY": authority}
        if subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], env=tried, capture_output=True).returncode != 0:
            return False
        self.environment = tried
        self.is_private = False
        return True

    def _start_window_manager(self):
        if self.is_private:
            # It announces itself before it takes care of windows, so it says itself when it has started.
            word = "KELTO_WINDOW_MANAGER_IS_UP"
            self.start("openbox", ["openbox", "--sm-disable", "--startup", f"xprop -root -f {word} 8s -set {word} yes"])
            wait_for("the window manager", lambda: "yes" in self.ask("xprop", "-root", word))

    def _start_bus(self):
        bus = self.runtime / "bus"
        configuration = self.services / "bus.conf"
        configuration.write_text(
            f"<busconfig><type>session</type><keep_umask/><listen>unix:path={bus}</listen><auth>EXTERNAL</auth>"
            f"<servicedir>{self.services}</servicedir><policy context='default'>"
            "<allow send_destination='*' eavesdrop='true'/><allow eavesdrop='true'/><allow own='*'/></policy></busconfig>")
        # Without a display it leaves the one that it would otherwise announce itself on alone, and hears of no pointer.
        without_display = [] if self._hears_pointer else ["/usr/bin/env", "-u", "DISPLAY"]
        self.add_service("org.a11y.Bus", [*without_display, "/usr/libexec/at-spi-bus-launcher"])
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={bus}"
        self.start("session-bus", ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--nopidfile"])
        wait_for("the session bus", bus.exists)

    def add_service(self, name, words):
        """A program that the session bus starts when its name is asked for."""
        service = self.services / f"{name}.service"
        service.write_text(f"[D-BUS Service]\nName={name}\nExec={shlex.join(map(str, words))}\n")

    def readable_copy(self, file):
        """A copy of the desktop's own: the programs' user may not be allowed to read the folder of the original."""
        copy = pathlib.Path(shutil.copy(file, self.services))
        copy.chmod(0o644)
        return copy

    def _start_accessibility(self):
        reader = self.readable_copy(HERE / "accessibility.py")
        self._reader = self.start("accessibility", [PYTHON, reader], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                  bufsize=1).process
        if self._reader.stdout.readline() != "ready\n":
            raise Failure("there is no accessibility bus")

    # Contents of the screen.

    def _read(self, **question):
        self._reader.stdin.write(json.dumps(question) + "\n")
        answer = self._reader.stdout.readline()
        if not answer:
            raise Failure("the accessibility reader ended")
        return json.loads(answer)

    def windows(self, process):
        """The windows of a process as assistive tools see them: dictionaries with "role", "name", "description",
        "application" (its name), "texts", "buttons"; "elements" are the pairs of role and name of all that is in it, "focused" names what has the
        keyboard, "focusable" what can have it, "enabled" what is not greyed out, "busy" what is at work."""
        return self._read(do="windows", process=process)

    def press(self, process, button):
        """Presses a button by its title. False when there is none that can be pressed."""
        return self._read(do="press", process=process, button=button)

    def window_of(self, process):
        """The number of the first visible window of a process, or nothing."""
        numbers = self.ask("xdotool", "search", "--onlyvisible", "--pid", str(process)).split()
        return numbers[0] if numbers else None

    def frame_of(self, window):
        """Left, top, width and height of a window, with what the window manager has put around it."""
        place = values_of(self.ask("xwininfo", "-id", window),
                          ["Absolute upper-left X:", "Absolute upper-left Y:", "Width:", "Height:"])
        extents = self.ask("xprop", "-id", window, "_NET_FRAME_EXTENTS").rpartition("=")[2].split(",")
        left, right, top, bottom = map(int, extents) if len(extents) == 4 else (0, 0, 0, 0)
        return place[0] - left, place[1] - top, place[2] + left + right, place[3] + top + bottom

    def paint_background(self):
        """Something else than black around the windows of a private display."""
        if self.is_private:
            self.ask("display", "-window", "root", "-size", f"{SCREEN[0]}x{SCREEN[1]}", "xc:#46525f")

    def screen_height(self):
        return values_of(self.ask("xwininfo", "-root"), ["Height:"])[0]

    def take_picture(self, name, around):
        """A PNG of what is on the screen at the frame `around`, once it shows more than a blank window."""
        margin = 24 if self.is_private else 0
        left, top = max(0, around[0] - margin), max(0, around[1] - margin)
        part = f"{around[2] + 2 * margin}x{around[3] + 2 * margin}+{left}+{top}"
        picture = self.pictures / f"{name}.png"

        def is_taken():
            self.ask("import", "-silent", "-window", "root", "-crop", part, "+repage", str(picture))
            return picture.exists() and int(self.ask("identify", "-format", "%k", str(picture)) or 0) > 60
        wait_for(f"a picture of {name}", is_taken, 5)
        return picture


def values_of(text, labels):
    return [int(text.partition(label)[2].split()[0]) for label in labels]


def children_of(parent):
    """The processes whose parent this is."""
    children = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            with contextlib.suppress(OSError, IndexError):
                if int((entry / "stat").read_text().rpartition(")")[2].split()[1]) == parent:
                    children.append(int(entry.name))
    return children


def processes_of(bundle):
    """The processes whose program is inside the bundle, also when it has been replaced since."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            with contextlib.suppress(OSError):
                if os.readlink(entry / "exe").startswith(f"{bundle}/"):
                    found.append(int(entry.name))
    return sorted(found)


def started_at(process):
    """When a process was started, on the clock of time.clock_gettime(CLOCK_BOOTTIME); not later than it really was."""
    ticks = int(pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[19])
    return ticks / os.sysconf("SC_CLK_TCK")


def is_running(process):
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] not in ("Z", "X")
    except OSError:
        return False


def missing_programs():
    needed = ["Xvfb", "openbox", "dbus-daemon", "xdotool", "xprop", "xwininfo", "import", "identify"]
    missing = [name for name in needed if not shutil.which(name)]
    if subprocess.run([PYTHON, "-c", "import gi; gi.require_version('Atspi', '2.0')"], capture_output=True).returncode:
        missing.append("python3-gi with gir1.2-atspi-2.0")
    if not os.path.exists("/usr/libexec/at-spi-bus-launcher"):
        missing.append("at-spi2-core")
    return missing


def print_logs(desktop, stream=sys.stderr):
    for log in sorted(desktop.logs.glob("*.log")):
        text = log.read_text(errors="replace").strip()
        if text:
            print(f"--- {log}\n" + "\n".join(text.splitlines()[-40:]), file=stream)
