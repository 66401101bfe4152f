#pragma once
// The contrast of two colours, by the definition for screens: 1 for equal colours, 21 for black and white.
#include <QRgb>
#include <algorithm>
#include <cmath>

namespace tests {

inline double luminance(QRgb color) {
  const auto linear = [](int channel) {
    const double share = channel / 255.0;
    return share <= 0.04045 ? share / 12.92 : std::pow((share + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(qRed(color)) + 0.7152 * linear(qGreen(color)) + 0.0722 * linear(qBlue(color));
}

inline double contrast(QRgb a, QRgb b) {
  const double lighter = std::max(luminance(a), luminance(b));
  const double darker = std::min(luminance(a), luminance(b));
  return (lighter + 0.05) / (darker + 0.05);
}

}  // namespace tests
