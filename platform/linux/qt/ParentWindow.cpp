#include "platform/linux/qt/ParentWindow.h"

#include <xcb/xcb.h>
#include <xdg-foreign-unstable-v2.h>

#include <QEvent>
#include <QGuiApplication>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include "platform/linux/wayland/RequestQueue.h"
#include "platform/linux/wayland/Toplevel.h"

namespace platform::Linux {
namespace {

// Calls `action` once the window has the keyboard.
class OnceActive final : public QObject {
 public:
  OnceActive(QWindow& window, std::function<void()> action) : _action(std::move(action)) {
    window.installEventFilter(this);
  }

 private:
  bool eventFilter(QObject* /*window*/, QEvent* event) override {
    if (event->type() == QEvent::FocusIn && _action) std::exchange(_action, nullptr)();
    return false;
  }

  std::function<void()> _action;
};

constexpr const char* unknownWindow = "the display does not know it";
constexpr const char* otherDisplay = "it is on another display";

// nullptr on another display than an X server.
xcb_connection_t* x11Connection() {
  const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return QGuiApplication::platformName() == "xcb" && x11 != nullptr ? x11->connection() : nullptr;
}

// The root window is the parent of all, and a dialog of it would be one of the whole desktop.
bool isWindowOfAProgram(xcb_connection_t* connection, xcb_window_t window) {
  const std::unique_ptr<xcb_query_tree_reply_t, decltype(&std::free)> tree(
      xcb_query_tree_reply(connection, xcb_query_tree(connection, window), nullptr), std::free);
  return tree && tree->root != window;
}

// Returns once the server has done it, so that requests of other connections find it done.
void complete(xcb_connection_t* connection, xcb_void_cookie_t request) {
  std::free(xcb_request_check(connection, request));
}

}  // namespace

// The parent under Wayland. The compositor undoes the relationship with this object, or with the parent's window.
class ParentWindow::Imported {
 public:
  Imported(const Toplevel& dialog, const std::string& handle)
      : _queue(dialog.display), _importer(_queue.bind<zxdg_importer_v2>(zxdg_importer_v2_interface)) {
    if (!_importer) return;
    _window.reset(zxdg_importer_v2_import_toplevel(_importer.get(), handle.c_str()));
    static constexpr zxdg_imported_v2_listener listener{
        [](void* data, zxdg_imported_v2* /*window*/) { static_cast<Imported*>(data)->_isGone = true; }};
    zxdg_imported_v2_add_listener(_window.get(), &listener, this);
    zxdg_imported_v2_set_parent_of(_window.get(), dialog.surface);
    if (!_queue.waitForAnswers()) _isGone = true;
  }

  // nullptr if nothing is.
  [[nodiscard]] const char* problem() const {
    if (!_importer) return "this compositor has no windows of other programs as parents";
    return _isGone ? unknownWindow : nullptr;
  }

 private:
  struct Destroy {
    void operator()(zxdg_importer_v2* importer) const { zxdg_importer_v2_destroy(importer); }
    void operator()(zxdg_imported_v2* window) const { zxdg_imported_v2_destroy(window); }
  };
  RequestQueue _queue;
  std::unique_ptr<zxdg_importer_v2, Destroy> _importer;
  std::unique_ptr<zxdg_imported_v2, Destroy> _window;
  bool _isGone = false;
};

std::optional<protocol::ParentWindow> takeParentWindow(platform::SystemLog& log) {
  const char* value = std::getenv(protocol::parentWindowVariable);
  if (value == nullptr) return std::nullopt;
  auto name = protocol::parentWindowFromText(value);
  ::unsetenv(protocol::parentWindowVariable);
  if (!name) log.log(std::string(protocol::parentWindowVariable) + " is ignored: it does not name a window");
  return name;
}

ParentWindow::ParentWindow(std::optional<protocol::ParentWindow> name, platform::SystemLog& log)
    : _name(std::move(name)), _log(log) {}

ParentWindow::~ParentWindow() = default;

void ParentWindow::adopt(QWindow& dialog) {
  const auto name = std::exchange(_name, std::nullopt);
  if (!name) return;
  // A compositor places a dialog when it gets its first picture. A window manager would place it too, and not where it
  // belongs; it gives the keyboard to a window that it has placed.
  if (!name->waylandHandle.empty()) return tell(adoptOnWayland(dialog, name->waylandHandle));
  _untilActive =
      std::make_unique<OnceActive>(dialog, [this, &dialog, parent = name->x11Number] { tell(adoptOnX11(dialog, parent)); });
}

void ParentWindow::tell(const char* problem) {
  if (problem != nullptr) _log.log(std::string("The wizard is not a dialog of the application's window: ") + problem);
}

const char* ParentWindow::adoptOnWayland(QWindow& dialog, const std::string& handle) {
  const auto toplevel = toplevelOf(dialog);
  if (!toplevel) return otherDisplay;
  _imported = std::make_unique<Imported>(*toplevel, handle);
  return _imported->problem();
}

const char* ParentWindow::adoptOnX11(QWindow& dialog, std::uint32_t parent) {
  xcb_connection_t* connection = x11Connection();
  if (connection == nullptr) return otherDisplay;
  const auto own = static_cast<xcb_window_t>(dialog.winId());
  if (parent == own || !isWindowOfAProgram(connection, parent)) return unknownWindow;
  _dialog = &dialog;
  complete(connection, xcb_change_property_checked(connection, XCB_PROP_MODE_REPLACE, own, XCB_ATOM_WM_TRANSIENT_FOR,
                                                   XCB_ATOM_WINDOW, 32, 1, &parent));
  return nullptr;
}

void ParentWindow::letGo() {
  _imported.reset();
  _untilActive.reset();
  if (_dialog != nullptr)
    complete(x11Connection(), xcb_delete_property_checked(x11Connection(), static_cast<xcb_window_t>(_dialog->winId()),
                                                          XCB_ATOM_WM_TRANSIENT_FOR));
  _dialog = nullptr;
}

}  // namespace platform::Linux
