#include "platform/linux/CloseWindows.h"

#include <unistd.h>
#include <xcb/res.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::Linux {

namespace {

constexpr std::uint32_t longestProperty = 16384;  // in units of four bytes
constexpr std::uint32_t fromThePersonsTool = 2;   // a request of the user's, not of the window's own program
constexpr std::uint32_t isIconified = 3;          // in WM_STATE
constexpr int deepestWindow = 3;                  // below the root: a window manager's frames, then the program's window

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

  [[nodiscard]] std::vector<xcb_window_t> children(xcb_window_t window) const {
    const Reply<xcb_query_tree_reply_t> reply(
        xcb_query_tree_reply(_connection, xcb_query_tree(_connection, window), nullptr));
    if (!reply) return {};
    const auto* windows = xcb_query_tree_children(reply.get());
    return {windows, windows + xcb_query_tree_children_length(reply.get())};
  }

  [[nodiscard]] bool isOnScreen(xcb_window_t window) const {
    const auto cookie = xcb_get_window_attributes(_connection, window);
    const Reply<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(_connection, cookie, nullptr));
    return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE && reply->override_redirect == 0;
  }

  // The process that made the window, as the display server knows it; nothing when it does not, or when the process is on
  // another machine.
  [[nodiscard]] std::optional<pid_t> maker(xcb_window_t window) const {
    const auto* extension = xcb_get_extension_data(_connection, &xcb_res_id);
    if (extension == nullptr || extension->present == 0) return std::nullopt;
    const xcb_res_client_id_spec_t question{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const auto cookie = xcb_res_query_client_ids(_connection, 1, &question);
    const Reply<xcb_res_query_client_ids_reply_t> reply(xcb_res_query_client_ids_reply(_connection, cookie, nullptr));
    if (!reply) return std::nullopt;
    for (auto each = xcb_res_query_client_ids_ids_iterator(reply.get()); each.rem > 0; xcb_res_client_id_value_next(&each))
      if (each.data->spec.mask == XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID && each.data->length >= 4)
        return static_cast<pid_t>(*xcb_res_client_id_value_value(each.data));
    return std::nullopt;
  }

  // True when the display has taken the message.
  [[nodiscard]] bool send(xcb_window_t receiver, std::uint32_t events, xcb_window_t about, std::string_view type,
                          std::array<std::uint32_t, 3> values) const {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = about;
    event.type = atom(type);
    std::copy(values.begin(), values.end(), event.data.data32);
    const auto cookie = xcb_send_event_checked(_connection, 0, receiver, events, reinterpret_cast<const char*>(&event));
    return !Reply<xcb_generic_error_t>(xcb_request_check(_connection, cookie)) && isOpen();
  }

  void raise(xcb_window_t window) const {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    const auto cookie = xcb_configure_window_checked(_connection, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    const Reply<xcb_generic_error_t> error(xcb_request_check(_connection, cookie));
  }

  [[nodiscard]] xcb_atom_t atom(std::string_view name) const {
    const auto cookie = xcb_intern_atom(_connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(_connection, cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  }

 private:
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

// Display servers without that extension leave what the window says of itself. It may come from another machine, where the
// same number is another process.
bool isWindowOf(const Display& display, xcb_window_t window, pid_t process) {
  if (const auto maker = display.maker(window)) return *maker == process;
  if (display.numbers(window, "_NET_WM_PID") != std::vector{static_cast<std::uint32_t>(process)}) return false;
  const std::string machine = display.text(window, "WM_CLIENT_MACHINE");
  return machine.empty() || machine == machineName();
}

// A window that does not offer this would be closed by ending its program on the spot.
bool canBeClosed(const Display& display, xcb_window_t window) {
  const auto protocols = display.numbers(window, "WM_PROTOCOLS");
  return std::find(protocols.begin(), protocols.end(), display.atom("WM_DELETE_WINDOW")) != protocols.end();
}

bool isShown(const Display& display, xcb_window_t window) {
  const auto state = display.numbers(window, "WM_STATE");
  return display.isOnScreen(window) || (!state.empty() && state[0] == isIconified);
}

void addShownWindows(const Display& display, xcb_window_t parent, int depth, std::vector<xcb_window_t>& windows) {
  for (const auto window : display.children(parent)) {
    if (canBeClosed(display, window) && isShown(display, window))
      windows.push_back(window);
    else if (depth > 1)
      addShownWindows(display, window, depth - 1, windows);
  }
}

// The windows that can be closed, from the lowest to the topmost: those in the window manager's list, or where there is no
// such manager those that are found on the screen.
std::vector<xcb_window_t> closableWindows(const Display& display, xcb_window_t root) {
  std::vector<xcb_window_t> windows;
  if (!hasWindowManager(display, root)) addShownWindows(display, root, deepestWindow, windows);
  for (const auto* list : {"_NET_CLIENT_LIST_STACKING", "_NET_CLIENT_LIST"})
    if (windows.empty() && hasWindowManager(display, root)) windows = display.numbers(root, list);
  std::erase_if(windows, [&](xcb_window_t window) { return !canBeClosed(display, window); });
  return windows;
}

std::vector<xcb_window_t> windowsOf(const Display& display, xcb_window_t root, pid_t process) {
  auto windows = closableWindows(display, root);
  std::erase_if(windows, [&](xcb_window_t window) { return !isWindowOf(display, window, process); });
  return windows;
}

// False when there is no window manager that does such things.
bool askManager(const Display& display, xcb_window_t root, xcb_window_t window, std::string_view what,
                std::array<std::uint32_t, 3> values) {
  constexpr std::uint32_t toTheManager = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT;
  const auto known = display.numbers(root, "_NET_SUPPORTED");
  return hasWindowManager(display, root) && std::ranges::find(known, display.atom(what)) != known.end() &&
         display.send(root, toTheManager, window, what, values);
}

void raise(const Display& display, xcb_window_t root, xcb_window_t window) {
  if (!askManager(display, root, window, "_NET_RESTACK_WINDOW",
                  {fromThePersonsTool, XCB_WINDOW_NONE, XCB_STACK_MODE_ABOVE}))
    display.raise(window);
}

void activate(const Display& display, xcb_window_t root, xcb_window_t window) {
  if (!askManager(display, root, window, "_NET_ACTIVE_WINDOW", {fromThePersonsTool, XCB_CURRENT_TIME}))
    display.raise(window);
}

struct Shown {
  std::vector<xcb_window_t> windows;  // from the lowest to the topmost
  std::size_t hidden = 0;             // the number of them, from the lowest, that are below a window of this process
};

Shown shownBy(const Display& display, xcb_window_t root, const std::vector<pid_t>& processes) {
  Shown shown;
  for (const auto window : closableWindows(display, root)) {
    const auto isMadeBy = [&](pid_t process) { return isWindowOf(display, window, process); };
    if (!display.isOnScreen(window)) continue;
    if (std::ranges::any_of(processes, isMadeBy))
      shown.windows.push_back(window);
    else if (isMadeBy(::getpid()))
      shown.hidden = shown.windows.size();
  }
  return shown;
}

void raiseIf(const std::vector<pid_t>& processes, bool (*isDue)(const Shown&)) {
  const Display display;
  if (!display.isOpen()) return;
  for (const auto root : display.roots())
    if (const auto shown = shownBy(display, root, processes); isDue(shown))
      for (const auto window : shown.windows) raise(display, root, window);
}

}  // namespace

void raiseWindows(const std::vector<pid_t>& processes) {
  raiseIf(processes, [](const Shown&) { return true; });
}

void keepInFront(const std::vector<pid_t>& processes) {
  raiseIf(processes, [](const Shown& shown) { return shown.hidden > 0; });
}

void bringForward(pid_t process) {
  raiseWindows({process});
  const Display display;
  if (!display.isOpen()) return;
  for (const auto root : display.roots())
    if (const auto windows = windowsOf(display, root, process); !windows.empty()) activate(display, root, windows.back());
}

bool closeWindows(pid_t process) {
  const Display display;
  if (!display.isOpen()) return false;
  bool isAsked = false;
  for (const auto root : display.roots())
    for (const auto window : windowsOf(display, root, process))
      if (display.send(window, XCB_EVENT_MASK_NO_EVENT, window, "WM_PROTOCOLS",
                       {display.atom("WM_DELETE_WINDOW"), XCB_CURRENT_TIME}))
        isAsked = true;
  return isAsked;
}

}  // namespace platform::Linux
