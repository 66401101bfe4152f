#include "protocol/Utf8.h"

#include <gtest/gtest.h>

namespace protocol {
namespace {

TEST(Utf8, OfEveryLengthIsValid) { EXPECT_TRUE(isValidUTF8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF")); }

TEST(Utf8, CutOffOverlongOrBeyondTheLastCharacterIsNot) {
  for (const char* text : {"\x80", "\xC3", "\xC0\xAF", "\xE2\x82", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
                           "\xF4\x90\x80\x80", "\xF0\x9F\x98", "\xFF"})
    EXPECT_FALSE(isValidUTF8(text)) << text;
}

TEST(ControlCharacters, AreThoseBelowTheSpaceAndDelete) {
  for (int number = 0; number < 256; ++number)
    EXPECT_EQ(isControlCharacter(static_cast<char>(number)), number < 32 || number == 127) << number;
}

TEST(ControlCharacters, AreFoundAnywhereInAText) {
  EXPECT_FALSE(hasControlCharacter(""));
  EXPECT_FALSE(hasControlCharacter("a ~\xC2\x80"));
  for (const char* text : {"\ta", "a\n", "a\x7F\x7F"}) EXPECT_TRUE(hasControlCharacter(text)) << text;
  EXPECT_TRUE(hasControlCharacter(std::string_view("a\0", 2)));
}

}  // namespace
}  // namespace protocol
