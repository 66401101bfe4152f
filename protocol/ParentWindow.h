#pragma once
// How a controller names its window to the installer, whose window is to be a dialog of it: "x11:" and the window's number
// in hexadecimal, or "wayland:" and the handle under which the compositor exports it (xdg-foreign). Any thread.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace protocol {

// In the environment that the installer is started with.
inline constexpr const char* parentWindowVariable = "KELTO_PARENT_WINDOW";

struct ParentWindow {
  std::string waylandHandle;  // empty for a window of X11
  std::uint32_t x11Number = 0;
  bool operator==(const ParentWindow&) const = default;
};

// Returns nullopt if the text does not have one of the two forms. A handle has at most 255 characters, all of them visible
// ASCII: a compositor would end the connection of a program that sends it a longer message than the protocol allows.
std::optional<ParentWindow> parentWindowFromText(std::string_view text);

}  // namespace protocol
