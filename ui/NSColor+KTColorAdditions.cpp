#include "ui/NSColor+KTColorAdditions.h"

namespace NSColor {
inline namespace KTColorAdditions {

foundation::Color colorWithStandardRed_green_blue(double red, double green, double blue) {
  return colorWithStandardRed_green_blue_alpha(red, green, blue, 1);
}

foundation::Color colorWithStandardRed_green_blue_alpha(double red, double green, double blue, double alpha) {
  return {red, green, blue, alpha};
}

foundation::Color colorWithStandardWhite_alpha(double white, double alpha) {
  return colorWithStandardRed_green_blue_alpha(white, white, white, alpha);
}

}  // namespace KTColorAdditions
}  // namespace NSColor
