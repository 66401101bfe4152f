#!/usr/bin/env python3
"""Makes the installer of a brand from Kelto's (docs/branding.md).

  brand.py BRANDING.plist bundle OUTPUT.app      the bundle alone
  brand.py BRANDING.plist tree FOLDER            the files of a package, as they lie below the root folder
  brand.py BRANDING.plist deb FILE.deb --maintainer "Acme <packages@acme.example>"

Kelto has to be installed, below --root if that is given; --kelto names another bundle of it. A brand that is wrong is told in
one sentence, with exit status 2.
"""
import argparse
import os
import pathlib
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile
import unicodedata
import xml.parsers.expat

SERVER_KEYS = ("ServerName", "ServerLabel", "ServerProgram", "ServerDefinition", "ServerMarker")
NAMES = ("ProductName", "ServerName")
IDENTIFIERS = ("Identifier", "DefaultsDomain", "ServerLabel")
PATHS = ("Artwork", "ServerProgram", "ServerDefinition", "ServerMarker")
KELTOS_PATHS = ("Application Support/Kelto/", "LaunchDaemons/com.kelto.", "/Users/Shared/Kelto/")
KELTO = "usr/lib/kelto/KeltoInstaller.app"
PROGRAM = "KeltoInstaller"
ICON = "application-icon"


class Refusal(Exception):
    """The brand is wrong; the text says why."""


# The brand.

def is_name(text):
    return len(text.encode()) in range(1, 201) and text == text.strip(" ") and not re.search(r'["&<>\\%\x00-\x1f\x7f]', text)


def is_identifier(text):
    return len(text) <= 200 and re.fullmatch(r"[A-Za-z_][\w-]*(\.[A-Za-z_][\w-]*)+", text, re.ASCII) is not None


def is_relative_path(text):
    parts = text.split("/")
    return (len(text) <= 1000 and re.fullmatch(r"[ -~]+", text) is not None and not re.search(r'["\\%$]', text)
            and not any(part in ("", ".", "..") or len(part) > 200 for part in parts))


def problem_with(key, value):
    """The reason why the installer would refuse this value, or nothing."""
    if not isinstance(value, str):
        return "is not a string"
    if key in NAMES and not is_name(value):
        return 'is not a name without control characters and without any of " & < > \\ %'
    if key in IDENTIFIERS and not is_identifier(value):
        return "is not an identifier such as com.example.Editor"
    if key in IDENTIFIERS and value.startswith("com.kelto."):
        return "is Kelto's own"
    if key == "ServerMarker" and not (value.startswith("/") and is_relative_path(value[1:])):
        return "is not a plain absolute path"
    if key in PATHS and key != "ServerMarker" and not is_relative_path(value):
        return "is not a plain relative path"
    return "is Kelto's own" if key in PATHS and value.startswith(KELTOS_PATHS) else None


def check(brand):
    required = ["ProductName", "Identifier", "DefaultsDomain"]
    if any(key in brand for key in SERVER_KEYS):
        required += SERVER_KEYS
    for key, value in brand.items():
        if key not in (*required, "Artwork"):
            raise Refusal(f"the key {key} is unknown")
        if problem := problem_with(key, value):
            raise Refusal(f"the value of {key} {problem}")
    for key in required:
        if key not in brand:
            raise Refusal(f"the key {key} is missing")
    files = {pathlib.PurePath(brand[key]).name for key in ("ServerProgram", "ServerDefinition") if key in brand}
    if "ServerLabel" in brand and len(files | {brand["ServerLabel"] + ".service"}) != 3:
        raise Refusal("the server's program, definition and unit have the same file name")


def read_brand(path):
    try:
        brand = plistlib.loads(path.read_bytes())
    except OSError as error:
        raise Refusal(error.strerror) from error
    except (plistlib.InvalidFileException, xml.parsers.expat.ExpatError, ValueError, TypeError, IndexError, LookupError,
            AttributeError, OverflowError) as error:
        raise Refusal("it is not a property list") from error
    if not isinstance(brand, dict):
        raise Refusal("it is not a dictionary")
    check(brand)
    return brand


# Texts.

def base_of_first_letter(name):
    return unicodedata.normalize("NFD", name)[0].lower()


def french(text, name):
    return re.sub(r"\b([Dd])e Kelto\b", r"\1’Kelto", text) if base_of_first_letter(name) in "aeiouœæ" else text


def catalan(text, name):
    return re.sub(r"\b([Ee])l Kelto\b", lambda found: "Ll"[found[1] == "e"] + "’Kelto", text) \
        if base_of_first_letter(name) in "aeiouh" else text


def hungarian(text, name):
    spoken_with_vowel = base_of_first_letter(name) in "aeiou5" or re.match(r"1(?!\d)", name)
    return re.sub(r"\b([Aa]) Kelto\b", r"\1z Kelto", text) if spoken_with_vowel else text


def finnish(text, name):
    """A name whose last sound is plain takes the endings itself, any other one has a word for "application" after it."""
    last = name[-1].lower()
    if last in "aou":
        return text
    if last in "äöy":
        return re.sub(r"\bKeltoa\b", "Keltoä", text)
    joint = " -" if " " in name else "-"
    return re.sub(r"\bKelto([an])\b", lambda found: "Kelto" + joint + {"a": "sovellusta", "n": "sovelluksen"}[found[1]], text)


def korean(text, name):
    """A particle has two forms, by the last sound. Where spelling does not tell, both are written, as is usual."""
    last = name[-1].lower()
    ends = (ord(last) - 0xAC00) % 28 > 0 if "가" <= last <= "힣" else False if last in "aiouy" else None
    for after_vowel, after_consonant in ("가이", "를을", "는은", "와과"):
        particle = {False: after_vowel, True: after_consonant, None: f"{after_consonant}({after_vowel})"}[ends]
        text = text.replace(f"Kelto{after_vowel}", f"Kelto{particle}")
    return text


def german(text, name):
    """A compound has hyphens all the way."""
    return text.replace("Kelto-", name.replace(" ", "-") + "-")


GRAMMAR = {"de": german, "fr": french, "ca": catalan, "hu": hungarian, "fi": finnish, "ko": korean}
WRITTEN_WITHOUT_BLANKS = ("ja", "ko", "zh", "th")


def branded_text(text, language, name):
    """A text about Kelto as one about the product of that name."""
    short = re.split("[-_]", language)[0]
    endings = set(re.findall(r"Kelto([^\W_]+)", text)) - ({"a", "n"} if short == "fi" else set())
    if endings and short not in WRITTEN_WITHOUT_BLANKS:
        raise Refusal(f"a text in the language {language} has an ending of Kelto that is not known here: {endings}")
    return GRAMMAR.get(short, lambda same, _: same)(text, name).replace("Kelto", name)


def branded_table(table, language, name):
    """A string table. Keys stay as they are."""
    def line_of(line):
        found = re.fullmatch(r'("(?:[^"\\]|\\.)*" = ")(.*)(";\n?)', line)
        return found[1] + branded_text(found[2], language, name) + found[3] if found else line.replace("Kelto", name)
    return "".join(map(line_of, table.splitlines(keepends=True)))


# The bundle.

def program_of(brand):
    """The file name of the installer's program: what of the product's name every system can have in a path."""
    return "".join(re.findall(r"[A-Za-z0-9]", brand["ProductName"])) + "Installer"


def write_list(path, value):
    path.write_bytes(plistlib.dumps(value, sort_keys=False))


def change_list(path, change):
    write_list(path, change(plistlib.loads(path.read_bytes())))


def brand_information(brand, information):
    return {**information, "CFBundleExecutable": program_of(brand), "CFBundleIdentifier": brand["Identifier"],
            "CFBundleName": f"{brand['ProductName']} Installer"}


def brand_texts(brand, resources):
    name = brand["ProductName"]
    for table in resources.glob("*.lproj/Localizable.strings"):
        text = table.read_bytes().decode("utf-8")
        table.write_bytes(branded_table(text, table.parent.stem, name).encode("utf-8"))
    server = brand.get("ServerName", f"{name} Library Server")
    change_list(resources / "UnlocalizedStrings.plist", lambda texts: [
        text.replace("Kelto Library Server", server).replace("Kelto", name) for text in texts])


def copy_artwork(folder, place):
    ours = {picture.name for picture in place.iterdir()}
    given = {picture.name for picture in folder.glob("*.png")}
    for name in sorted(given - ours):
        raise Refusal(f"there is no picture of the name {name} to be replaced")
    for name in sorted(each for each in ours - given if each.startswith(ICON)):
        raise Refusal(f"the folder {folder} has no {name}")
    for name in given:
        shutil.copyfile(folder / name, place / name)


def make_bundle(brand, folder, kelto, root, bundle):
    """`folder` is where the brand's file lies; the paths that links lead to are those below `root`."""
    if not (kelto / "Contents/Info.plist").is_file():
        raise Refusal(f"Kelto's installer is not at {kelto}")
    shutil.copytree(kelto, bundle, symlinks=True)
    contents, resources = bundle / "Contents", bundle / "Contents/Resources"
    (contents / "Linux" / PROGRAM).rename(contents / "Linux" / program_of(brand))
    change_list(contents / "Info.plist", lambda information: brand_information(brand, information))
    brand_texts(brand, resources)
    if "Artwork" in brand:
        copy_artwork(folder / brand["Artwork"], resources / "artwork")
    write_list(resources / "Branding.plist", {**brand, **({"Artwork": "artwork"} if "Artwork" in brand else {})})
    # The broker lends root's rights to Kelto's own tool, and to no copy.
    for tool in ("assistantTool", "kelto-manifest"):
        original = kelto / "Contents/Resources" / tool
        if not os.path.lexists(original):
            continue
        target = os.path.normpath(original.parent / os.readlink(original)) if original.is_symlink() else original
        (resources / tool).unlink()
        (resources / tool).symlink_to(pathlib.Path("/") / pathlib.Path(target).relative_to(root))


# The package.

def package_of(brand):
    return brand["Identifier"].lower().replace("_", "-")


def installed_bundle(brand):
    return pathlib.Path("usr/lib", package_of(brand), program_of(brand) + ".app")


def branded_entry(brand, entry):
    """The desktop entry."""
    def line_of(line):
        key, equals, value = line.partition("=")
        language = (re.findall(r"\[(.*)\]", key) or ["en"])[0]
        if key == "Exec":
            value = f"/{installed_bundle(brand)}/Contents/Linux/{program_of(brand)}"
        elif key == "Icon":
            value = brand["Identifier"]
        elif key == "StartupWMClass":
            value = program_of(brand)
        return key + equals + branded_text(value, language, brand["ProductName"])
    return "".join(line_of(line) + "\n" for line in entry.splitlines())


def branded_description(brand, description):
    """The description for software centres. The program is on no search path."""
    name = brand["ProductName"]
    description = re.sub(r"\s*<provides>.*</provides>", "", description, flags=re.DOTALL)
    return description.replace("com.kelto.installer", brand["Identifier"]).replace("Kelto", name)


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")
    path.chmod(0o644)


def make_tree(brand, folder, kelto, root, tree):
    bundle = tree / installed_bundle(brand)
    bundle.parent.mkdir(parents=True)
    make_bundle(brand, folder, kelto, root, bundle)
    share, identifier = root / "usr/share", brand["Identifier"]
    write(tree / f"usr/share/applications/{identifier}.desktop",
          branded_entry(brand, (share / "applications/com.kelto.installer.desktop").read_text(encoding="utf-8")))
    write(tree / f"usr/share/metainfo/{identifier}.metainfo.xml",
          branded_description(brand, (share / "metainfo/com.kelto.installer.metainfo.xml").read_text(encoding="utf-8")))
    for icon in (bundle / "Contents/Resources/artwork").glob(f"{ICON}-*.png"):
        size = icon.stem.removeprefix(f"{ICON}-")
        place = tree / f"usr/share/icons/hicolor/{size}x{size}/apps/{identifier}.png"
        place.parent.mkdir(parents=True)
        shutil.copyfile(icon, place)
    if "ServerLabel" in brand:
        # Root's own copy: without it the tool does not know the server.
        text = (bundle / "Contents/Resources/Branding.plist").read_text(encoding="utf-8")
        write(tree / f"etc/kelto/brands.d/{brand['DefaultsDomain']}.plist", text)


def make_deb(brand, folder, kelto, root, file, maintainer):
    with tempfile.TemporaryDirectory() as place:
        tree = pathlib.Path(place, "tree")
        make_tree(brand, folder, kelto, root, tree)
        version = plistlib.loads((kelto / "Contents/Info.plist").read_bytes())["CFBundleShortVersionString"]
        architecture = subprocess.run(["dpkg", "--print-architecture"], check=True, text=True, stdout=subprocess.PIPE).stdout
        name = brand["ProductName"]
        write(tree / "DEBIAN/control",
              f"Package: {package_of(brand)}\nVersion: {version}\nArchitecture: {architecture.strip()}\n"
              f"Maintainer: {maintainer}\nSection: admin\nPriority: optional\nDepends: kelto (>= {version})\n"
              f"Description: installer of {name}\n Installs, updates and removes {name}.\n")
        if (tree / "etc").exists():
            write(tree / "DEBIAN/conffiles", f"/etc/kelto/brands.d/{brand['DefaultsDomain']}.plist\n")
        for path in [tree, *tree.rglob("*")]:
            if path.is_dir() and not path.is_symlink():
                path.chmod(0o755)
        subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, file], check=True, stdout=subprocess.DEVNULL)


def make(arguments, root, kelto):
    """All of it, or nothing."""
    output, folder = arguments.output, arguments.branding.parent
    if os.path.lexists(output):
        raise Refusal(f"{output} is there already")
    brand = read_brand(arguments.branding)
    try:
        if arguments.what == "deb":
            make_deb(brand, folder, kelto, root, output, arguments.maintainer)
        else:
            {"bundle": make_bundle, "tree": make_tree}[arguments.what](brand, folder, kelto, root, output)
    except BaseException:
        shutil.rmtree(output, ignore_errors=True)
        raise


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("branding", type=pathlib.Path)
    parser.add_argument("what", choices=("bundle", "tree", "deb"))
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--root", type=pathlib.Path, default=pathlib.Path("/"))
    parser.add_argument("--kelto", type=pathlib.Path)
    parser.add_argument("--maintainer")
    arguments = parser.parse_args()
    if arguments.what == "deb" and not arguments.maintainer:
        parser.error("a package needs a maintainer")
    root = arguments.root.resolve()
    kelto = arguments.kelto.resolve() if arguments.kelto else root / KELTO
    try:
        make(arguments, root, kelto)
    except Refusal as refusal:
        print(f"{parser.prog}: {arguments.branding}: {refusal}", file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main())
