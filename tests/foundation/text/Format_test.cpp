#include "foundation/text/Format.h"

#include <gtest/gtest.h>

#include <limits>

using foundation::FormatArgument;
using foundation::formatted;

namespace {

// Texts of all lengths around a few words of eight bytes, with bytes that differ from a percent sign in one bit.
std::string plainText(std::size_t length) {
  constexpr std::string_view bytes = "$a\xa5&\x05'-!E\xe2\x82\xac 5";
  std::string text;
  while (text.size() < length) text += bytes[text.size() % bytes.size()];
  return text;
}

}  // namespace

TEST(Format, AConversionMayStandAnywhere) {
  for (std::size_t before = 0; before < 20; ++before)
    for (std::size_t after = 0; after < 20; ++after) {
      const std::string start = plainText(before);
      const std::string end = plainText(after);
      EXPECT_EQ(formatted(start + "%d" + end, 42), start + "42" + end);
      EXPECT_EQ(formatted(start + "%%" + end), start + "%" + end);
      EXPECT_EQ(formatted(start + "%@%s" + end, "one", "two"), start + "onetwo" + end);
      EXPECT_EQ(formatted(start + "%5d" + end, 42), start + "   42" + end);
    }
}

TEST(Format, APercentSignAtTheEndStandsForItself) {
  for (std::size_t before = 0; before < 20; ++before) {
    EXPECT_EQ(formatted(plainText(before) + "%"), plainText(before) + "%");
    EXPECT_EQ(formatted(plainText(before) + "%d%", 1), plainText(before) + "1%");
  }
}

TEST(Format, TextsAreTakenAsTheyAreHoweverLong) {
  EXPECT_EQ(formatted("<%@>", "%d %@ %%"), "<%d %@ %%>");
  EXPECT_EQ(formatted("<%s>", std::string_view("a\0b", 3)), std::string("<a\0b>", 5));
  const std::string megabyte(1 << 20, 'x');
  EXPECT_EQ(formatted("%@%@", megabyte, megabyte), megabyte + megabyte);
}

TEST(Format, IntegersReachTheirLimits) {
  using Signed = std::numeric_limits<std::int64_t>;
  using Unsigned = std::numeric_limits<std::uint64_t>;
  EXPECT_EQ(formatted("%d|%i|%@", Signed::min(), Signed::max(), Signed::min()),
            "-9223372036854775808|9223372036854775807|-9223372036854775808");
  EXPECT_EQ(formatted("%u|%x|%d", Unsigned::max(), Unsigned::max(), Unsigned::max()),
            "18446744073709551615|ffffffffffffffff|18446744073709551615");
  EXPECT_EQ(formatted("%u|%x", -1, -1), "18446744073709551615|ffffffffffffffff");
}

TEST(Format, WhatTheSimpleConversionsDoNotTakeIsFormattedFromTheStart) {
  EXPECT_EQ(formatted("%d of %03d", 1, 7), "1 of 007");
  EXPECT_EQ(formatted("%d and %@", 1, 1.5), "1 and 1.5");
  EXPECT_EQ(formatted("%@ of %@", "one", static_cast<const char*>(nullptr)), "one of (null)");
  EXPECT_EQ(formatted("%@ of %@", "one"), "one of (null)");
  EXPECT_EQ(formatted("%@ and %q", "one"), "one and %q");
  EXPECT_EQ(formatted("%2$@ %1$@", "one", "two"), "two one");
}

TEST(Format, ArgumentsWithoutAConversionAreLeftOut) { EXPECT_EQ(formatted("%d", 1, "two", 3), "1"); }

TEST(Format, IsAppendedToWhatIsThere) {
  const FormatArgument arguments[] = {FormatArgument(7)};
  std::string text = "there: ";
  foundation::appendFormat(text, "%d", arguments);
  foundation::appendFormat(text, ", %3d", arguments);
  foundation::appendFormat(text, "", {});
  EXPECT_EQ(text, "there: 7,   7");
}
