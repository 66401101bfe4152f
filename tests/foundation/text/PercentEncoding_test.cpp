#include "foundation/text/PercentEncoding.h"

#include <gtest/gtest.h>

#include <optional>
#include <string_view>

namespace {

std::optional<std::string> decoded(std::string_view text) {
  std::string result(text);
  return foundation::decodePercentEscapes(result) ? std::optional(result) : std::nullopt;
}

}  // namespace

TEST(PercentEncoding, ReplacesEscapesByTheirBytes) {
  EXPECT_EQ(decoded(""), "");
  EXPECT_EQ(decoded("a+b"), "a+b");
  EXPECT_EQ(decoded("%41%c3%A9"), "A\xC3\xA9");
  EXPECT_EQ(decoded("a%20b%20c"), "a b c");
  EXPECT_EQ(decoded("%2541"), "%41");
  EXPECT_EQ(decoded("%00"), std::string(1, '\0'));
}

TEST(PercentEncoding, RefusesAnEscapeThatIsCutOffOrNotHexadecimal) {
  for (const std::string_view text :
       {"%", "%4", "a%", "a%4", "%zz", "%4g", "%g4", "%%41", "%-1", "% 1", "%:0", "%@0", "%`0"})
    EXPECT_EQ(decoded(text), std::nullopt) << text;
}

TEST(PercentEncoding, EveryByteComesBackFromItsEscape) {
  for (int byte = 0; byte < 256; ++byte) {
    std::string text;
    foundation::appendPercentEscape(text, static_cast<char>(byte));
    EXPECT_EQ(text.size(), 3U);
    EXPECT_EQ(decoded(text), std::string(1, static_cast<char>(byte)));
  }
}

TEST(PercentEncoding, EscapesHaveDigitsInUpperCase) {
  std::string text = "x";
  foundation::appendPercentEscape(text, '\xAF');
  EXPECT_EQ(text, "x%AF");
}
