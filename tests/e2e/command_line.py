"""The command line: no display, no session bus, an ordinary user, and the system bus with the real policy service."""
import fcntl
import json
import os
import pathlib
import plistlib
import pty
import select
import shlex
import shutil
import signal
import subprocess
import termios

import protocol
from desktop import Account, is_running, wait_for
from road import constants, identifier_of_this_run, list_tools, version_of
from server import UNIT_FILE, systemctl
from world import check, equal, scenario

DONE, FAILED, BAD_ARGUMENTS, NO_DISPLAY, REFUSED, STILL_RUNNING, CANCELLED = range(7)
SHELL = {"bare": True}
RESUMED = f"{protocol.resumeArgument} YES"
# Notes its arguments; ends when it is asked to, unless a file says otherwise. Forks never, so that one copy is one process.
PROGRAM = """#!/usr/bin/python3 -S
import os, signal, sys
home = os.environ["HOME"]
def end(*_):
    if not os.path.exists(home + "/stay"):
        os._exit(0)
signal.signal(signal.SIGTERM, end)
with open(home + "/started", "a") as started:
    started.write(" ".join(sys.argv[1:]) + "\\n")
while True:
    signal.pause()
"""


class Shell:
    """A person's shell on a machine with two versions of an application."""

    def __init__(self, bare):
        self.folder = bare.folder
        self.account = Account.add(self.folder, self.folder / "home")
        self.identifier = identifier_of_this_run()
        self.installed = self.folder / "Applications/Kelto.app"
        self.new = self.folder / "Downloads/Kelto.app"
        self.installer = self.folder / "Installer/KeltoInstaller.app"
        self.make_bundle(self.installed, "1.0")
        self.make_bundle(self.new, "2.0")
        shutil.copytree(bare.build / "bin/KeltoInstaller.app", self.installer)
        list_tools(self.folder)
        self.home = self.folder / "home"
        for folder in (self.home, self.new.parent):
            folder.mkdir(exist_ok=True)
            for path in [folder, *folder.rglob("*")]:
                os.chown(path, self.account.uid, self.account.gid)
        self.environment = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "HOME": str(self.home), "TMPDIR": "/tmp"}
        bare.callback(self.end)

    def make_bundle(self, bundle, version):
        program = bundle / "Contents/Linux/Kelto"
        program.parent.mkdir(parents=True)
        program.write_text(PROGRAM)
        program.chmod(0o755)
        (bundle / "Contents/Info.plist").write_bytes(plistlib.dumps({
            "CFBundleExecutable": "Kelto", "CFBundleIdentifier": self.identifier, "CFBundleName": "Kelto",
            "CFBundleShortVersionString": version, "CFBundleVersion": version}))

    def end(self):
        for process in self.copies():
            os.kill(process, signal.SIGKILL)

    def options(self, as_root=False):
        person = {} if as_root else {"user": self.account.uid, "group": self.account.gid, "extra_groups": []}
        return {"env": self.environment, "cwd": self.new.parent, **person}

    @property
    def program(self):
        return str(self.installer / "Contents/Linux/kelto")

    def kelto(self, *words, status=DONE, as_root=False):
        """Runs a command to its end; what it said on standard output and standard error."""
        done = subprocess.run([self.program, *map(str, words)], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60, **self.options(as_root))
        equal(f"the status of {' '.join(map(str, words))} ({done.stderr.strip()})", done.returncode, status)
        return done.stdout, done.stderr

    def result(self, *words, **expected):
        return json.loads(self.kelto(*words, "--json", **expected)[0])

    def start_application(self):
        # Not as a child of this program, which the same interpreter runs: it would be taken for a helper of its parent.
        subprocess.run(["setsid", "--fork", self.installed / "Contents/Linux/Kelto", "first"], check=True, **self.options())
        wait_for("the application", lambda: self.starts() == ["first"])

    def starts(self):
        """The arguments of each start of the application."""
        started = self.home / "started"
        return started.read_text().splitlines() if started.exists() else []

    def copies(self):
        running = []
        for entry in pathlib.Path("/proc").iterdir():
            if entry.name.isdigit() and is_running(int(entry.name)):
                words = (entry / "cmdline").read_bytes().split(b"\0")
                if any(word.startswith(bytes(self.folder)) and word.endswith(b"/Linux/Kelto") for word in words):
                    running.append(int(entry.name))
        return running

    def expect_nothing_changed(self):
        equal("the installed version", version_of(self.installed), "1.0")
        equal("the new version at its old place", version_of(self.new), "2.0")
        equal("what is hidden beside the bundle", list(self.installed.parent.glob(".*")), [])


def expect_line(said, status, step, cause):
    lines = [line for line in said.splitlines() if f"(status {status})" in line]
    equal("lines about a failure", len(lines), 1)
    check(f"“{lines[0]}” names the step “{step}” and the cause “{cause}”", f'step "{step}"' in lines[0] and cause in lines[0])


@scenario("system", where="grant", **SHELL)
def cli_update(bare):
    """A person without a display updates what belongs to root; the copy that ran is started anew, and told to resume."""
    shell = Shell(bare)
    shell.start_application()
    said, steps = shell.kelto("update", shell.new, "--to", shell.installed)
    equal("what it says", said, f"Updated {shell.installed} from 1.0 to 2.0.\n")
    equal("its steps", steps.splitlines(), ["Asking for administrator rights", "Asking 1 copy to quit",
                                            f"Replacing {shell.installed}", "Starting the new version"])
    equal("the version on disk", version_of(shell.installed), "2.0")
    for path in [shell.installed, *shell.installed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, 0)
    wait_for("the new version", lambda: shell.starts() == ["first", RESUMED])
    equal("the copies that run", len(shell.copies()), 1)
    status = shell.result("status", shell.installed)
    equal("the bundle's status", (status["bundle"]["version"], status["bundle"]["runningCopies"]), ("2.0", 1))
    equal("the last run", (status["lastRun"]["mode"], status["lastRun"]["status"]), ("update", 0))


@scenario("system", where="grant", **SHELL)
def cli_install_and_remove(bare):
    """Nothing is started where nothing ran; every result is told as JSON, and what does not fit is refused."""
    shell = Shell(bare)
    applications = shell.installed.parent
    shutil.rmtree(shell.installed)
    refusal = shell.result("update", "./Kelto.app", "--to", shell.installed, status=FAILED)
    check(f"“{refusal['cause']}” points to install", "kelto install" in refusal["cause"])
    equal("the result of an installation", shell.result("install", "./Kelto.app", "--to", applications),
          {"action": "install", "bundle": str(shell.installed), "newVersion": "2.0", "status": DONE})
    shell.make_bundle(shell.folder / "Other/Kelto.app", "3.0")
    refusal = shell.result("install", shell.folder / "Other/Kelto.app", "--to", applications, status=FAILED)
    check(f"“{refusal['cause']}” points to update", "kelto update" in refusal["cause"])
    equal("the version on disk", version_of(shell.installed), "2.0")
    equal("the result of a removal", shell.result("remove", shell.installed),
          {"action": "remove", "bundle": str(shell.installed), "oldVersion": "2.0", "status": DONE})
    check("it is gone", not os.path.lexists(shell.installed))
    equal("the version in the Trash", version_of(shell.home / ".local/share/Trash/files/Kelto.app"), "2.0")
    equal("starts", shell.starts(), [])
    _, said = shell.kelto("remove", status=BAD_ARGUMENTS)
    expect_line(said, BAD_ARGUMENTS, "read the arguments", "needs a bundle")


@scenario("system", where="deny", **SHELL)
def cli_refused(bare):
    """A person who may not replace the application still has it open."""
    shell = Shell(bare)
    shell.start_application()
    _, said = shell.kelto("update", shell.new, "--to", shell.installed, status=REFUSED)
    expect_line(said, REFUSED, "take over the rights", "denied")
    equal("the copies that run", len(shell.copies()), 1)
    shell.expect_nothing_changed()


@scenario("system", where="deny", **SHELL)
def cli_as_root(bare):
    """Root is not asked, starts nothing of a person's, and needs no more surroundings than a timer's unit has."""
    shell = Shell(bare)
    shell.start_application()
    shell.environment = {"PATH": "/usr/bin:/bin"}
    said, _ = shell.kelto("update", shell.new, "--to", shell.installed, as_root=True)
    equal("what it says", said, f"Updated {shell.installed} from 1.0 to 2.0.\n")
    equal("starts", (shell.starts(), shell.copies()), (["first"], []))


TIMED = "kelto-update"


def start_timer(shell, command):
    """A timer whose unit runs the command once, soon."""
    units = UNIT_FILE.parent
    (units / f"{TIMED}.timer").write_text("[Timer]\nOnActiveSec=100ms\nAccuracySec=1ms\n")
    (units / f"{TIMED}.service").write_text(
        f"[Service]\nType=oneshot\nRemainAfterExit=yes\nStandardOutput=file:{shell.folder}/said\n"
        f"StandardError=file:{shell.folder}/steps\nExecStart={shlex.join(map(str, command))}\n")
    systemctl("daemon-reload")
    systemctl("start", f"{TIMED}.timer")


@scenario("system", where="services", **SHELL)
def cli_from_a_timer(bare):
    """A timer of the machine updates an application: nobody is logged in, and nobody asked."""
    shell = Shell(bare)
    start_timer(shell, [shell.program, "update", shell.new, "--to", shell.installed, "--yes"])
    state = wait_for("the end of the timer's service", lambda: next(iter({
        systemctl("show", "--property=ActiveState", "--value", f"{TIMED}.service")} & {"active", "failed"}), None))
    steps = (shell.folder / "steps").read_text()
    equal(f"the service's state, after {steps!r}", state, "active")
    equal("what started it", systemctl("show", "--property=TriggeredBy", "--value", f"{TIMED}.service"), f"{TIMED}.timer")
    equal("what it says", (shell.folder / "said").read_text(), f"Updated {shell.installed} from 1.0 to 2.0.\n")
    equal("the version on disk", version_of(shell.installed), "2.0")
    for path in [shell.installed, *shell.installed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, 0)
    equal("starts", (shell.starts(), shell.copies()), ([], []))


@scenario("system", where="grant", **SHELL)
def cli_still_running(bare):
    """An application that stays is not replaced."""
    shell = Shell(bare)
    shell.start_application()
    (shell.home / "stay").touch()
    _, said = shell.kelto("update", shell.new, "--to", shell.installed, status=STILL_RUNNING)
    expect_line(said, STILL_RUNNING, f"quit {shell.identifier}", "1 copy still runs")
    shell.expect_nothing_changed()


@scenario("system", where="grant", **SHELL)
def cli_awaits_a_process(bare):
    """An application that starts the command and quits by itself is replaced then, and started unless that is not wanted."""
    shell = Shell(bare)
    for words, starts in ((["--no-relaunch"], []), ([], [RESUMED])):
        awaited = subprocess.Popen(["sleep", "60"], **shell.options())
        command = subprocess.Popen([shell.program, "update", shell.new, "--to", shell.installed, "--wait-pid", str(awaited.pid),
                                    *words], stderr=subprocess.PIPE, text=True, **shell.options())
        wait = f"Waiting for the end of process {awaited.pid}\n"
        check("it says that it waits", any(line == wait for line in command.stderr))
        equal("the version meanwhile", version_of(shell.installed), "1.0")
        awaited.kill()
        awaited.wait()
        equal("the status", command.wait(30), DONE)
        command.stderr.close()
        equal("the version on disk", version_of(shell.installed), "2.0")
        wait_for("the starts", lambda: shell.starts() == starts)
        shutil.rmtree(shell.installed)
        shell.make_bundle(shell.installed, "1.0")
        shell.make_bundle(shell.new, "2.0") if not shell.new.exists() else None


class Terminal:
    """A command on a terminal of its own."""

    def __init__(self, shell, *words):
        self.text = ""
        self.master, slave = pty.openpty()

        def take_terminal():
            os.setsid()
            fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
        self.process = subprocess.Popen([shell.program, *map(str, words)], stdin=slave, stdout=slave, stderr=slave,
                                        preexec_fn=take_terminal, **shell.options())
        os.close(slave)

    def read(self):
        while select.select([self.master], [], [], 0)[0]:
            try:
                self.text += os.read(self.master, 4096).decode(errors="replace")
            except OSError:
                return

    def expect(self, text):
        def is_there():
            self.read()
            return text in self.text
        wait_for(f"“{text}” on the terminal, which shows {self.text!r}", is_there)

    def type(self, text):
        os.write(self.master, text.encode())

    def expect_status(self, status):
        def has_ended():
            self.read()
            return self.process.poll() is not None
        wait_for("the end of the command", has_ended)
        self.read()
        os.close(self.master)
        equal(f"the status, after {self.text!r}", self.process.returncode, status)


@scenario("system", where="password", **SHELL)
def cli_asks_on_the_terminal(bare):
    """The distribution's text agent asks for the administrator's password; who interrupts it has changed nothing."""
    shell = Shell(bare)
    words = "update", shell.new, "--to", shell.installed
    doubtful = Terminal(shell, *words)
    doubtful.expect("from 1.0 to 2.0? [y/N]")
    doubtful.type("n\n")
    doubtful.expect_status(CANCELLED)
    interrupted = Terminal(shell, *words, "--yes")
    interrupted.expect("Password:")
    interrupted.type("\x03")
    interrupted.expect_status(CANCELLED)
    shell.expect_nothing_changed()
    equal("the record's status", shell.result("status")["lastRun"]["status"], CANCELLED)
    granted = Terminal(shell, *words, "--yes")
    granted.expect("Password:")
    granted.type("open sesame\n")
    granted.expect(f"Updated {shell.installed} from 1.0 to 2.0.")
    granted.expect_status(DONE)
    equal("the version on disk", version_of(shell.installed), "2.0")


def start_journal(bare):
    """The machine's own daemon, in this namespace; /run is empty here but for the bus."""
    os.makedirs("/run/systemd/journal")
    os.makedirs("/run/log/journal")
    daemon = subprocess.Popen(["/lib/systemd/systemd-journald"], stderr=subprocess.DEVNULL)
    bare.callback(daemon.wait)
    bare.callback(daemon.kill)
    wait_for("the journal's socket", lambda: os.path.exists("/run/systemd/journal/socket"))


@scenario("system", where="grant", **SHELL)
def cli_history(bare):
    """Every job of root's tool is in the history, and no record of anybody else."""
    start_journal(bare)
    shell = Shell(bare)
    shell.kelto("update", shell.new, "--to", shell.installed)
    shell.kelto("remove", shell.installed)
    forged = subprocess.run(["logger", "--journald"], text=True,
                            input=f"MESSAGE=no\n{constants()['recordField::command']}={protocol.removeFileCommand}\n",
                            **shell.options())
    equal("the status of the forger", forged.returncode, 0)

    def history(*words):
        return json.loads(shell.kelto("history", "--json", *words, as_root=True)[0])
    jobs = wait_for("two jobs", lambda: history() if len(history()) >= 2 else None)
    equal("the jobs", [(job["action"], job["verdict"], job["user"]) for job in jobs],
          [(protocol.replaceItemCommand, "done", shell.account.name), (protocol.trashFileCommand, "done", shell.account.name)])
    equal("the versions", (jobs[0]["application"], jobs[0]["oldVersion"], jobs[0]["newVersion"]), (shell.identifier, "1.0", "2.0"))
    equal("the paths", jobs[0]["paths"], [str(shell.new), str(shell.installed)])
    equal("the jobs of another bundle", history(shell.new.parent), [])
    lines, _ = shell.kelto("history", shell.installed, as_root=True)
    check(f"“{lines}” has a line for each job", f'"{shell.installed}" 1.0 -> 2.0, {shell.account.name}\n' in lines)
    equal("the jobs that an ordinary user may see", json.loads(shell.kelto("history", "--json")[0]), [])
    _, said = shell.kelto("history", "--journal", "/nowhere", status=FAILED, as_root=True)
    expect_line(said, FAILED, "read the journal", "No such file")


@scenario("system", where="grant", **SHELL)
def cli_verify(bare):
    """A signed bundle is told from a changed, an unsigned and a stranger's one, by an ordinary user."""
    shell = Shell(bare)
    keys = pathlib.Path("/etc/kelto/trust.d")
    keys.mkdir(exist_ok=True)
    _, said = shell.kelto("verify", shell.new, status=FAILED)
    expect_line(said, FAILED, "verify the bundle", "no key is trusted")
    subprocess.run(["minisign", "-G", "-W", "-p", keys / "acme.pub", "-s", shell.folder / "key"], check=True, capture_output=True)
    _, said = shell.kelto("verify", shell.new, status=FAILED)
    expect_line(said, FAILED, "verify the bundle", "manifest")
    signature = shell.new / "Contents/_Signature"
    subprocess.run([bare.build / "bin/kelto-manifest", shell.new], check=True, capture_output=True)
    subprocess.run(["minisign", "-S", "-W", "-s", shell.folder / "key", "-m", signature / "manifest"], check=True, capture_output=True)
    facts = shell.result("verify", shell.new)
    equal("the facts", (facts["identifier"], facts["version"], facts["key"], facts["status"]), (shell.identifier, "2.0", "acme", 0))
    check("they are lines for a person", "key: acme\n" in shell.kelto("verify", "Kelto.app")[0])
    with open(shell.new / "Contents/Linux/Kelto", "a", encoding="utf-8") as program:
        program.write("# changed\n")
    refusal = shell.result("verify", shell.new, status=FAILED)
    equal("the cause", refusal["cause"], "the contents differ from the manifest: Contents/Linux/Kelto")


@scenario("system", where="grant", **SHELL)
def cli_rollback(bare):
    """A replaced version is kept where an administrator wants that, and one swap brings it back."""
    shell = Shell(bare)
    with open(protocol.policyFilePath, "a", encoding="utf-8") as policy:
        policy.write("keep = 2\n")
    refusal = shell.result("rollback", shell.installed, status=FAILED)
    check(f"“{refusal['cause']}” says that nothing is kept", "no such version" in refusal["cause"])
    shell.start_application()
    shell.kelto("update", shell.new, "--to", shell.installed)
    wait_for("the new version", lambda: len(shell.starts()) == 2)
    equal("what is kept", shell.result("status", shell.installed)["bundle"]["keptVersions"], ["1.0"])
    refusal = shell.result("rollback", shell.installed, "--version", "0.9", status=FAILED)
    said, _ = shell.kelto("rollback", shell.installed)
    equal("what it says", said, f"Returned {shell.installed} from 2.0 to 1.0.\n")
    equal("the version on disk", version_of(shell.installed), "1.0")
    for path in [shell.installed, *shell.installed.rglob("*")]:
        equal(f"the owner of {path}", os.lstat(path).st_uid, 0)
    wait_for("the version before", lambda: shell.starts() == ["first", RESUMED, ""])
    equal("what is kept now", shell.result("status", shell.installed)["bundle"]["keptVersions"], ["2.0"])
    shell.kelto("rollback", shell.installed, "--no-relaunch")
    equal("the version after another return", version_of(shell.installed), "2.0")
