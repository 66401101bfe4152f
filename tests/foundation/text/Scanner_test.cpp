#include "foundation/text/Scanner.h"

#include <gtest/gtest.h>

#include <limits>

using foundation::scanInteger;

namespace {

struct Case {
  std::string_view text;
  std::optional<std::int64_t> value;
  std::string_view rest;
};

}  // namespace

TEST(Scanner, TakesTheIntegerOffTheFront) {
  for (const auto& [text, value, rest] :
       {Case{"12ab", 12, "ab"}, Case{"-7", -7, ""}, Case{"+7.5", 7, ".5"}, Case{"007", 7, ""}, Case{"0x1", 0, "x1"}}) {
    std::string_view left = text;
    EXPECT_EQ(scanInteger(left), value) << text;
    EXPECT_EQ(left, rest) << text;
  }
}

TEST(Scanner, WithoutDigitsTheTextIsUntouched) {
  for (const std::string_view text : {"", "-", "+", "a1", " 1", "--1", "+-1"}) {
    std::string_view left = text;
    EXPECT_EQ(scanInteger(left), std::nullopt) << text;
    EXPECT_EQ(left, text);
  }
}

TEST(Scanner, StopsAtTheLimitsAndTakesAllDigits) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const auto& [text, value, rest] :
       {Case{"9223372036854775807", Limits::max(), ""}, Case{"9223372036854775808z", Limits::max(), "z"},
        Case{"-9223372036854775808", Limits::min(), ""}, Case{"-9223372036854775809 ", Limits::min(), " "},
        Case{"99999999999999999999999999", Limits::max(), ""}}) {
    std::string_view left = text;
    EXPECT_EQ(scanInteger(left), value) << text;
    EXPECT_EQ(left, rest) << text;
  }
}
