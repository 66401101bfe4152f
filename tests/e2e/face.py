"""The looks of the running installer, to the eye and to assistive tools."""
import protocol
from desktop import wait_for
from world import check, english, equal, scenario

FOOTER, LOWER_HAIRLINE, UPPER_HAIRLINE = 214, 232, 171


def pixels_of(world, window):
    """The pixels of a window on the screen: width, height and a function from x and the height above its bottom to a colour."""
    left, top, width, height = world.desktop.frame_of(window)
    path = world.folder / "face.ppm"
    world.desktop.ask("import", "-silent", "-window", "root", "-depth", "8", "-crop", f"{width}x{height}+{left}+{top}",
                      "+repage", str(path))
    header, size, _, data = path.read_bytes().split(b"\n", 3)
    equal("the picture's kind and size", (header, size), (b"P6", f"{width} {height}".encode()))

    def at(x, row):
        start = 3 * ((height - 1 - row) * width + x)
        return tuple(data[start:start + 3])
    return width, height, at


def grey(value):
    return (value, value, value)


def expect_face(world, process):
    """The bands that every face has; its pixels."""
    window = world.desktop.window_of(process)
    wait_for("the painted footer", lambda: pixels_of(world, window)[2](6, 20) == grey(FOOTER))
    width, height, at = pixels_of(world, window)
    for x in (8, width // 3):
        for row in (1, 57):
            equal(f"the footer at {x}, {row}", at(x, row), grey(FOOTER))
        equal("the lower hairline", at(x, 58), grey(LOWER_HAIRLINE))
        equal("the upper hairline", at(x, 59), grey(UPPER_HAIRLINE))
    top, bottom = at(10, height - 4)[0], at(10, 61)[0]
    check(f"the content goes from light ({top}) to darker ({bottom})", top > bottom + 10 and top > 228)
    return width, height, at


def blooms(width, at):
    """Whether the corner at the bottom right of the content is lit."""
    return at(width - 6, 66)[0] > at(10, 66)[0] + 15


@scenario("gui")
def face_with_bloom(world):
    """The window of an update has gradient, dots and bloom."""
    width, height, at = expect_face(world, world.start("update"))
    equal("the height", height, 320)
    check("the bloom is there", blooms(width, at))


@scenario("gui")
def face_without_bloom(world):
    """The low window of a removal has no bloom."""
    width, height, at = expect_face(world, world.start("uninstall"))
    equal("the height", height, 206)
    check("there is no bloom", not blooms(width, at))


@scenario("gui")
def face_told(world):
    """Assistive tools hear every element of an update by role and name."""
    installer = world.start("update")
    window = wait_for("the wizard", lambda: world.desktop.windows(installer))[0]
    equal("the window's name", window["name"], "Kelto Installer")
    title = english("<ControllerUpdateWizard_Title>")
    equal("the elements", window["elements"],
          [["label", title], ["label", english("<ControllerUpdateWizard_Installing>")], ["progress bar", title],
           ["push button", english("<Cancel>")], ["push button", english("<Next>")]])


DARK = """[Colors:{}]
BackgroundNormal=32,35,38
BackgroundAlternate=40,44,48
ForegroundNormal=239,240,241
"""


def prefer_dark(world):
    """The desktop asks for dark colours in every way that it has."""
    settings = world.desktop.home / ".config"
    settings.mkdir(exist_ok=True)
    (settings / "kdeglobals").write_text("".join(DARK.format(group) for group in ("Window", "View", "Button", "Tooltip")))
    world.desktop.environment |= {"XDG_CURRENT_DESKTOP": "KDE", "KDE_FULL_SESSION": "true", "KDE_SESSION_VERSION": "5",
                                  "QT_QPA_PLATFORMTHEME": "kde", "QT_STYLE_OVERRIDE": "windows", "GTK_THEME": "Adwaita:dark"}


def rows_of_face(world):
    """The wizard on the screen, as rows of pixels from below."""
    process = world.start_installer(protocol.trashPathArgument, world.road.installed)
    width, height, at = expect_face(world, process)
    rows = [[at(x, row) for x in range(width)] for row in range(height)]
    check("it is cancelled", world.desktop.press(process, english("<Cancel>")))
    world.road.installer_gone(process)
    return rows


@scenario("gui")
def face_on_dark_desktop(world):
    """On a desktop that prefers dark colours the installer looks as it does elsewhere, but for its moving bar."""
    ordinary = rows_of_face(world)
    prefer_dark(world)
    dark = rows_of_face(world)
    different = [row for row, pixels in enumerate(ordinary) if pixels != dark[row]]
    check(f"only a bar's rows differ ({different})", not different or max(different) - min(different) < 8)
