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


def pixels_in(world, **environment):
    """The pixels of a removal's wizard in an environment, but for the moving bar's rows, from below."""
    before = dict(world.desktop.environment)
    world.desktop.environment |= environment
    process = world.start_installer(protocol.trashPathArgument, world.road.installed)
    width, height, at = expect_face(world, process)
    window = wait_for("the wizard", lambda: world.desktop.windows(process))[0]
    check("it is cancelled", world.desktop.press(process, window["buttons"][0]))
    world.road.installer_gone(process)
    world.desktop.environment = before
    return [[at(x, row) for x in range(width)] for row in range(height) if row < 60 or row > height - 80]


@scenario("gui")
def face_in_chosen_language(world):
    """Letters have the forms of the language that was chosen, whatever language the fonts would follow by themselves."""
    chinese = pixels_in(world, LANGUAGE="zh_CN", LANG="C.UTF-8", FC_LANG="zh-cn")
    check("nothing else decides", pixels_in(world, LANGUAGE="zh_CN", LANG="C", FC_LANG="ja") == chinese)
    check("the language decides", pixels_in(world, LANGUAGE="ja", LANG="C", FC_LANG="ja") != chinese)


@scenario("gui")
def face_from_right_to_left(world):
    """In a language that is written from right to left the buttons are on the left."""
    button = (255, 255, 255)
    def has_button(rows, columns):
        return button in rows[28][columns]
    english_face, arabic = pixels_in(world, LANGUAGE="en", LANG="C"), pixels_in(world, LANGUAGE="ar", LANG="C")
    left, right = slice(0, 200), slice(260, 460)
    equal("buttons on the left and on the right in English",
          (has_button(english_face, left), has_button(english_face, right)), (False, True))
    equal("in Arabic", (has_button(arabic, left), has_button(arabic, right)), (True, False))
