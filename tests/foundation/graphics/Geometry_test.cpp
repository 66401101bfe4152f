#include "foundation/graphics/Geometry.h"

#include <gtest/gtest.h>

using foundation::Rect;
using foundation::rectFromString;

TEST(RectFromString, ReadsTheStandardNotation) {
  EXPECT_EQ(rectFromString("{{100, 100}, {800, 600}}"), (Rect{{100, 100}, {800, 600}}));
}

TEST(RectFromString, ReadsNegativeAndFractionalNumbersAndFreeBlanks) {
  EXPECT_EQ(rectFromString(" { { -10.5,+2e1 } ,{ 3 , .5 } } "), (Rect{{-10.5, 20}, {3, 0.5}}));
}

TEST(RectFromString, TextOfAnotherFormGivesTheZeroRectangle) {
  for (const char* text : {"", "{{1,2},{3}}", "1,2,3,4", "{{1,2},{3,4}", "{{a,2},{3,4}}", "{{1,2},{nan,4}}", "{{"})
    EXPECT_EQ(rectFromString(text), Rect{}) << text;
}

TEST(Rect, IsEmptyUnlessBothSidesAreGreaterThanZero) {
  EXPECT_TRUE((Rect{{1, 1}, {0, 5}}.isEmpty()));
  EXPECT_TRUE((Rect{{1, 1}, {5, -1}}.isEmpty()));
  EXPECT_FALSE((Rect{{1, 1}, {5, 5}}.isEmpty()));
}
