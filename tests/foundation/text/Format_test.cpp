#include "foundation/text/Format.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using foundation::FormatArgument;
using foundation::formatted;

namespace {

// A text of `length` bytes, some of which differ from a percent sign in one bit only.
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

TEST(Format, CopiesTextsOfAnyLengthUnchanged) {
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

TEST(Format, OneConversionThatIsNotBareChangesNothingForTheOthers) {
  EXPECT_EQ(formatted("%d of %03d", 1, 7), "1 of 007");
  EXPECT_EQ(formatted("%d and %@", 1, 1.5), "1 and 1.5");
  EXPECT_EQ(formatted("%@ of %@", "one", static_cast<const char*>(nullptr)), "one of (null)");
  EXPECT_EQ(formatted("%@ of %@", "one"), "one of (null)");
  EXPECT_EQ(formatted("%@ and %q", "one"), "one and %q");
  EXPECT_EQ(formatted("%2$@ %1$@", "one", "two"), "two one");
}

TEST(Format, LeavesOutArgumentsWithoutAConversion) { EXPECT_EQ(formatted("%d", 1, "two", 3), "1"); }

TEST(Format, AppendsToTheTextThatIsThere) {
  const FormatArgument arguments[] = {FormatArgument(7)};
  std::string text = "there: ";
  foundation::appendFormat(text, "%d", arguments);
  foundation::appendFormat(text, ", %3d", arguments);
  foundation::appendFormat(text, "", {});
  EXPECT_EQ(text, "there: 7,   7");
}

TEST(Format, PutsIntoARoomOnlyWhatFitsForCertain) {
  const FormatArgument arguments[] = {FormatArgument(-7), FormatArgument("seven")};
  const std::string_view format = "%d is %@ below zero";
  const std::string expected = formatted(format, -7, "seven");
  for (std::size_t size = 0; size < 80; ++size) {
    // On the heap, so that a sanitizer notices a byte too many.
    std::vector<char> room(size);
    const auto text = foundation::formatInto(room, format, arguments);
    // The longest integer has 20 digits, and plain text is copied in words of 8.
    EXPECT_EQ(text.has_value(), size >= format.size() + 20 + 5 + 8) << size;
    EXPECT_EQ(text.value_or(expected), expected);
  }
}

TEST(Format, PutsNothingIntoARoomIfAConversionIsNotBare) {
  char room[100];
  const FormatArgument arguments[] = {FormatArgument(7)};
  EXPECT_EQ(foundation::formatInto(room, "%d", arguments), "7");
  EXPECT_EQ(foundation::formatInto(room, "%3d", arguments), std::nullopt);
  EXPECT_EQ(foundation::formatInto(room, "%d%d", arguments), std::nullopt);
}

TEST(Format, FillsUpOnTheLeftUnlessAMinusAsksForTheRight) {
  EXPECT_EQ(formatted("<%5@>", "ab"), "<   ab>");
  EXPECT_EQ(formatted("<%-5@>", "ab"), "<ab   >");
  EXPECT_EQ(formatted("<%-5s><%5s>", "ab", "ab"), "<ab   ><   ab>");
  EXPECT_EQ(formatted("<%-5d><%5d>", 12, 12), "<12   ><   12>");
  EXPECT_EQ(formatted("<%-3c><%3c>", 'x', 'x'), "<x  ><  x>");
  EXPECT_EQ(formatted("<%-8@><%8@>", static_cast<const char*>(nullptr), static_cast<const char*>(nullptr)),
            "<(null)  ><  (null)>");
  EXPECT_EQ(formatted("<%-8@><%8d>"), "<(null)  ><  (null)>");
  EXPECT_EQ(formatted("<%1@>", "ab"), "<ab>");
}

TEST(Format, CountsCharactersInWidthAndPrecision) {
  EXPECT_EQ(formatted("%.3s", "ééé"), "ééé");
  EXPECT_EQ(formatted("%.2s", "ééé"), "éé");
  EXPECT_EQ(formatted("%.1s|%.2s", "€uro", "😀😀😀"), "€|😀😀");
  EXPECT_EQ(formatted("%.0s%.s", "é", "é"), "");
  EXPECT_EQ(formatted("<%5@><%-5s>", "éé", "😀"), "<   éé><😀    >");
  EXPECT_EQ(formatted("<%4.2s>", "éàü"), "<  éà>");
}

TEST(Format, IgnoresThePrecisionOfAnyConversionThatIsNotForText) { EXPECT_EQ(formatted("%.1@", "abc"), "abc"); }

TEST(Format, ShowsTheCharacterOfANumber) {
  EXPECT_EQ(formatted("%c%c%c", 'a', 233, 0x1F600), "aé😀");
  EXPECT_EQ(formatted("%c", std::uint64_t{0x20AC}), "€");
  EXPECT_EQ(formatted("%c", 0), std::string(1, '\0'));
  EXPECT_EQ(formatted("<%3c>", 233), "<  é>");
}

TEST(Format, ShowsTheReplacementCharacterForANumberThatIsNotACharacter) {
  const auto shown = [](std::int64_t number) { return formatted("%c", number); };
  EXPECT_EQ(shown(0xD7FF), "\xED\x9F\xBF");
  EXPECT_EQ(shown(0x10FFFF), "\xF4\x8F\xBF\xBF");
  for (const std::int64_t number :
       {std::int64_t{-1}, std::int64_t{0xD800}, std::int64_t{0xDFFF}, std::int64_t{0x110000}, std::int64_t{0x100000041}})
    EXPECT_EQ(shown(number), "\uFFFD") << number;
}

TEST(Format, NoFieldIsWiderThanFourThousandAndNinetySixCharacters) {
  EXPECT_EQ(formatted("%4095@", "x").size(), 4095U);
  EXPECT_EQ(formatted("%99999999999999999999@", "x").size(), 4096U);
  EXPECT_EQ(formatted("%-4097d", 1).size(), 4096U);
  EXPECT_EQ(formatted("%.99999999999999999999d", 1).size(), 4096U);
  EXPECT_EQ(formatted("%.4097s", std::string(5000, 'x')).size(), 4096U);
  EXPECT_EQ(formatted("%4096.4096f", 0.5).size(), 4098U);
}

TEST(Format, TakesEveryLengthWord) {
  EXPECT_EQ(formatted("%hd %hhd %ld %lld %qd %zd %jd %td", 1, 2, 3, 4, 5, 6, 7, 8), "1 2 3 4 5 6 7 8");
  EXPECT_EQ(formatted("%hhx", 0x1FF), "1ff");
  EXPECT_EQ(formatted("%lld %lu", std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::uint64_t>::max()),
            "-9223372036854775808 18446744073709551615");
}

TEST(Format, ShowsAPointerInHexadecimalAndTheNullPointerAsZero) {
  EXPECT_EQ(formatted("%p", static_cast<const void*>(nullptr)), "0x0");
  EXPECT_EQ(formatted("%@ %d", static_cast<const void*>(nullptr), static_cast<const void*>(nullptr)), "0x0 0x0");
  EXPECT_EQ(formatted("<%5p><%-5p>", static_cast<const void*>(nullptr), static_cast<const void*>(nullptr)),
            "<  0x0><0x0  >");
  EXPECT_EQ(formatted("%p", reinterpret_cast<const void*>(0xabc0)), "0xabc0");
  EXPECT_EQ(formatted("<%8p>", reinterpret_cast<const void*>(0xabc0)), "<  0xabc0>");
}

TEST(Format, AFlagCountsOnceHoweverOftenItIsRepeated) {
  EXPECT_EQ(formatted("<%--5d><%++d><%00005d><%#-#-6x><%  d>", 1, 2, 3, 10, 4), "<1    ><+2><00003><0xa   >< 4>");
  EXPECT_EQ(formatted("%" + std::string(100'000, '0') + "4d", 7), "0007");
}

TEST(Format, NumbersTakeFlagsWidthAndPrecision) {
  EXPECT_EQ(formatted("%+d % d %05d %.3d %#x %#o %X", 1, 2, 3, 4, 255, 8, 255), "+1  2 00003 004 0xff 010 FF");
  EXPECT_EQ(formatted("%5.1f|%-8.2e|%g|%F", 1.25, 12345.678, 0.0001, 1.0), "  1.2|1.23e+04|0.0001|1.000000");
}

TEST(Format, AnArgumentOfAnotherTypeIsShownInItsOwnForm) {
  EXPECT_EQ(formatted("%d %x %f %c %p", "a", "b", "c", "d", "e"), "a b c d e");
  EXPECT_EQ(formatted("%s %f %p", 1, 2, 3), "1 2 3");
  EXPECT_EQ(formatted("%@ %d %s", 1.5, 2.5, 1e300), "1.5 2.5 1e+300");
  EXPECT_EQ(formatted("%03s %05f", 7, std::uint64_t{8}), "007 00008");
}

TEST(Format, APercentSignThatBeginsNoConversionStandsForItself) {
  EXPECT_EQ(formatted("%y %5 %-", 1), "%y %5 %-");
  EXPECT_EQ(formatted("%l%d", 1), "%l1");
  EXPECT_EQ(formatted("%0$d %$d"), "%0$d %$d");
  EXPECT_EQ(formatted("5%5%"), "5%5%");
}
