#include "foundation/text/UTF8.h"

#include <gtest/gtest.h>

using foundation::isValidUTF8;

TEST(UTF8, WellFormedTextOfAllLengthsIsValid) {
  EXPECT_TRUE(isValidUTF8(""));
  EXPECT_TRUE(isValidUTF8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
  EXPECT_TRUE(isValidUTF8("\xF4\x8F\xBF\xBF"));
}

TEST(UTF8, OverlongFormsSurrogatesAndTruncationsAreNotValid) {
  for (const char* text : {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80",
                           "\xF5\x80\x80\x80", "\xE2\x82", "\xC3", "\xE2\x28\xA1"})
    EXPECT_FALSE(isValidUTF8(text)) << text;
}

TEST(UTF8, FindsABrokenByteWhereverItIs) {
  for (std::size_t place = 0; place < 40; ++place) {
    std::string text(40, 'x');
    EXPECT_TRUE(isValidUTF8(text));
    text[place] = '\x80';
    EXPECT_FALSE(isValidUTF8(text)) << place;
    EXPECT_TRUE(isValidUTF8(text.replace(place, 1, "\u00e9"))) << place;
  }
}

TEST(UTF8, CountsCharacters) {
  EXPECT_EQ(foundation::characterCount(""), 0U);
  EXPECT_EQ(foundation::characterCount("aé€😀"), 4U);
}

TEST(UTF8, CutsBetweenCharacters) {
  const std::string_view text = "aé€😀";
  EXPECT_EQ(foundation::firstCharacters(text, 0), "");
  EXPECT_EQ(foundation::firstCharacters(text, 2), "aé");
  EXPECT_EQ(foundation::firstCharacters(text, 3), "aé€");
  EXPECT_EQ(foundation::firstCharacters(text, 4), text);
  EXPECT_EQ(foundation::firstCharacters(text, 5), text);
}

TEST(UTF8, SurrogatesAndNumbersAboveTheLastCharacterAreNotCharacters) {
  for (const std::uint64_t number : {0ULL, 0xD7FFULL, 0xE000ULL, 0x10FFFFULL})
    EXPECT_TRUE(foundation::isUnicodeScalar(number)) << number;
  for (const std::uint64_t number : {0xD800ULL, 0xDFFFULL, 0x110000ULL, 0x100000041ULL})
    EXPECT_FALSE(foundation::isUnicodeScalar(number)) << number;
}

TEST(UTF8, BytesAboveAsciiAreReplaced) { EXPECT_EQ(foundation::textFromASCII("a\xFFz"), "a\xEF\xBF\xBDz"); }
