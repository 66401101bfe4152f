#!/usr/bin/env python3
"""Installers of other brands: their texts in all languages, and their packages beside Kelto's."""
import os
import plistlib
import re
import shutil
import sys
import types
import unittest

from support import BUILD, PROTOCOL, SOURCES, Folder, run

sys.path.append(str(SOURCES / "packaging"))
import brand as maker  # noqa: E402

KEYS = types.SimpleNamespace(**{name.partition("::")[2]: text for name, text in PROTOCOL.items()
                                if name.startswith("brandingKey::")})
BRANDS = PROTOCOL["brandFolderPath"][1:]
TABLES = sorted((SOURCES / "resources").glob("*.lproj/Localizable.strings"))
LINE = re.compile(r'^("(?:[^"\\]|\\.)*") = "(.*)";$', re.MULTILINE)
NAMES = ("Acme Editor", "Zed", "Über", "Hexen", "編集", "글", "한글 문서", "Öljy", "1Password", "5 Sterne")
ACME = {KEYS.productName: "Acme Editor", KEYS.identifier: "com.acme.editor.installer", KEYS.defaultsDomain: "com.acme.editor"}
SERVER = {KEYS.serverName: "Acme Server", KEYS.serverLabel: "com.acme.editor.server",
          KEYS.serverProgram: "Application Support/Acme/AcmeServer",
          KEYS.serverDefinition: "LaunchDaemons/com.acme.editor.server.plist",
          KEYS.serverMarker: "/Users/Shared/Acme/Shares.plist"}
KELTO = BUILD / "bin/KeltoInstaller.app"
MAINTAINER = "Acme <packages@acme.example>"


def text_of(language, key, name):
    table = (SOURCES / f"resources/{language}.lproj/Localizable.strings").read_text(encoding="utf-8")
    return dict(LINE.findall(maker.branded_table(table, language, name)))[f'"<{key}>"']


class Texts(unittest.TestCase):
    def tables(self):
        self.assertEqual(40, len(TABLES))
        for path in TABLES:
            yield path.parent.stem, path.read_bytes().decode("utf-8")

    def test_of_kelto_are_those_that_ship_byte_for_byte(self):
        for language, table in self.tables():
            self.assertEqual(table, maker.branded_table(table, language, "Kelto"), language)

    def test_name_the_brand_wherever_they_named_kelto_and_keep_keys_and_arguments(self):
        for language, table in self.tables():
            before = LINE.findall(table)
            self.assertEqual(18, len(before), language)
            for name in NAMES:
                after = LINE.findall(maker.branded_table(table, language, name))
                self.assertEqual([key for key, _ in before], [key for key, _ in after])
                for (key, old), (_, new) in zip(before, after):
                    self.assertNotIn("kelto", new.lower(), (language, key))
                    self.assertEqual(old.count("Kelto"), new.count(name), (language, key))
                    self.assertEqual(old.count("%@"), new.count("%"), (language, key))
                    if "Kelto" not in old:
                        self.assertEqual(old, new)

    def test_follow_the_grammar_of_the_name(self):
        for language, key, name, expected in (
                ("fr", "ControllerUpdateWizard_Title", "Acme Editor", "Mise à jour d’Acme Editor"),
                ("fr", "ControllerUpdateWizard_Title", "Zed", "Mise à jour de Zed"),
                ("ca", "InstallerInstallKeltoSubtitle", "Acme Editor", "S’està instal·lant l’Acme Editor"),
                ("ca", "InstallerInstallKeltoSubtitle", "Zed", "S’està instal·lant el Zed"),
                ("hu", "ControllerUpdateWizard_Title", "Über", "Az Über frissítése"),
                ("hu", "ControllerUpdateWizard_Title", "Zed", "A Zed frissítése"),
                ("fi", "ControllerUpdateWizard_Title", "Acme Editor", "Acme Editor -sovellusta päivitetään"),
                ("fi", "ControllerUpdateWizard_Title", "Zed", "Zed-sovellusta päivitetään"),
                ("fi", "ControllerUpdateWizard_Title", "Öljy", "Öljyä päivitetään"),
                ("fi", "InstallerUninstallKeltoSubtitle", "Photo", "Photon asennusta poistetaan"),
                ("ko", "InstallerUnableToUninstallSubtitle", "Acme Editor", "Acme Editor을(를) 제거할 수 없습니다."),
                ("ko", "InstallerUnableToUninstallSubtitle", "글", "글을 제거할 수 없습니다."),
                ("ko", "InstallerUnableToUninstallSubtitle", "문서", "문서를 제거할 수 없습니다.")):
            self.assertEqual(expected, text_of(language, key, name))

    def test_have_german_compounds_with_hyphens_all_the_way(self):
        self.assertEqual("Acme-Editor-Programm von Acme Editor",
                         maker.branded_text("Kelto-Programm von Kelto", "de", "Acme Editor"))

    def test_with_an_unknown_ending_of_the_name_are_refused(self):
        with self.assertRaises(maker.Refusal):
            maker.branded_text("Keltos Fenster", "de", "Acme")


class BrandFolder(Folder):
    def brand(self, values):
        path = self.folder / "Branding.plist"
        path.write_bytes(values if isinstance(values, bytes) else plistlib.dumps(values))
        return path

    def make(self, *words):
        return run(sys.executable, "-B", SOURCES / "packaging/brand.py", *words,
                   environment={"DPKG_DEB_COMPRESSOR_TYPE": "none"})


class Brand(BrandFolder):
    def make_bundle(self, values=ACME):
        bundle = self.folder / "Acme.app"
        status, said = self.make(self.brand(values), "bundle", bundle, "--kelto", KELTO)
        self.assertEqual((0, ""), (status, said))
        return bundle / "Contents"

    def refusal(self, values):
        status, said = self.make(self.brand(values), "bundle", self.folder / "Acme.app", "--kelto", KELTO)
        self.assertEqual((2, 1), (status, said.count("\n")), said)
        self.assertFalse((self.folder / "Acme.app").exists())
        return said

    def test_is_in_the_bundles_information_texts_and_programs(self):
        contents = self.make_bundle({**ACME, **SERVER})
        information = plistlib.loads((contents / "Info.plist").read_bytes())
        self.assertEqual(("AcmeEditorInstaller", "com.acme.editor.installer", "Acme Editor Installer"),
                         tuple(information[key] for key in ("CFBundleExecutable", "CFBundleIdentifier", "CFBundleName")))
        self.assertEqual({"AcmeEditorInstaller", "kelto"}, {path.name for path in (contents / "Linux").iterdir()})
        resources = contents / "Resources"
        self.assertEqual(["Acme Editor", "Acme Server"], plistlib.loads((resources / "UnlocalizedStrings.plist").read_bytes()))
        self.assertEqual({**ACME, **SERVER}, plistlib.loads((resources / "Branding.plist").read_bytes()))
        status, said = run(contents / "Linux/AcmeEditorInstaller", "--help")
        self.assertEqual((0, 0), (status, said.lower().count("kelto")), said)
        for path in contents.rglob("*"):
            if path.is_file() and not path.is_symlink() and path.suffix in (".strings", ".plist", ".ui"):
                named = re.sub(r'^"<\w+>"', "", path.read_text(encoding="utf-8"), flags=re.MULTILINE)
                self.assertNotIn("Kelto", named, path)

    def test_leaves_everything_else_as_it_is(self):
        contents = self.make_bundle()
        changed = {"Info.plist", "Localizable.strings", "UnlocalizedStrings.plist", "Branding.plist", "AcmeEditorInstaller"}
        for path in contents.rglob("*"):
            if path.is_file() and not path.is_symlink() and path.name not in changed:
                self.assertEqual((KELTO / "Contents" / path.relative_to(contents)).read_bytes(), path.read_bytes(), path)
        program = "Contents/Linux/KeltoInstaller"
        self.assertEqual((KELTO / program).read_bytes(), (contents / "Linux/AcmeEditorInstaller").read_bytes())

    def test_has_no_tool_of_its_own_for_root(self):
        contents = self.make_bundle()
        for tool in ("assistantTool", "kelto-manifest"):
            self.assertEqual(str(KELTO / "Contents/Resources" / tool), os.readlink(contents / "Resources" / tool))

    def test_brings_its_pictures(self):
        artwork = self.folder / "pictures"
        artwork.mkdir()
        for icon in (SOURCES / "resources/artwork").glob("application-icon-*.png"):
            shutil.copy(SOURCES / "resources/artwork/s_bloom.png", artwork / icon.name)
        contents = self.make_bundle({**ACME, KEYS.artwork: "pictures"})
        place = contents / "Resources/artwork"
        self.assertEqual((artwork / "application-icon-64.png").read_bytes(), (place / "application-icon-64.png").read_bytes())
        self.assertEqual(sorted(os.listdir(SOURCES / "resources/artwork")), sorted(os.listdir(place)))
        self.assertEqual("artwork", plistlib.loads((contents / "Resources/Branding.plist").read_bytes())[KEYS.artwork])

    def test_with_pictures_that_are_wrong_is_refused(self):
        artwork = self.folder / "artwork"
        artwork.mkdir()
        self.assertIn("has no application-icon-128.png", self.refusal({**ACME, KEYS.artwork: "artwork"}))
        (artwork / "applicationicon.png").touch()
        self.assertIn("no picture of the name applicationicon.png", self.refusal({**ACME, KEYS.artwork: "artwork"}))

    def test_that_is_wrong_is_refused_in_one_sentence(self):
        whole = plistlib.dumps(ACME)
        for values, cause in (
                ({key: ACME[key] for key in (KEYS.productName, KEYS.identifier)}, f"the key {KEYS.defaultsDomain} is missing"),
                ({**ACME, KEYS.serverName: "Acme Server"}, f"the key {KEYS.serverLabel} is missing"),
                ({**ACME, "ProductNmae": "A"}, "the key ProductNmae is unknown"),
                ({**ACME, KEYS.productName: 5}, f"the value of {KEYS.productName} is not a string"),
                ({**ACME, KEYS.productName: "100%"}, f"the value of {KEYS.productName} is not a name"),
                ({**ACME, KEYS.identifier: "acme"}, f"the value of {KEYS.identifier} is not an identifier"),
                ({**ACME, KEYS.identifier: "com.kelto.installer"}, f"the value of {KEYS.identifier} is Kelto's own"),
                ({**ACME, **SERVER, KEYS.serverProgram: "../a"}, f"the value of {KEYS.serverProgram} is not a plain relative"),
                ({**ACME, **SERVER, KEYS.serverProgram: "Application Support/Kelto/KeltoLibraryServer"}, "is Kelto's own"),
                ({**ACME, **SERVER, KEYS.serverDefinition: "a/AcmeServer"}, "the same file name"),
                ([ACME], "it is not a dictionary"), (whole[:-30], "it is not a property list"),
                (whole.replace(b"Acme", b"\xc4cme"), "it is not a property list"), (b"", "it is not a property list"),
                (b"bplist00", "it is not a property list")):
            self.assertIn(cause, self.refusal(values))
        status, said = self.make(self.folder / "none", "bundle", self.folder / "Acme.app")
        self.assertEqual((2, True), (status, "No such file" in said), said)

    def test_replaces_nothing_that_is_there(self):
        (self.folder / "Acme.app").mkdir()
        status, said = self.make(self.brand(ACME), "bundle", self.folder / "Acme.app", "--kelto", KELTO)
        self.assertEqual((2, True), (status, "is there already" in said))
        self.assertTrue((self.folder / "Acme.app").exists())


class Package(BrandFolder):
    def setUp(self):
        super().setUp()
        self.assertEqual(0, self.install()[0])
        self.root = self.folder / "root"
        self.keltos = set(self.contents())

    def test_lies_beside_keltos(self):
        status, said = self.make(self.brand({**ACME, **SERVER}), "tree", self.folder / "acme", "--root", self.root)
        self.assertEqual((0, ""), (status, said))
        acmes = {path for path in self.contents("acme") if not (self.folder / "acme" / path).is_dir()}
        self.assertEqual(set(), acmes & self.keltos)
        own = [path for path in acmes if not path.startswith("usr/lib/com.acme.editor.installer/")]
        self.assertEqual(sorted([f"{BRANDS}/com.acme.editor.plist",
                                 "usr/share/applications/com.acme.editor.installer.desktop",
                                 "usr/share/metainfo/com.acme.editor.installer.metainfo.xml",
                                 *(f"usr/share/icons/hicolor/{size}x{size}/apps/com.acme.editor.installer.png"
                                   for size in (16, 32, 48, 64, 128, 256))]), sorted(own))
        resources = "usr/lib/com.acme.editor.installer/AcmeEditorInstaller.app/Contents/Resources"
        links = {path.name: os.readlink(path) for path in (self.folder / "acme" / resources).iterdir() if path.is_symlink()}
        tool = PROTOCOL["packagedToolFolder"] + "/assistantTool"
        self.assertEqual({"assistantTool": tool, "kelto-manifest": "/usr/bin/kelto-manifest"}, links)
        for target in links.values():
            self.assertTrue((self.root / target[1:]).is_file(), target)
        self.assertEqual((self.folder / "acme" / resources / "Branding.plist").read_bytes(),
                         (self.folder / f"acme/{BRANDS}/com.acme.editor.plist").read_bytes())
        self.check_files_for_desktops()

    def check_files_for_desktops(self):
        share = self.folder / "acme/usr/share"
        entry = share / "applications/com.acme.editor.installer.desktop"
        program = "/usr/lib/com.acme.editor.installer/AcmeEditorInstaller.app/Contents/Linux/AcmeEditorInstaller"
        self.assertIn(f"\nExec={program}\n", entry.read_text())
        self.assertIn("\nStartupWMClass=AcmeEditorInstaller\n", entry.read_text())
        self.assertTrue(os.access(self.folder / "acme" / program[1:], os.X_OK))
        description = share / "metainfo/com.acme.editor.installer.metainfo.xml"
        for path in (entry, description):
            self.assertNotIn("kelto", path.read_text(encoding="utf-8").lower())
        if shutil.which("desktop-file-validate"):
            self.assertEqual((0, ""), run("desktop-file-validate", entry))
        if shutil.which("appstreamcli"):
            status, said = run("appstreamcli", "validate", "--no-net", "--explain", description)
            self.assertEqual(0, status, said)

    @unittest.skipUnless(shutil.which("dpkg-deb"), "there is no dpkg here")
    def test_is_one_that_the_distribution_can_install(self):
        deb = self.folder / "acme.deb"
        status, said = self.make(self.brand({**ACME, **SERVER}), "deb", deb, "--root", self.root, "--maintainer", MAINTAINER)
        self.assertEqual((0, ""), (status, said))
        status, said = run("dpkg-deb", "--field", deb, "Package", "Depends", "Maintainer")
        self.assertEqual(0, status, said)
        self.assertIn("Package: com.acme.editor.installer\n", said)
        self.assertRegex(said, r"Depends: kelto \(>= \d+\.\d+")
        listed = run("dpkg-deb", "--contents", deb)[1].splitlines()
        self.assertEqual({"root/root"}, {line.split()[1] for line in listed})
        self.assertFalse([line for line in listed if line[0] != "l" and "w" in (line[5], line[8])])
        for place in (f"./{BRANDS}/com.acme.editor.plist", "Contents/Linux/AcmeEditorInstaller"):
            self.assertTrue(any(line.endswith(place) for line in listed), place)


if __name__ == "__main__":
    unittest.main()
