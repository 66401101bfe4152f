#include "protocol/ParentWindow.h"

#include <algorithm>
#include <charconv>

namespace protocol {
namespace {

constexpr std::size_t longestHandle = 255;

std::optional<ParentWindow> onX11(std::string_view number) {
  ParentWindow window;
  const auto* end = number.data() + number.size();
  const auto read = std::from_chars(number.data(), end, window.x11Number, 16);
  if (read.ec != std::errc() || read.ptr != end || window.x11Number == 0) return std::nullopt;
  return window;
}

std::optional<ParentWindow> onWayland(std::string_view handle) {
  const auto isVisible = [](char each) { return each > ' ' && each <= '~'; };
  if (handle.empty() || handle.size() > longestHandle || !std::ranges::all_of(handle, isVisible)) return std::nullopt;
  return ParentWindow{.waylandHandle = std::string(handle)};
}

}  // namespace

std::optional<ParentWindow> parentWindowFromText(std::string_view text) {
  const auto colon = std::min(text.find(':'), text.size());
  const auto display = text.substr(0, colon);
  const auto name = text.substr(std::min(colon + 1, text.size()));
  if (display == "x11") return onX11(name);
  if (display == "wayland") return onWayland(name);
  return std::nullopt;
}

}  // namespace protocol
