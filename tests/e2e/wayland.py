"""The whole update in a Wayland session, with and without an X server in it."""
import re
import shutil

import demonstration
import protocol
import sdk
from desktop import wait_for
from screens import WIDTH, expected_place
from world import Skip, arguments_of, check, equal, scenario


def leave_x(world):
    """The programs that are started from now on do not find the X server."""
    for key in ("DISPLAY", "XAUTHORITY", "QT_QPA_PLATFORM"):
        world.desktop.environment.pop(key)


def start_compositor(world, *options):
    """A compositor without a screen; the programs that are started from now on find no other display."""
    if not shutil.which("weston"):
        raise Skip("weston is not installed")
    desktop, name = world.desktop, "wayland-kelto"
    leave_x(world)
    compositor = desktop.start("weston", ["weston", "--backend=headless-backend.so", "--use-pixman", "--width=1280", "--height=800",
                                          f"--socket={name}", "--idle-time=0", "--debug", *options])
    wait_for("the compositor", (desktop.runtime / name).exists)
    desktop.environment["WAYLAND_DISPLAY"] = name
    return compositor


def start_x(world):
    """A compositor with an X server; the server's display."""
    if not shutil.which("Xwayland"):
        raise Skip("xwayland is not installed")
    compositor = start_compositor(world, "--xwayland")
    return wait_for("the X server", lambda: re.search(r"listening on display (:\d+)", compositor.text()))[1]


def find_windows_by_accessibility(desktop):
    """Nobody can list the windows of a Wayland session from outside, but assistive tools see them."""
    desktop.window_of = lambda process: next(iter(desktop.windows(process)), None)


def expect_picture(world):
    """The compositor shows more than its background."""
    folder = world.desktop.pictures
    def picture():
        world.desktop.start("screenshooter", ["/usr/bin/env", "-C", folder, "weston-screenshooter"]).process.wait(10)
        for found in folder.glob("wayland-screenshot-*.png"):
            if int(world.desktop.ask("identify", "-format", "%k", str(found)) or 0) > 300:
                return found
            found.unlink()
        return None
    return wait_for("a picture", picture)


@scenario("gui")
def update_on_wayland(world):
    """Without an X server the installer is a client of the compositor, which puts the window where it likes."""
    start_compositor(world)
    find_windows_by_accessibility(world.desktop)
    world.desktop.environment["WAYLAND_DEBUG"] = "client"
    installer = world.start_waiting("update")
    check("the controller names no frame", protocol.mainFrameArgument not in arguments_of(installer))
    expect_picture(world)
    world.hand_over()
    world.expect_update_ends(installer)
    said = world.log_of("controller-1")
    check("the log says where the window appears", "Wayland without XWayland" in said)
    check("the window belongs to the installer's desktop entry", 'set_app_id("com.kelto.installer")' in said)


@scenario("gui")
def update_on_wayland_with_x(world):
    """With an X server beside the compositor the wizard is where it belongs."""
    world.desktop.environment |= {"DISPLAY": start_x(world), "QT_QPA_PLATFORM": "xcb"}
    installer = world.start_waiting("update")
    expected = (*expected_place(frame_argument(arguments_of(installer)), 320), WIDTH, 320)
    wait_for("the wizard at its place", lambda: world.frame_of_wizard(installer) == expected)
    world.hand_over()
    world.expect_update_ends(installer)
    check("the log says so", "Wayland session: using XWayland" in world.log_of("controller-1"))


def frame_argument(arguments):
    text = arguments[arguments.index(protocol.mainFrameArgument) + 1]
    return [float(number) for number in re.findall(r"-?[\d.]+", text)]


@scenario("gui")
def demo_in_a_wayland_session(world):
    """The demonstration takes pictures of the whole screen, which shows nothing of a Wayland session."""
    number = start_x(world)
    session = world.desktop.environment
    process = demonstration.start(world, "update", DISPLAY=number, WAYLAND_DISPLAY=session["WAYLAND_DISPLAY"],
                                  XDG_RUNTIME_DIR=session["XDG_RUNTIME_DIR"])
    output, errors = process.communicate(timeout=60)
    equal("the exit status", (process.returncode, errors), (0, ""))
    stages = ["the desktop is up: a display", *demonstration.STAGES[1:], *demonstration.ENDS["update"]]
    demonstration.expect_stages(output, stages)


@scenario("gui")
def sdk_qt_on_wayland(world):
    """A Qt application that links the controller library updates itself as a client of the compositor."""
    start_compositor(world)
    find_windows_by_accessibility(world.desktop)
    sdk.update(world, world.build / "bin/kelto-example-qt")
    sdk.expect_resumed(world)
