#include "platform/linux/qt/Display.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <xcb/xcb.h>

#include <QDir>
#include <QGuiApplication>
#include <QLibraryInfo>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "posix/Descriptor.h"

namespace platform::Linux::Display {
namespace {

std::string adviceFor(const std::string& program) {
  return "Start it from a desktop session, or set DISPLAY to a display that this user may use (for example: xvfb-run " +
         program + " ...).";
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

bool canReachX11() {
  xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
  const bool reached = xcb_connection_has_error(connection) == 0;
  xcb_disconnect(connection);
  return reached;
}

bool isWaylandSession() { return !environment("WAYLAND_DISPLAY").empty() || !environment("WAYLAND_SOCKET").empty(); }

// The compositor's name and socket, as its client library finds them.
std::string waylandName() {
  const auto name = environment("WAYLAND_DISPLAY");
  return name.empty() ? "wayland-0" : name;
}
std::string waylandSocket() {
  const auto name = waylandName();
  return name.starts_with('/') ? name : environment("XDG_RUNTIME_DIR") + "/" + name;
}

bool canReachWayland() {
  if (!environment("WAYLAND_SOCKET").empty()) return true;
  const std::string path = waylandSocket();
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof address.sun_path) return false;
  path.copy(static_cast<char*>(address.sun_path), path.size());
  const posix::Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool hasWaylandPlugin(const std::string& pluginFolder) {
  const QDir plugins(QString::fromStdString(pluginFolder + "/platforms"));
  return !plugins.entryList({"libqwayland*.so"}, QDir::Files).isEmpty();
}

std::string problemOnWayland(const std::string& program, const std::string& pluginFolder) {
  if (!canReachWayland())
    return "the Wayland display \"" + waylandName() + "\" cannot be opened: nothing listens at " + waylandSocket() + ". " +
           adviceFor(program);
  if (!hasWaylandPlugin(pluginFolder))
    return "this is a Wayland session, and Qt's plug-in for it is missing. Install the package qt6-wayland.";
  return {};
}

std::string problemWithoutDisplay(const std::string& program) {
  const auto display = environment("DISPLAY");
  const std::string what =
      display.empty() ? "there is no display (DISPLAY is not set)" : "the display \"" + display + "\" cannot be opened";
  return what + ". " + adviceFor(program);
}

}  // namespace

std::string qtPluginFolder() { return QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString(); }

Choice choose(const std::string& program, bool belongsOnWayland, const std::string& pluginFolder) {
  const auto asked = environment("QT_QPA_PLATFORM");
  // Of a list Qt takes the first that works.
  const bool isWaylandAsked = asked.starts_with("wayland") && asked.find(';') == std::string::npos;
  if (!asked.empty() && asked != "xcb")
    return {{},
            "QT_QPA_PLATFORM=" + asked + " decides how the window is shown",
            isWaylandAsked ? problemOnWayland(program, pluginFolder) : ""};
  if (asked.empty() && belongsOnWayland && problemOnWayland(program, pluginFolder).empty())
    return {"wayland", "Wayland: the window is a dialog of the application's", {}};
  if (!environment("DISPLAY").empty() && canReachX11()) {
    return {"xcb", isWaylandSession() ? "Wayland session: using XWayland, where a window can be placed" : "", {}};
  }
  if (asked.empty() && isWaylandSession())
    return {"wayland", "Wayland without XWayland: the compositor decides where the window appears",
            problemOnWayland(program, pluginFolder)};
  return {{}, {}, problemWithoutDisplay(program)};
}

StartUpEnvironment::StartUpEnvironment(const std::string& qtPlatform, const std::string& fontLanguage) {
  if (!fontLanguage.empty()) set("FC_LANG", fontLanguage.c_str());
  if (!qtPlatform.empty()) set("QT_QPA_PLATFORM", qtPlatform.c_str());
  // The window looks the same on every desktop, so no desktop's theme (and its toolkit) is loaded; nothing is drawn with
  // OpenGL; nothing is restored with a session.
  set("QT_QPA_PLATFORMTHEME", "generic");
  set("QT_XCB_GL_INTEGRATION", "none");
  set("SESSION_MANAGER", nullptr);
  keep("DESKTOP_STARTUP_ID");
  keep("XDG_ACTIVATION_TOKEN");
}

StartUpEnvironment::~StartUpEnvironment() {
  for (const auto& [name, value] : _before) {
    if (value)
      setenv(name.c_str(), value->c_str(), 1);
    else
      unsetenv(name.c_str());
  }
}

void StartUpEnvironment::keep(const char* name) {
  const char* before = std::getenv(name);
  _before.emplace_back(name, before == nullptr ? std::nullopt : std::optional<std::string>(before));
}

void StartUpEnvironment::set(const char* name, const char* value) {
  keep(name);
  if (value == nullptr)
    unsetenv(name);
  else
    setenv(name, value, 1);
}

bool composesWindows() {
  // Other platforms than "xcb" may offer the interface too, without a connection behind it.
  if (QGuiApplication::platformName() != "xcb") return true;
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (x11 == nullptr) return true;
  xcb_connection_t* connection = x11->connection();
  constexpr std::string_view owner = "_NET_WM_CM_S0";
  const auto question = xcb_intern_atom(connection, 1, static_cast<std::uint16_t>(owner.size()), owner.data());
  using Atom = std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)>;
  const Atom atom(xcb_intern_atom_reply(connection, question, nullptr), std::free);
  if (!atom || atom->atom == XCB_ATOM_NONE) return false;
  using Owner = std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)>;
  const Owner selection(xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr),
                        std::free);
  return selection && selection->owner != XCB_WINDOW_NONE;
}

}  // namespace platform::Linux::Display
