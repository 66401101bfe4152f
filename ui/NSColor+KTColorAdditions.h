#pragma once
// Making colours. Pure; any thread.
#include "foundation/graphics/Color.h"

namespace NSColor {
inline namespace KTColorAdditions {

// Components are fractions and are taken as they stand. Without alpha the colour is opaque.
foundation::Color colorWithStandardRed_green_blue(double red, double green, double blue);
foundation::Color colorWithStandardRed_green_blue_alpha(double red, double green, double blue, double alpha);
// A grey is a colour with three equal components.
foundation::Color colorWithStandardWhite_alpha(double white, double alpha);

}  // namespace KTColorAdditions
}  // namespace NSColor
