#include "foundation/graphics/Graphics.h"

#include <gtest/gtest.h>

namespace {

TEST(GradientAxisTest, RunsFromTheTopAtMinusNinetyDegrees) {
  const auto [start, end] = foundation::gradientAxis({{0, 60}, {460, 260}}, -90);
  EXPECT_NEAR(start.x, 230, 1e-9);
  EXPECT_NEAR(start.y, 320, 1e-9);
  EXPECT_NEAR(end.y, 60, 1e-9);
}

TEST(GradientAxisTest, RunsFromTheLeftAtZeroDegrees) {
  const auto [start, end] = foundation::gradientAxis({{10, 0}, {100, 50}}, 0);
  EXPECT_NEAR(start.x, 10, 1e-9);
  EXPECT_NEAR(end.x, 110, 1e-9);
  EXPECT_NEAR(end.y, 25, 1e-9);
}

}  // namespace
