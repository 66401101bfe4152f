"""Where the wizard appears, and how: on more than one screen, and from its first moment on."""
import math
import re
import struct
import subprocess

import protocol
from desktop import wait_for
from road import PROJECT
from world import Skip, check, english, equal, scenario

# Two monitors side by side on one display of 1280x800 pixels; the second is lower and stands lower.
LEFT = (0, 0, 640, 800)
RIGHT = (640, 120, 640, 600)
WIDTH = 460


def make_monitors(world, primary):
    """Gives the display the two monitors, one of them the primary one."""
    for name, (left, top, width, height) in (("LEFT", LEFT), ("RIGHT", RIGHT)):
        star = "*" if (left, top, width, height) == primary else ""
        world.desktop.ask("xrandr", "--setmonitor", f"{star}{name}", f"{width}/169x{height}/211+{left}+{top}",
                          "screen" if name == "LEFT" else "none")
    listed = world.desktop.ask("xrandr", "--listmonitors")
    if "LEFT" not in listed:
        raise Skip("the display server has no monitors to divide (xrandr from x11-xserver-utils is needed)")
    equal("the monitors", len(re.findall(r"^ \d:", listed, re.MULTILINE)), 2)


def single(number):
    """A number as 32 bits hold it."""
    return struct.unpack("f", struct.pack("f", number))[0]


def expected_place(main_frame, height):
    """Where the wizard belongs over the controller's window, in the same coordinates."""
    left, bottom, width, around = main_frame
    return (left + math.floor(single((width - WIDTH) * 0.5)),
            math.floor(single((around - height) * 0.5)) + bottom + 6)


def expect_entry(world, process):
    """One window of the wizard's is in the list of windows, and it leads to the installer's desktop entry."""
    listed = re.findall(r"0x[0-9a-f]+", world.desktop.ask("xprop", "-root", "_NET_CLIENT_LIST"))
    own = [window for window in listed
           if world.desktop.ask("xprop", "-id", window, "_NET_WM_PID").split()[-1] == str(process)]
    equal("windows of the installer in the list", len(own), 1)
    entry = next((PROJECT / "packaging/desktop").glob("*.desktop"))
    wanted = re.search("^StartupWMClass=(.+)$", entry.read_text(encoding="utf-8"), re.MULTILINE)[1]
    equal("the window's class", world.desktop.ask("xprop", "-id", own[0], "WM_CLASS").split('"')[-2], wanted)


def expect_place(world, primary, main_frame):
    """The wizard stands where it belongs when the controller's window has this frame; counted from the bottom-left corner of
    the primary monitor."""
    frame = "r: {{%s, %s}, {%s, %s}}" % main_frame
    process = world.start_installer(protocol.trashPathArgument, world.road.installed, protocol.mainFrameArgument, frame)
    left, bottom = expected_place(main_frame, 206)
    expected = (primary[0] + left, primary[1] + primary[3] - bottom - 206, WIDTH, 206)
    equal("the wizard on the display", world.desktop.frame_of(world.desktop.window_of(process)), expected)
    expect_entry(world, process)
    check("it is cancelled", world.desktop.press(process, english("<Cancel>")))
    world.road.installer_gone(process)
    return expected


def is_within(frame, monitor):
    return (monitor[0] <= frame[0] and monitor[1] <= frame[1] and frame[0] + frame[2] <= monitor[0] + monitor[2] and
            frame[1] + frame[3] <= monitor[1] + monitor[3])


@scenario("gui")
def wizard_on_second_screen(world):
    """Over a controller's window on the screen that is not the primary one the wizard stands there, to the pixel."""
    make_monitors(world, LEFT)
    place = expect_place(world, LEFT, (660, 151, 601, 401))
    check(f"{place} is on the right screen", is_within(place, RIGHT))
    place = expect_place(world, LEFT, (100, 100, 500, 600))
    check(f"{place} is on the left screen", is_within(place, LEFT))


@scenario("gui")
def wizard_left_of_primary_screen(world):
    """On a screen left of the primary one and reaching below it, coordinates are negative."""
    make_monitors(world, RIGHT)
    place = expect_place(world, RIGHT, (-620, -70, 581, 301))
    check(f"{place} is on the left screen", is_within(place, LEFT))


@scenario("gui")
def wizard_without_frame_on_primary_screen(world):
    """Without a frame the wizard is in the middle of the primary screen, and its alert over it."""
    make_monitors(world, RIGHT)
    process = world.start_installer(protocol.trashPathArgument, world.folder / "Nowhere.app")
    def frames():
        numbers = world.desktop.ask("xdotool", "search", "--onlyvisible", "--pid", str(process)).split()
        return [world.desktop.frame_of(number) for number in numbers] if len(numbers) == 2 else None
    both = wait_for("wizard and alert", frames)
    wizard, alert = sorted(both, key=lambda frame: frame[2:] != (WIDTH, 206))
    equal("the wizard's middle", (wizard[0] + WIDTH // 2, wizard[1] + 103), (640 + 320, 120 + 300))
    check(f"the alert {alert} is on the right screen", is_within(alert, RIGHT))


class Events:
    """Events of the display server about its top-level windows: "MapNotify" and so on, window and geometry."""

    def __init__(self, desktop):
        self.desktop = desktop
        self.log = desktop.start("xev", ["xev", "-root", "-event", "substructure"])
        wait_for("word of a window", self._hears_of_a_window)

    def _hears_of_a_window(self):
        other = self.desktop.start("other-window", ["xev", "-geometry", "1x1+0+0"])
        wait_for("another window", lambda: self.desktop.ask("xdotool", "search", "--name", "^Event Tester$"))
        other.process.kill()
        other.process.wait()
        return "Notify" in self.log.text()

    def of(self, window):
        found = []
        for event in re.split(r"\n\n+", self.log.text()):
            kind = event.strip().split(" ", 1)[0]
            number = re.search(r"window (0x[0-9a-f]+)(?:, override|, \(|, from|, parent|\s*$)", event)
            place = re.search(r"\((-?\d+),(-?\d+)\), width (\d+), height (\d+)", event)
            if number and int(number.group(1), 16) == window:
                found.append((kind, tuple(map(int, place.groups())) if place else None))
        return found


def outermost(desktop, window):
    """The ancestor of a window right below the root: the window manager's frame, or the window itself."""
    while True:
        tree = desktop.ask("xwininfo", "-id", str(window), "-tree")
        parent = re.search(r"Parent window id: (0x[0-9a-f]+)(.*)", tree)
        if "(the root window)" in parent.group(2):
            return int(str(window), 0)
        window = parent.group(1)


def is_face(pixel):
    """A pixel as the wizard's face has them: neither the screen behind it nor nothing painted."""
    red, green, blue = pixel
    return max(pixel) - min(pixel) < 24 and 200 <= red <= 255


class Screen:
    """Every picture that a part of the screen shows, in order."""

    def __init__(self, world, left, top, width, height):
        self.size = (width, height)
        self.folder = world.folder / "pictures-of-screen"
        self.folder.mkdir()
        self.program = world.desktop.start("screen-watch", [world.build / "bin/screen_watch", left, top, width, height,
                                                            self.folder], stdin=subprocess.PIPE)
        wait_for("the first picture", lambda: self.program.says("ready"))

    def pictures(self):
        self.program.process.stdin.close()
        self.program.process.wait()
        files = sorted(self.folder.glob("*.ppm"), key=lambda path: int(path.stem))
        return [path.read_bytes()[-3 * self.size[0] * self.size[1]:] for path in files]


@scenario("gui")
def wizard_appears_at_once(world):
    """The wizard's first picture on the screen is its whole face at its final place: it neither jumps nor flashes."""
    world.desktop.ask("xsetroot", "-solid", "#c00060")
    events = Events(world.desktop)
    left, bottom = 300, 303
    screen = Screen(world, left, 800 - bottom - 206, WIDTH, 206)
    process = world.start_installer(protocol.trashPathArgument, world.road.installed, protocol.mainFrameArgument,
                                    "r: {{200, 100}, {660, 600}}")
    number = world.desktop.window_of(process)
    wait_for("the painted wizard", lambda: len(screen.program.text().splitlines()) > 10)
    expected = (left, 800 - bottom - 206, WIDTH, 206)
    equal("the wizard's place", world.desktop.frame_of(number), expected)
    told = events.of(outermost(world.desktop, number))
    kinds = [kind for kind, _ in told]
    check(f"it is mapped once ({kinds})", kinds.count("MapNotify") == 1 and kinds.count("UnmapNotify") == 0)
    places = [place for _, place in told if place]
    mapped = kinds.index("MapNotify")
    before = [place for kind, place in told[:mapped] if place]
    equal("its place when it is mapped", before[-1], expected)
    equal("its places from then on", {place for _, place in told[mapped:] if place} - {expected}, set())
    check(f"it is told of at all ({places})", places)
    expect_only_whole_pictures(screen.pictures())


def expect_only_whole_pictures(pictures):
    """Nothing of the wizard, then all of it but the moving bar."""
    def at(picture, x, row):
        start = 3 * ((206 - 1 - row) * WIDTH + x)
        return tuple(picture[start:start + 3])
    behind = pictures[0]
    check("the screen behind it is not a face", not is_face(at(behind, 10, 20)))
    shown = [picture for picture in pictures if picture != behind]
    check(f"it was seen in motion ({len(shown)} pictures)", len(shown) > 5)
    last = shown[-1]
    bar = rows_that_change(shown[-6:])
    check(f"what moves is a bar ({bar})", bar and max(bar) - min(bar) < 12)
    for number, picture in enumerate(shown):
        for row in range(206):
            if row in bar:
                continue
            line = slice(3 * (205 - row) * WIDTH, 3 * (206 - row) * WIDTH)
            equal(f"row {row} of picture {number} of the wizard, compared with the last", picture[line] == last[line], True)


def rows_that_change(pictures):
    """The rows, from below, that are not the same in all of these."""
    changed = []
    for row in range(206):
        line = slice(3 * (205 - row) * WIDTH, 3 * (206 - row) * WIDTH)
        if len({picture[line] for picture in pictures}) > 1:
            changed.append(row)
    return changed
