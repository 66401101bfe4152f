#include "ui/NSColor+KMColor.h"

namespace {

// Divided in single precision: the quotient's rounding is part of the colour.
constexpr double fraction(int of255) { return static_cast<float>(of255) / 255.0F; }

}  // namespace

#define KELTO_DEFINE_COLOR(category, name, value) \
  foundation::Color NSColor::category::name() { return value; }
#define GREY(category, name, white, alpha) \
  KELTO_DEFINE_COLOR(category, name, colorWithStandardWhite_alpha(fraction(white), alpha))
#define RGB(category, name, red, green, blue, alpha) \
  KELTO_DEFINE_COLOR(category, name,                 \
                     colorWithStandardRed_green_blue_alpha(fraction(red), fraction(green), fraction(blue), alpha))
#define SAME(category, name, other) KELTO_DEFINE_COLOR(category, name, other())
#include "ui/Palette.inc"
