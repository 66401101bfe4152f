// Buttons and bar, which the platform draws without the palette, have its colours.
#include <gtest/gtest.h>

#include <cmath>

#include "platform/linux/qt/LookStyle.h"
#include "ui/NSColor+KMColor.h"

namespace {

void expectSame(const QColor& drawn, const foundation::Color& listed) {
  const auto of255 = [](double component) { return static_cast<int>(std::lround(component * 255)); };
  EXPECT_EQ(drawn.rgb(), qRgb(of255(listed.red), of255(listed.green), of255(listed.blue)));
}

TEST(ControlColors, AreBluesOfThePalette) {
  const platform::Linux::LookColors& colors = platform::Linux::LookStyle::colors();
  expectSame(colors.accent, NSColor::headerBarBrightStartColor());
  expectSame(colors.accentLight, NSColor::limitedConnectivityLinkTextColor());
  expectSame(colors.accentDark, NSColor::headerBarBrightEndColor());
}

}  // namespace
