#!/usr/bin/python3
"""Runs one end-to-end scenario: run.py NAME BUILD_FOLDER. `run.py --list` prints the names and labels of all.

Exit status: 0 passed, 1 failed, 77 skipped (after a line "SKIP: reason"). A scenario runs on a desktop of its own; those that
need more run, as root, in a namespace with a system bus where the policy grants, denies or wants a person asked ("grant",
"deny", "challenge", or "password": the same with a password that the scenario knows; after "installed-" with what was installed from the build folder), or in one with a service manager besides ("services"); or they make that themselves ("root").
"""
import os
import pathlib
import shlex
import signal
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parents[1] / "demo"), str(HERE.parent / "support")]
import brand  # noqa: E402,F401
import command_line  # noqa: E402,F401
import copies  # noqa: E402,F401
import demonstration  # noqa: E402,F401
import dialog  # noqa: E402,F401
import disks  # noqa: E402,F401
import endings  # noqa: E402,F401
import entries  # noqa: E402,F401
import face  # noqa: E402,F401
import failures  # noqa: E402,F401
import installed  # noqa: E402,F401
import killed  # noqa: E402,F401
import keyboard  # noqa: E402,F401
import modes  # noqa: E402,F401
import replies  # noqa: E402,F401
import screens  # noqa: E402,F401
import screen_reader  # noqa: E402,F401
import sdk  # noqa: E402,F401
import server  # noqa: E402,F401
import state  # noqa: E402,F401
import system  # noqa: E402,F401
import wayland  # noqa: E402,F401
from desktop import LIBC, PR_SET_PDEATHSIG, Failure, end_on_signals, missing_programs  # noqa: E402
from private_state import keep_state_private  # noqa: E402
from road import PROJECT  # noqa: E402
from world import SCENARIOS, Bare, Skip, World  # noqa: E402

PASSWORD = "open sesame"
UNITS = {
    "test.target": "[Unit]\nDefaultDependencies=no\n",
    # The units that an ordinary unit depends on by default.
    "sysinit.target": "[Unit]\nDefaultDependencies=no\n",
    "basic.target": "[Unit]\nDefaultDependencies=no\n",
    "shutdown.target": "[Unit]\nDefaultDependencies=no\n",
    "dbus.socket": "[Unit]\nDefaultDependencies=no\n[Socket]\nListenStream=/run/dbus/system_bus_socket\n",
    "dbus.service": "[Unit]\nDefaultDependencies=no\nRequires=dbus.socket\n[Service]\nStandardError=journal+console\n"
                    "ExecStart=/usr/bin/dbus-daemon --system --address=systemd: --nofork --nopidfile --nosyslog\n",
}


def command(*words):
    return [sys.executable, __file__, *words, "--inside"]


def run_tied(words):
    """Runs a command that dies with this process."""
    return subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL,
                          preexec_fn=lambda: LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)).returncode


def require_namespaces():
    if os.geteuid() != 0:
        raise Skip("needs root for a namespace with a system bus")
    if subprocess.run(["unshare", "--mount", "--pid", "--fork", "true"], capture_output=True).returncode:
        raise Skip("namespaces are not allowed here")
    if not os.path.exists("/usr/lib/polkit-1/polkitd"):
        raise Skip("the policy service is not installed")


def run_with_system_bus(name, build, mode):
    require_namespaces()
    how = ["--challenge", "--password", PASSWORD] if mode == "password" else [f"--{mode}"]
    return run_tied([PROJECT / "tests/support/system-bus.sh", *how, "--build", build, "--", *command(name, build)])


def run_installed(name, build, mode):
    require_namespaces()
    with tempfile.TemporaryDirectory(prefix="kelto-installed-") as folder:
        root = pathlib.Path(folder, "root")
        subprocess.run(["cmake", "--install", build, "--prefix", "/usr"], env=os.environ | {"DESTDIR": str(root)}, check=True,
                       stdout=subprocess.DEVNULL)
        return run_tied([PROJECT / "tests/support/system-bus.sh", f"--{mode}", "--installed", root, "--", *command(name, build)])


def run_with_services(name, build):
    require_namespaces()
    if not os.path.exists("/lib/systemd/systemd"):
        raise Skip("systemd is not installed")
    with tempfile.TemporaryDirectory(prefix="kelto-box-") as folder:
        box = pathlib.Path(folder)
        box.chmod(0o755)
        for each in ("box", "Library", "units"):
            (box / each).mkdir()
        for unit, text in UNITS.items():
            (box / "units" / unit).write_text(text)
        (box / "job.sh").write_text(f"set -e\n[ -e {shlex.quote(__file__)} ] || exit 77\n"
                                    f". {shlex.quote(str(PROJECT / 'tests/support/policy.sh'))}\n"
                                    f"lay_policy grant {shlex.quote(build)}\nsystemctl start dbus.service\n"
                                    f"TMPDIR={folder} exec {shlex.join(command(name, build))}\n")
        run_tied(["sh", PROJECT / "tests/privileged/tool/systemd-box.sh", folder])
        print((box / "console").read_text(errors="replace") if (box / "console").exists() else "")
        if not (box / "status").exists():
            raise Skip("no service manager can be run here")
        return int((box / "status").read_text())


def run_here(name, build):
    function, _, _, options = SCENARIOS[name]
    missing = missing_programs()
    if missing:
        raise Skip(f"not installed: {', '.join(missing)}")
    with Bare(build) if options.get("bare") else World(build, **options) as world:
        function(world)
    return 0


def run(name, build, is_inside):
    where = SCENARIOS[name][2]
    if not is_inside and not keep_state_private():
        raise Skip("root's tool would change /var/lib, and no namespace can be made")
    if where == "root":
        require_namespaces()
    if where in (None, "root") or is_inside:
        return run_here(name, build)
    if where.startswith("installed-"):
        return run_installed(name, build, where.removeprefix("installed-"))
    return run_with_services(name, build) if where == "services" else run_with_system_bus(name, build, where)


def main():
    if sys.argv[1:] == ["--list"]:
        for name, (_, label, *_) in SCENARIOS.items():
            print(name, label)
        return 0
    end_on_signals()
    name, build = sys.argv[1], os.path.abspath(sys.argv[2])
    try:
        return run(name, build, "--inside" in sys.argv)
    except Skip as reason:
        print(f"SKIP: {reason}")
        return 77
    except (Failure, OSError, subprocess.SubprocessError) as failure:
        print(f"FAILED: {name}: {failure}")
        return 1


if __name__ == "__main__":
    sys.exit(main())
