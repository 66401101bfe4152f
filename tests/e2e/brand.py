"""An installer of another brand, made from Kelto's: its texts, its server, and a brand that is wrong."""
import os
import pathlib
import plistlib
import re
import secrets
import shutil
import signal
import subprocess
import sys

import protocol
from desktop import wait_for
from endings import BAD_ARGUMENTS, NO_DISPLAY
from road import PROJECT, SERVER_FILES, version_of
from server import SURROUNDINGS, UNIT_FILE, main_process, preferences, process_of, start_old_server, systemctl
from world import check, equal, scenario

NAME = "Acme Editor"
LABEL = "com.acme.editor.server"
PROGRAM = "Application Support/Acme/AcmeServer"
DEFINITION = f"LaunchDaemons/{LABEL}.plist"
MARKER = "/Users/Shared/Acme/Shares.plist"
STATE = pathlib.Path(f"/run/{LABEL}.version")


def brand_for(application):
    return {protocol.productName: NAME, protocol.identifier: "com.acme.editor.installer", protocol.defaultsDomain: application,
            protocol.serverName: "Acme Server", protocol.serverLabel: LABEL, protocol.serverProgram: PROGRAM,
            protocol.serverDefinition: DEFINITION, protocol.serverMarker: MARKER}


def brand_file(installer):
    return installer / "Contents/Resources/Branding.plist"


def make_installer_acmes(world, application="com.acme.editor"):
    """From now on the world's installer is the one of the brand. The tool stays where the broker is told to look for it."""
    branding = world.folder / "Branding.plist"
    branding.write_bytes(plistlib.dumps(brand_for(application)))
    bundle = world.road.installer.with_name("AcmeEditorInstaller.app")
    subprocess.run([sys.executable, "-B", PROJECT / "packaging/brand.py", branding, "bundle", bundle,
                    "--kelto", world.road.installer], check=True)
    world.road.installer = bundle


def make_application_acmes(world):
    """The two bundles of the application are Acme's, and so is the server in the new one; their identifier."""
    road, identifier = world.road, f"com.acme.editor.run{secrets.token_hex(6)}"
    for bundle in (road.installed, road.new):
        information = bundle / "Contents/Info.plist"
        information.write_bytes(plistlib.dumps({**plistlib.loads(information.read_bytes()),
                                                "CFBundleIdentifier": identifier, "CFBundleName": NAME}))
    road.installed = road.installed.rename(road.installed.with_name(f"{NAME}.app"))
    road.new = road.new.rename(road.new.with_name(f"{NAME}.app"))
    server = road.new / "Contents/Resources/LibraryServer"
    (server / "KeltoLibraryServer").rename(server / pathlib.Path(PROGRAM).name)
    for name in SERVER_FILES:
        (server / name).write_text(acmes((server / name).read_text()))
        (server / name).rename(server / acmes(name))
    return identifier


def acmes(text):
    """A text about Kelto's server as one about Acme's."""
    return text.replace("Application Support/Kelto/KeltoLibraryServer", PROGRAM).replace("com.kelto.KeltoLibraryServer", LABEL)


# Texts.

def arguments_in(world, mode):
    """With which the controller starts the installer in this mode."""
    words = [protocol.trashPathArgument, world.road.installed]
    if mode != "uninstall":
        words += [protocol.sourcePathArgument, world.road.new]
    return words + ([protocol.isUpdateArgument, "YES"] if mode == "update" else [])


TITLES = {"update": "<ControllerUpdateWizard_Title>", "install": "<InstallerInstallKeltoSubtitle>",
          "uninstall": "<InstallerUninstallKeltoSubtitle>"}


def title_in(world, language, mode):
    table = (world.road.installer / f"Contents/Resources/{language}.lproj/Localizable.strings").read_text(encoding="utf-8")
    return re.search(rf'^"{TITLES[mode]}" = "(.*)";$', table, re.MULTILINE).group(1)


def strings_in(value):
    if isinstance(value, str):
        yield value
    for each in value.values() if isinstance(value, dict) else value if isinstance(value, list) else ():
        yield from strings_in(each)


def expect_acmes_wizard(world, language, mode):
    """Everything that an assistive tool is told in this language and mode speaks of Acme Editor."""
    process = world.start_installer(*arguments_in(world, mode), "-AppleLanguages", f"({language})")
    title = title_in(world, language, mode)
    windows = wait_for(f"the wizard in {language}", lambda: [
        window for window in world.desktop.windows(process) if title in window["texts"]])
    told = list(strings_in(windows))
    check(f"the title in {language} names {NAME} ({title})", NAME in title)
    equal("the names of window and program", (windows[0]["name"], windows[0]["application"]),
          (f"{NAME} Installer", "AcmeEditorInstaller"))
    equal(f"texts in {language} that name Kelto", [text for text in told if "kelto" in text.lower()], [])
    # Nobody hands it any rights, so a slow machine may show an alert by now, over which no button can be pressed.
    os.kill(process, signal.SIGTERM)
    world.road.installer_gone(process)


def languages():
    return sorted(folder.stem for folder in (PROJECT / "resources").glob("*.lproj"))


@scenario("gui")
def brand_texts(world):
    """Acme's wizard speaks of Acme Editor, in all modes and from right to left too."""
    make_application_acmes(world)
    make_installer_acmes(world)
    for language, mode in (("en", "update"), ("fi", "install"), ("ar", "uninstall")):
        expect_acmes_wizard(world, language, mode)


@scenario("slow")
def brand_texts_in_all_languages(world):
    """Acme's wizard speaks of Acme Editor, in every language and mode."""
    make_application_acmes(world)
    make_installer_acmes(world)
    equal("languages", len(languages()), 40)
    for language in languages():
        for mode in TITLES:
            expect_acmes_wizard(world, language, mode)


@scenario("bus")
def brand_without_a_display(world):
    """The advice to a person without a display names Acme's program."""
    make_installer_acmes(world)
    program = world.road.installer / "Contents/Linux/AcmeEditorInstaller"
    done = subprocess.run([program, *arguments_in(world, "uninstall")], env={"PATH": "/usr/bin:/bin"}, capture_output=True, text=True,
                          timeout=20)
    equal("the status", done.returncode, NO_DISPLAY)
    check(f"{done.stderr!r} names the program", "(for example: xvfb-run AcmeEditorInstaller ...)" in done.stderr)
    equal("lines that name Kelto", [line for line in done.stderr.splitlines() if "kelto" in line.replace(str(world.folder), "").lower()], [])


# The server.

def start_acmes_server(world, application):
    """Version 1 of Acme's server, installed and running beside Kelto's; its process."""
    places = {pathlib.Path("/Library", PROGRAM): world.build / "bin/KeltoLibraryServer-1", pathlib.Path(MARKER): None,
              pathlib.Path("/Library", DEFINITION): PROJECT / "demo/library-server" / SERVER_FILES[0],
              UNIT_FILE.with_name(f"{LABEL}.service"): PROJECT / "demo/library-server" / SERVER_FILES[1]}
    for place, source in places.items():
        place.parent.mkdir(parents=True, exist_ok=True)
        if source is None or "demo" in source.parts:
            place.write_text(acmes(source.read_text()) if source else "")
        else:
            shutil.copy(source, place)
    brands = pathlib.Path(protocol.brandFolderPath)
    brands.mkdir()
    shutil.copy(brand_file(world.road.installer), brands / f"{application}.plist")
    (brands / f"{application}.plist").chmod(0o644)
    systemctl("daemon-reload")
    systemctl("start", LABEL)
    expect_server("1")
    return process_of(LABEL)


def expect_server(version):
    wait_for(f"version {version} of Acme's server", lambda: STATE.exists() and STATE.read_text() == f"{version}\n")
    equal("the service", systemctl("is-active", LABEL), "active")


@scenario("system", where="services", **SURROUNDINGS)
def brand_server_upgrade(world):
    """Acme's own server is upgraded with its application, and Kelto's, which runs beside it, is left alone."""
    application = make_application_acmes(world)
    make_installer_acmes(world, application)
    keltos = start_old_server(world.build)
    acmes_server = start_acmes_server(world, application)
    installer = world.start("update")
    world.road.controller_gone()
    world.road.relaunched_controller()
    world.road.installer_gone(installer)
    equal("the version on disk", version_of(world.road.installed), "2.0")
    expect_server("2")
    check("it is another process", process_of(LABEL) not in (0, acmes_server))
    check("it is Acme's program", os.readlink(f"/proc/{process_of(LABEL)}/exe") == f"/Library/{PROGRAM}")
    equal("the process of Kelto's server", main_process(), keltos)
    equal("Acme's preferences", preferences(world, application), {"LibraryServerVersion": "2"})
    equal("Kelto's preferences", preferences(world), {})


# Brands that are wrong.

def wrong_brands():
    """The contents of files that are wrong, and what is said about each."""
    good = brand_for("com.acme.editor")
    whole = plistlib.dumps(good)
    without = {name: value for name, value in good.items() if name != protocol.productName}
    yield plistlib.dumps(without), f"the key {protocol.productName} is missing"
    yield plistlib.dumps({**good, "ProductNmae": NAME}), "the key ProductNmae is unknown"
    yield plistlib.dumps({**good, protocol.serverLabel: ["a"]}), f"the value of {protocol.serverLabel} is not a string"
    yield plistlib.dumps({**good, protocol.identifier: "acme"}), f"the value of {protocol.identifier} is not an identifier"
    yield plistlib.dumps({**good, protocol.identifier: "com.acme.other"}), "but the bundle's is com.acme.editor.installer"
    yield plistlib.dumps([good]), "it is not a dictionary"
    yield whole[:len(whole) // 2], ""
    yield whole.replace(NAME.encode(), b"\xc4cme"), ""
    yield b"", ""
    yield b"bplist00", ""


def expect_refused(world, words, contents, cause):
    done = subprocess.run(words, env=world.desktop.environment, capture_output=True, text=True, timeout=60)
    equal(f"the status with {contents!r}", done.returncode, BAD_ARGUMENTS)
    lines = [line for line in done.stderr.splitlines() if "(status " in line]
    equal(f"the lines about {contents!r} in {done.stderr!r}", len(lines), 1)
    check(f"{lines[0]!r} says {cause!r}", 'step "read the brand"' in lines[0] and cause in lines[0])


@scenario("bus")
def brand_that_is_wrong(world):
    """A brand that is wrong is told in one sentence, by the command line and by the installer, and nothing else happens."""
    make_installer_acmes(world)
    programs, brand = world.road.installer / "Contents/Linux", brand_file(world.road.installer)
    for number, (contents, cause) in enumerate(wrong_brands()):
        brand.write_bytes(contents)
        expect_refused(world, [programs / "kelto", "remove", world.road.installed, "--yes"], contents, cause)
        if number == 0:
            expect_refused(world, [programs / "AcmeEditorInstaller", *arguments_in(world, "uninstall")], contents, cause)
    brand.unlink()
    brand.mkdir()
    expect_refused(world, [programs / "kelto", "remove", world.road.installed, "--yes"], "a folder", "it cannot be read")
    check("the installed bundle is still there", world.road.installed.exists())
