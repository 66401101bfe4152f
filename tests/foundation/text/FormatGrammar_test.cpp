#include "foundation/text/FormatGrammar.h"

#include <gtest/gtest.h>

#include <vector>

using foundation::Conversion;
using foundation::ConversionKind;
using foundation::FormatParser;
using foundation::FormatPiece;

namespace {

constexpr FormatPiece firstPiece(std::string_view format) { return FormatParser(format).next(); }

std::vector<FormatPiece> pieces(std::string_view format) {
  std::vector<FormatPiece> list;
  for (FormatParser parser(format); !parser.isAtEnd();) list.push_back(parser.next());
  return list;
}

}  // namespace

TEST(FormatGrammar, IsReadByTheCompiler) {
  static_assert(firstPiece("of %5d").text == "of ");
  static_assert(firstPiece("of %5d").conversion.width == 5);
  static_assert(firstPiece("100%").isMalformed);
  static_assert(FormatParser("").isAtEnd());
}

TEST(FormatGrammar, AConversionHasAllItsParts) {
  const Conversion conversion = firstPiece("%2$-0'12.34llx").conversion;
  EXPECT_EQ(conversion.kind, ConversionKind::unsignedInteger);
  EXPECT_EQ(conversion.letter, 'x');
  EXPECT_EQ(conversion.argument, 1U);
  for (const char flag : Conversion::flagLetters)
    EXPECT_EQ(conversion.has(flag), flag == '-' || flag == '0' || flag == '\'');
  EXPECT_EQ(conversion.width, 12U);
  EXPECT_EQ(conversion.precision, 34U);
}

TEST(FormatGrammar, AConversionMayBeALetterAlone) {
  const Conversion conversion = firstPiece("%@").conversion;
  EXPECT_EQ(conversion.kind, ConversionKind::any);
  EXPECT_EQ(conversion.argument, 0U);
  EXPECT_EQ(conversion.flags, 0U);
  EXPECT_EQ(conversion.width, 0U);
  EXPECT_EQ(conversion.precision, std::nullopt);
}

TEST(FormatGrammar, EveryLetterHasItsKind) {
  const std::pair<std::string_view, ConversionKind> rows[] = {
      {"@", ConversionKind::any},       {"di", ConversionKind::signedInteger}, {"uxXo", ConversionKind::unsignedInteger},
      {"c", ConversionKind::character}, {"fFeEgG", ConversionKind::real},      {"sS", ConversionKind::text},
      {"p", ConversionKind::pointer}};
  std::size_t known = 0;
  for (const auto& [letters, kind] : rows)
    for (const char letter : letters) {
      EXPECT_EQ(foundation::kindOfConversion(letter), kind) << letter;
      ++known;
    }
  for (int byte = 0; byte < 256; ++byte)
    known -= foundation::kindOfConversion(static_cast<char>(byte)) == ConversionKind::none ? 0 : 1;
  EXPECT_EQ(known, 0U);
}

TEST(FormatGrammar, ArgumentsAreTakenInTurnButForThoseWithAPosition) {
  std::vector<std::size_t> arguments;
  for (const auto& piece : pieces("%@ %3$@ %y %@ %1$@ %@")) {
    if (piece.conversion.kind != ConversionKind::none) arguments.push_back(piece.conversion.argument);
  }
  EXPECT_EQ(arguments, (std::vector<std::size_t>{0, 2, 1, 0, 2}));
}

TEST(FormatGrammar, TwoPercentSignsAreTextThatEndsWithOne) {
  const auto list = pieces("100%% of %d%%");
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0].text, "100%");
  EXPECT_FALSE(list[0].isMalformed);
  EXPECT_EQ(list[1].text, " of ");
  EXPECT_EQ(list[1].conversion.kind, ConversionKind::signedInteger);
  EXPECT_EQ(list[2].text, "%");
}

TEST(FormatGrammar, AMalformedConversionIsReadAgainAsText) {
  for (const std::string_view format : {"%y", "%5", "%1$-05.5ll", "%0$d", "% "}) {
    const auto list = pieces(format);
    EXPECT_TRUE(list[0].isMalformed) << format;
    EXPECT_EQ(list[0].text, "%");
    EXPECT_EQ(list[0].conversion.kind, ConversionKind::none);
    ASSERT_EQ(list.size(), format.size() > 1 ? 2U : 1U);
    EXPECT_EQ(list[1].text, format.substr(1));
  }
}

TEST(FormatGrammar, WidthAndPrecisionAreBounded) {
  const Conversion conversion = firstPiece("%4097.99999999999999999999999d").conversion;
  EXPECT_EQ(conversion.width, 4096U);
  EXPECT_EQ(conversion.precision, 4096U);
  EXPECT_EQ(firstPiece("%99999999999999999999999$d").conversion.argument, 4095U);
}

TEST(FormatGrammar, APointWithoutDigitsIsAPrecisionOfZero) { EXPECT_EQ(firstPiece("%.s").conversion.precision, 0U); }
