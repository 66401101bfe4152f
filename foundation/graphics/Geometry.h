#pragma once
// Points, sizes and rectangles in points, origin bottom-left. Plain values; any thread.
#include <string_view>

namespace foundation {

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  Point origin;
  Size size;
  bool operator==(const Rect&) const = default;

  // Empty: the width or the height is not greater than zero (a NaN is not greater either).
  [[nodiscard]] bool isEmpty() const { return !(size.width > 0) || !(size.height > 0); }
};

// Reads the standard notation {{x, y}, {width, height}}. Text that is not in this notation gives the zero rectangle; what
// follows the closing brace is not examined. Numbers are decimal with an optional sign, fraction and exponent, whatever
// the locale.
Rect rectFromString(std::string_view text);

}  // namespace foundation
