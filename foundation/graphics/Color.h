#pragma once
// A colour in the sRGB colour space. Plain value; any thread.

namespace foundation {

// Fractions from 0 to 1; alpha 1 is opaque. Neither scaled nor clamped nor rounded: equal colours are equal bit for bit.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  bool operator==(const Color&) const = default;

  // The platform's standard colours.
  static constexpr Color blueColor() { return {0, 0, 1, 1}; }
  static constexpr Color whiteColor() { return {1, 1, 1, 1}; }
};

}  // namespace foundation
