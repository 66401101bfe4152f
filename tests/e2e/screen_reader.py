"""A real screen reader hears the wizard and its alerts: orca speaks through a speech service that writes every word down."""
import os
import shutil
import subprocess

import protocol
from desktop import wait_for
from world import Skip, equal, scenario, text_in

SPEECH_SERVICE = """AddModule "notes" "sd_generic" "notes.conf"
DefaultModule "notes"
LogLevel 1
AudioOutputMethod "libao"
DisableAutoSpawn
"""
# The speech service runs the command for each part of everything that is to be said.
NOTES = """GenericExecuteSynth "printf '%s\\\\n' '$DATA' >> {}"
GenericMaxChunkLength 5000
GenericLanguage "en" "en" "utf-8"
AddVoice "en" "MALE1" "nobody"
DefaultVoice "nobody"
"""


class ScreenReader:
    def __init__(self, world):
        self.desktop = world.desktop
        folder = world.folder / "speech"
        (folder / "modules").mkdir(parents=True)
        self.notes, socket = folder / "notes", folder / "socket"
        self.notes.touch()
        (folder / "speechd.conf").write_text(SPEECH_SERVICE)
        (folder / "modules/notes.conf").write_text(NOTES.format(self.notes))
        self.desktop.start("speech-dispatcher", [
            "speech-dispatcher", "--run-single", "--communication-method", "unix_socket", "--socket-path", socket,
            "--config-dir", folder, "--log-dir", self.desktop.logs, "--pid-file", folder / "pid"])
        wait_for("the speech service", socket.exists)
        self.desktop.environment["SPEECHD_ADDRESS"] = f"unix_socket:{socket}"
        settings = self.desktop.home / ".local/share/orca"
        settings.mkdir(parents=True)
        (settings / "orca-customizations.py").write_text("from orca import settings\nsettings.enableMouseReview = True\n")
        self.desktop.start("orca", ["orca"])
        self.expect("Screen reader on.")

    def said(self):
        return " ".join(self.notes.read_text().split())

    def forget(self):
        self.notes.write_text("")

    def expect(self, words):
        try:
            wait_for("the words", lambda: words in self.said(), 10)
        finally:
            print(f"expected: {words}\n   heard: {self.said()}", flush=True)

    def type(self, key, words):
        self.forget()
        self.desktop.ask("xdotool", "key", key)
        self.expect(words)

    def point_at(self, place, words):
        """A part that cannot have the keyboard is said when the pointer comes to it."""
        self.forget()
        self.desktop.ask("xdotool", "mousemove", *map(str, place))
        self.expect(words)


def start_screen_reader(world):
    for program in ("orca", "speech-dispatcher"):
        if not shutil.which(program):
            raise Skip(f"{program} is not installed; it is a large package that only this test needs (apt install orca)")
    if subprocess.run(["pgrep", "-u", str(os.getuid()), "-x", "orca"], stdout=subprocess.DEVNULL).returncode == 0:
        raise Skip("this user has a screen reader that runs already; orca does not start twice")
    return ScreenReader(world)


@scenario("slow", hears_pointer=True)
def screen_reader_on_wizard(world):
    """Headline and body are said when the wizard appears; the bar and the button when the user turns to them."""
    reader = start_screen_reader(world)
    title, body = text_in("en", "<ControllerUpdateWizard_Title>"), text_in("en", "<ControllerUpdateWizard_Installing>")
    process = world.start_waiting("update")
    reader.expect(f"Kelto Installer frame. {title} {body}")
    reader.point_at(world.desktop.windows(process)[0]["bars"][0], f"{title} progress bar.")
    reader.type("Tab", f"{text_in('en', '<Cancel>')} push button.")


@scenario("slow")
def screen_reader_on_alert(world):
    """Both texts of an alert are said once, also in a language without blanks, and then its button."""
    reader = start_screen_reader(world)
    for language in ("en", "ja"):
        world.desktop.environment["LANGUAGE"] = language
        headline, text = text_in(language, "<InstallerUnexpectedErrorSubtitle>"), text_in(language, "<InstallerUnexpectedErrorMessage>")
        reader.forget()
        process = world.start_installer(protocol.trashPathArgument, world.folder / "Nowhere.app")
        button = world.alert(process)[1][0]
        reader.expect(f"{button} push button.")
        equal("how many times the headline is said", reader.said().count(headline), 1)
        equal("how many times the text is said", reader.said().count(text), 1)
        world.desktop.press(process, button)
        world.road.installer_gone(process)
