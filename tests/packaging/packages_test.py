#!/usr/bin/env python3
"""The Debian packages in a root folder that never saw the build: installed, used, upgraded, removed and purged by apt, with a
real service manager, system bus and policy service.

KELTO_PACKAGES is the folder of packages that are built already (else ./package.sh builds them), KELTO_CHROOT a root folder made
by debootstrap with what the scenarios need (else one is made, from the network).
"""
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

from support import BUILD, PROTOCOL, SOURCES, Folder, require, run

sys.path[:0] = [str(SOURCES / "tests/e2e"), str(SOURCES / "demo")]

NEEDED = ("systemd dbus polkitd xvfb openbox xdotool x11-utils x11-xserver-utils imagemagick at-spi2-core python3 python3-gi "
          "gir1.2-atspi-2.0 fonts-dejavu-core procps libqt6widgets6 libqt6dbus6").split()
HARNESS = ("demo", "protocol", "resources", "tests/e2e", "tests/support")

JOB = """
set -e
world=$folder/world
export DEBIAN_FRONTEND=noninteractive LC_ALL=C KELTO_E2E_APPLICATIONS=/opt/kelto-test TMPDIR=$world
say() { echo "== $*"; }
entries() { find /etc /opt /usr /var/lib -xdev ! -path '/var/lib/dpkg*' ! -path '/var/lib/apt*' ! -path '/var/lib/systemd*' | sort; }
# A scenario mounts its account over /etc/passwd; a broker that runs would go on seeing the account of the one before.
scenario() {
  umount -q /etc/passwd /etc/group || true
  systemctl stop kelto-authorizationd.service
  rm -rf /opt/kelto-test
  python3 -B $world/suite/tests/e2e/run.py "$1" $world/build --inside
}
rules() {
  printf 'polkit.addRule(function(action) { if (action.id == "%s") return polkit.Result.%s; });\\n' "$action" "$1" \\
    >/etc/polkit-1/rules.d/00-kelto-test.rules
  systemctl try-restart polkit.service
}
until_true() { tries=0; until eval "$2"; do tries=$((tries + 1)); [ $tries -lt $(($1 * 10)) ]; sleep 0.1; done; }
broker_gone() { until_true "$1" '! pgrep -x authorizationd'; }

# A file system of its own, so that it can be watched.
mkdir $world
mount -t tmpfs -o mode=1777 tmpfs $world
cp -r $folder/suite $folder/build $world
systemctl start dbus.service
rules YES
entries >$folder/before
say install
apt-get install -y --no-install-recommends $folder/packages/*.deb
[ "$(stat -c %U:%a /etc/kelto/trust.d)" = root:755 ]
cat /var/lib/dpkg/info/*.list >$folder/owned
python3 -B $folder/opened_files.py $folder/opened $folder/watching / $world &
watcher=$!
until_true 10 '[ -e $folder/watching ]'
say update
scenario installed_update
[ "$(systemctl show -P MainPID kelto-authorizationd.service)" = "$(pgrep -x authorizationd)" ]
say uninstall
scenario installed_uninstall
say refused
rules NO
scenario installed_refused
rules YES
kill $watcher
say upgrade of an idle broker
pgrep -x authorizationd
apt-get install -y $folder/newer/1.deb
broker_gone 5
say upgrade while a job runs
export KELTO_E2E_MEANWHILE="apt-get install -y $folder/newer/2.deb"
scenario installed_update
unset KELTO_E2E_MEANWHILE
dpkg-query -W -f '${Version}\\n' kelto | grep -F 9newer.2
broker_gone 5
say update by the new version
scenario installed_update
say remove
apt-get remove -y kelto
! pgrep -x authorizationd
[ ! -e /usr/lib/kelto ] && [ -e /etc/kelto/authorization.conf ]
say purge
apt-get purge -y --autoremove kelto $others
rm -rf /opt/kelto-test
entries >$folder/after
diff $folder/before $folder/after
say done
"""
# Made while packages are installed, so that no package owns them.
GENERATED = ("/usr/lib/locale/locale-archive", "/usr/share/mime/", "/usr/share/icons/hicolor/icon-theme.cache")


class Packages(Folder):
    def packages(self):
        if "KELTO_PACKAGES" in os.environ:
            return pathlib.Path(os.environ["KELTO_PACKAGES"])
        status, said = run(SOURCES / "package.sh", self.folder / "made")
        self.assertEqual(0, status, said)
        return self.folder / "made"

    def root_folder(self):
        if "KELTO_CHROOT" in os.environ:
            return pathlib.Path(os.environ["KELTO_CHROOT"])
        root = self.folder / "chroot"
        status, said = run("debootstrap", "--variant=minbase", f"--include={','.join(NEEDED)}", "bookworm", root)
        self.assertEqual(0, status, said)
        return root

    def make_newer(self, package, number):
        """The same package with a higher version."""
        content = self.folder / f"content-{number}"
        self.assertEqual(0, run("dpkg-deb", "-R", package, content)[0])
        control = content / "DEBIAN/control"
        control.write_text(control.read_text().replace("\nVersion: ", f"\nVersion: 9newer.{number}."))
        (self.folder / "newer").mkdir(exist_ok=True)
        status, said = run("dpkg-deb", "-b", content, self.folder / f"newer/{number}.deb")
        self.assertEqual(0, status, said)

    def make_units(self):
        from run import UNITS
        (self.folder / "units").mkdir()
        for name, text in UNITS.items():
            (self.folder / "units" / name).write_text(text.replace("--nosyslog", "--nosyslog --systemd-activation"))
        for name in ("polkit.service", "kelto-authorizationd.service"):
            (self.folder / "units" / name).symlink_to(f"/lib/systemd/system/{name}")

    def prepare(self):
        packages = self.packages()
        self.folder.chmod(0o755)
        for name in ("box", "Library", "packages", "build/bin", "build/sdk"):
            (self.folder / name).mkdir(parents=True)
        chosen = [package for package in packages.glob("*.deb") if "-dbgsym" not in package.name]
        self.assertEqual(len(chosen), (SOURCES / "packaging/debian/control").read_text().count("\nPackage: "))
        for package in chosen:
            shutil.copy(package, self.folder / "packages")
        for number in (1, 2):
            self.make_newer(next(packages.glob("kelto_*.deb")), number)
        for name in ("KeltoController", "KeltoLibraryServer-2"):
            shutil.copy(BUILD / "bin" / name, self.folder / "build/bin")
        shutil.copy(BUILD / "sdk/libkelto-controller.so.1", self.folder / "build/sdk")
        for name in HARNESS:
            shutil.copytree(SOURCES / name, self.folder / "suite" / name)
        shutil.copy(SOURCES / "tests/packaging/opened_files.py", self.folder)
        self.make_units()
        others = " ".join(sorted({package.name.partition("_")[0] for package in chosen} - {"kelto"}))
        (self.folder / "job.sh").write_text(f"folder={self.folder}\naction={PROTOCOL['adminAction']}\nothers='{others}'\n{JOB}")

    def expect_only_installed_files_were_used(self):
        owned = set((self.folder / "owned").read_text().splitlines())
        pairs = [line.split("\t") for line in (self.folder / "opened").read_text(errors="surrogateescape").splitlines()]
        programs = PROTOCOL["packagedToolFolder"]
        ours = {(program, file) for program, file in pairs if program.startswith(f"{programs}/")}
        self.assertEqual({pathlib.Path(program).name for program, _ in ours} & {"KeltoInstaller", "authorizationd", "assistantTool"},
                         {"KeltoInstaller", "authorizationd", "assistantTool"})
        for program, file in sorted(ours):
            for harness in ("build", "suite"):
                self.assertFalse(file.startswith(f"{self.folder}/world/{harness}/"), (program, file))
            if file.startswith("/usr/") and not file.startswith(GENERATED):
                self.assertTrue(file in owned or file.removeprefix("/usr") in owned, (program, file))

    def test_serve_an_ordinary_user_and_leave_nothing_behind(self):
        self.prepare()
        box = SOURCES / "tests/privileged/tool/systemd-box.sh"
        environment = os.environ | {"KELTO_BOX_ROOT": str(self.root_folder()), "KELTO_BOX_SECONDS": "600"}
        subprocess.run(["sh", box, self.folder], env=environment, check=False)
        console = (self.folder / "console").read_text(errors="replace")
        self.assertTrue((self.folder / "status").exists(), console)
        self.assertEqual("0", (self.folder / "status").read_text().strip(), console)
        self.assertIn("\n== done", console)
        self.expect_only_installed_files_were_used()


if __name__ == "__main__":
    if os.geteuid() != 0:
        print("SKIP: needs root for a namespace with a service manager")
        sys.exit(77)
    require("debootstrap", "dpkg-deb", "unshare")
    unittest.main()
