#pragma once
// A window of Qt's as the compositor knows it. Main thread only.
#include <QWindow>
#include <optional>

struct wl_display;
struct wl_surface;

namespace platform::Linux {

struct Toplevel {
  wl_display* display;
  wl_surface* surface;
};

// Returns nullopt if the window is not shown, or is on another display than a Wayland one. The compositor ends the
// connection of a program that exports or imports for another surface than a window's.
std::optional<Toplevel> toplevelOf(QWindow& window);

}  // namespace platform::Linux
