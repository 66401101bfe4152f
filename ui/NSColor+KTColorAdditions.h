#pragma once
// Making colours. Pure; any thread.
#include "foundation/graphics/Color.h"

namespace NSColor {
inline namespace KTColorAdditions {

// Components are fractions and are taken as they stand. Without alpha the colour is opaque.
platform::Color colorWithStandardRed_green_blue(double red, double green, double blue);
platform::Color colorWithStandardRed_green_blue_alpha(double red, double green, double blue, double alpha);
// A grey is a colour with three equal components.
platform::Color colorWithStandardWhite_alpha(double white, double alpha);

}  // namespace KTColorAdditions
}  // namespace NSColor
