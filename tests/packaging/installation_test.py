#!/usr/bin/env python3
"""The files that `cmake --install` leaves at any prefix, and how the target "uninstall" takes them away again."""
import os
import pathlib
import re
import unittest

from support import BUILD, PROTOCOL, SOURCES, VERSION, Folder, require, run

UNIT = "kelto-authorizationd.service"
NAME = PROTOCOL["brokerBusName"]
SERVICE = f"usr/share/dbus-1/system-services/{NAME}.service"
CONFIGURATION = PROTOCOL["policyFilePath"][1:]
PROGRAMS = PROTOCOL["packagedToolFolder"]


class Installation(Folder):
    def installed(self, prefix="/usr"):
        status, said = self.install(prefix)
        self.assertEqual(0, status, said)
        return self.folder / "root"

    def unit_in(self, root):
        return next(root.rglob(UNIT))

    def test_files_name_the_prefix_that_is_given_while_installing(self):
        root = self.installed("/opt/elsewhere")
        programs = "/opt/elsewhere/lib/kelto"
        self.assertIn(f"Exec={programs}/authorizationd --system\n", (root / SERVICE).read_text())
        self.assertIn(f"ExecStart={programs}/authorizationd --system\n", self.unit_in(root).read_text())
        self.assertIn(f"\ntools = {programs}\n", (root / CONFIGURATION).read_text())
        self.assertTrue(os.access(root / programs[1:] / "authorizationd", os.X_OK))

    def test_no_text_names_the_build_folder_or_has_a_place_that_was_not_filled(self):
        root = self.installed()
        for path in root.rglob("*"):
            if not path.is_file() or path.suffix == ".png" or path.read_bytes().startswith((b"\x7fELF", b"!<arch>")):
                continue
            text = path.read_text(encoding="utf-8")
            self.assertFalse(str(BUILD) in text, path)
            self.assertFalse(re.search(r"@[A-Z_]+@", text), path)

    def test_the_bus_and_the_policy_service_read_their_files_at_any_prefix(self):
        root = self.installed("/opt/elsewhere")
        for path in (SERVICE, f"usr/share/dbus-1/system.d/{NAME}.conf",
                     "usr/share/polkit-1/actions/com.kelto.authorization.policy", CONFIGURATION, "etc/kelto/trust.d"):
            self.assertTrue((root / path).exists(), path)

    def test_links_lead_to_what_is_installed(self):
        root = self.installed("/opt/elsewhere")
        links = [path for path in root.rglob("*") if path.is_symlink()]
        self.assertGreaterEqual(len(links), 3)
        for link in links:
            self.assertTrue(link.exists(), link)
            self.assertTrue(link.resolve().is_relative_to(root), link)

    def test_another_program_is_built_with_the_library_wherever_it_was_moved(self):
        self.installed("/opt/elsewhere")
        moved = self.folder / "moved"
        (self.folder / "root/opt/elsewhere").rename(moved)
        status, said = run("cmake", "-S", SOURCES / "examples/kit", "-B", self.folder / "example", "-G", "Ninja",
                           f"-DCMAKE_PREFIX_PATH={moved}", "-DCMAKE_CXX_COMPILER=g++", "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        self.assertEqual(0, status, said)
        status, said = run("cmake", "--build", self.folder / "example", "--verbose")
        self.assertEqual(0, status, said)
        self.assertNotIn(str(SOURCES / "logging"), said)
        status, said = run(self.folder / "example/kit_example", "-Some", "argument",
                           environment={"XDG_STATE_HOME": str(self.folder / "state"), "HOME": str(self.folder),
                                        "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.folder}/none"})
        self.assertEqual(0, status, said)
        files = [line for line in said.splitlines() if line.startswith(f"{self.folder}/state/Library/Logs/kit_example/")]
        self.assertEqual(1, len(files), said)
        self.assertIn("The example started with 2 arguments", pathlib.Path(files[0]).read_text(encoding="utf-8"))

    def test_an_application_is_built_with_the_controller_library_wherever_it_was_moved(self):
        self.installed("/opt/elsewhere")
        moved = self.folder / "moved"
        (self.folder / "root/opt/elsewhere").rename(moved)
        library = next(moved.rglob("libkelto-controller.so.1"))
        status, flags = run("pkg-config", "--cflags", "--libs", "kelto-controller",
                            environment={"PKG_CONFIG_PATH": str(next(moved.rglob("pkgconfig")))})
        self.assertEqual(0, status, flags)
        source = self.folder / "application.c"
        source.write_text("#include <kelto/controller.h>\n#include <stdio.h>\n"
                          "int main(void) { return puts(kelto_controller_version()) < 0; }\n")
        program = self.folder / "application"
        status, said = run("gcc", "-Wall", "-Wextra", "-Werror", source, "-o", program, *flags.split())
        self.assertEqual(0, status, said)
        self.assertEqual((0, VERSION + "\n"), run(program, environment={"LD_LIBRARY_PATH": str(library.parent)}))
        module = next(moved.rglob("kelto_controller.py"))
        status, said = run("python3", "-B", "-c", "import kelto_controller; print(kelto_controller.last_run())", environment={
            "PYTHONPATH": str(module.parent), "KELTO_CONTROLLER_LIBRARY": str(library), "XDG_STATE_HOME": str(self.folder)})
        self.assertEqual((0, "{}\n"), (status, said))

    def test_the_service_manager_finds_no_fault_in_the_unit(self):
        require("systemd-analyze")
        root = self.installed()
        # The check looks for the program on this machine.
        unit = self.folder / UNIT
        text = self.unit_in(root).read_text()
        unit.write_text(text.replace(f"ExecStart={PROGRAMS}", f"ExecStart={root}{PROGRAMS}"))
        status, said = run("systemd-analyze", "verify", "--man=no", "--recursive-errors=no", unit)
        self.assertEqual((0, ""), (status, said))

    def test_uninstalling_leaves_nothing_where_nothing_was(self):
        self.installed("/opt/elsewhere")
        self.assertEqual(0, self.uninstall()[0])
        self.assertEqual([], self.contents())

    def test_uninstalling_leaves_what_others_have_put_there(self):
        others = self.folder / "root/opt/elsewhere/bin/other"
        others.parent.mkdir(parents=True)
        others.touch()
        before = self.contents()
        self.installed("/opt/elsewhere")
        self.assertEqual(0, self.uninstall()[0])
        self.assertEqual(before, self.contents())

    def test_the_administrators_configuration_survives_a_second_installation_and_the_end(self):
        root = self.installed()
        (root / CONFIGURATION).write_text("keep = 3\n")
        self.installed()
        self.assertEqual("keep = 3\n", (root / CONFIGURATION).read_text())
        status, said = self.uninstall()
        self.assertEqual(0, status, said)
        self.assertEqual(["etc", "etc/kelto", CONFIGURATION], self.contents())

    def test_a_folder_that_no_service_file_can_name_is_refused_before_anything_is_written(self):
        status, said = self.install("/opt/two words")
        self.assertNotEqual(0, status)
        self.assertIn('cannot start a program in the folder "/opt/two words"', " ".join(said.split()))
        self.assertEqual([], self.contents())

    def test_a_prefix_that_others_can_write_is_refused_before_anything_is_written(self):
        place = self.folder / "open"
        place.mkdir()
        place.chmod(0o777)
        status, said = run("cmake", "--install", BUILD, "--prefix", place / "kelto")
        self.assertNotEqual(0, status)
        self.assertRegex(" ".join(said.split()), "The broker of the machine would refuse the tool in|Only root can install")
        self.assertEqual([], os.listdir(place))


if __name__ == "__main__":
    unittest.main()
