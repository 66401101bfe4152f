#include "platform/linux/CloseWindows.h"

#include <unistd.h>
#include <xcb/xcb.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform::Linux {

namespace {

constexpr std::uint32_t longestProperty = 16384;  // in units of four bytes
constexpr std::uint32_t fromThePersonsTool = 2;   // a request of the user's, not of the window's own program

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, FreeReply>;

// A connection to the display, with the few questions asked here. A window that is gone has empty properties.
class Display {
 public:
  Display() : _connection(xcb_connect(nullptr, nullptr)) {}
  ~Display() { xcb_disconnect(_connection); }
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  [[nodiscard]] bool isOpen() const { return xcb_connection_has_error(_connection) == 0; }

  [[nodiscard]] std::vector<xcb_window_t> roots() const {
    std::vector<xcb_window_t> windows;
    for (auto screen = xcb_setup_roots_iterator(xcb_get_setup(_connection)); screen.rem > 0; xcb_screen_next(&screen))
      windows.push_back(screen.data->root);
    return windows;
  }

  [[nodiscard]] std::vector<std::uint32_t> numbers(xcb_window_t window, std::string_view name) const {
    const auto property = read(window, name);
    if (!property || property->format != 32) return {};
    const auto* values = static_cast<const std::uint32_t*>(xcb_get_property_value(property.get()));
    return {values, values + xcb_get_property_value_length(property.get()) / 4};
  }

  [[nodiscard]] std::string text(xcb_window_t window, std::string_view name) const {
    const auto property = read(window, name);
    if (!property || property->format != 8) return {};
    const auto* bytes = static_cast<const char*>(xcb_get_property_value(property.get()));
    return {bytes, static_cast<std::size_t>(xcb_get_property_value_length(property.get()))};
  }

  // True when the display has taken the request.
  [[nodiscard]] bool requestClosing(xcb_window_t root, xcb_window_t window) const {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom("_NET_CLOSE_WINDOW");
    event.data.data32[0] = XCB_CURRENT_TIME;
    event.data.data32[1] = fromThePersonsTool;
    const auto cookie = xcb_send_event_checked(_connection, 0, root,
                                               XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                                               reinterpret_cast<const char*>(&event));
    return !Reply<xcb_generic_error_t>(xcb_request_check(_connection, cookie)) && isOpen();
  }

 private:
  [[nodiscard]] xcb_atom_t atom(std::string_view name) const {
    const auto cookie = xcb_intern_atom(_connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(_connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  }

  [[nodiscard]] Reply<xcb_get_property_reply_t> read(xcb_window_t window, std::string_view name) const {
    const auto cookie = xcb_get_property(_connection, 0, window, atom(name), XCB_ATOM_ANY, 0, longestProperty);
    return Reply<xcb_get_property_reply_t>(xcb_get_property_reply(_connection, cookie, nullptr));
  }

  xcb_connection_t* _connection;
};

// A window manager leaves its lists behind when it dies; one that lives also keeps a window that names itself.
bool hasWindowManager(const Display& display, xcb_window_t root) {
  const auto check = display.numbers(root, "_NET_SUPPORTING_WM_CHECK");
  return !check.empty() && display.numbers(check[0], "_NET_SUPPORTING_WM_CHECK") == check;
}

std::string machineName() {
  char name[HOST_NAME_MAX + 1] = {};
  return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

// A window may come from another machine, where the same number is another process.
bool isWindowOf(const Display& display, xcb_window_t window, pid_t process) {
  if (display.numbers(window, "_NET_WM_PID") != std::vector{static_cast<std::uint32_t>(process)}) return false;
  const std::string machine = display.text(window, "WM_CLIENT_MACHINE");
  return machine.empty() || machine == machineName();
}

}  // namespace

bool closeWindows(pid_t process) {
  const Display display;
  if (!display.isOpen()) return false;
  bool isAsked = false;
  for (const auto root : display.roots()) {
    if (!hasWindowManager(display, root)) continue;
    for (const auto window : display.numbers(root, "_NET_CLIENT_LIST"))
      if (isWindowOf(display, window, process) && display.requestClosing(root, window)) isAsked = true;
  }
  return isAsked;
}

}  // namespace platform::Linux
