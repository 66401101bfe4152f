#include "foundation/text/UTF16.h"

#include <gtest/gtest.h>

#include "foundation/text/UTF8.h"

using foundation::ByteOrder;
using foundation::utf8FromUTF16;

namespace {

std::string encoded(char32_t character) {
  std::string text;
  foundation::appendUTF8(text, character);
  return text;
}

}  // namespace

TEST(UTF16, CharactersOfEveryLengthAreWrittenAsUTF8) {
  EXPECT_EQ(encoded(0x7F), "\x7F");
  EXPECT_EQ(encoded(0x80), "\xC2\x80");
  EXPECT_EQ(encoded(0x7FF), "\xDF\xBF");
  EXPECT_EQ(encoded(0x800), "\xE0\xA0\x80");
  EXPECT_EQ(encoded(0xFFFD), "\xEF\xBF\xBD");
  EXPECT_EQ(encoded(0x10000), "\xF0\x90\x80\x80");
  EXPECT_EQ(encoded(0x10FFFF), "\xF4\x8F\xBF\xBF");
}

TEST(UTF16, EveryCharacterIsWellFormedUTF8) {
  for (char32_t character = 0; character <= 0x10FFFF; ++character) {
    if (character == 0xD800) character = 0xE000;
    ASSERT_TRUE(foundation::isValidUTF8(encoded(character))) << static_cast<std::uint32_t>(character);
  }
}

TEST(UTF16, BothByteOrdersAreRead) {
  EXPECT_EQ(utf8FromUTF16("\xAC\x20", ByteOrder::little), "€");
  EXPECT_EQ(utf8FromUTF16("\x20\xAC", ByteOrder::big), "€");
  EXPECT_EQ(utf8FromUTF16(std::string_view("\xD8\x3D\xDE\x00!", 5), ByteOrder::big), std::nullopt);
  EXPECT_EQ(utf8FromUTF16(std::string_view("\xD8\x3D\xDE\x00", 4), ByteOrder::big), "😀");
}

TEST(UTF16, BrokenPairsAndCutUnitsAreRefused) {
  using namespace std::string_view_literals;
  for (const auto bytes : {"\xD8\x3D"sv, "\xDE\x00"sv, "\xD8\x3D\x00\x41"sv, "\xD8\x3D\xD8\x3D"sv, "\x00"sv})
    EXPECT_EQ(utf8FromUTF16(bytes, ByteOrder::big), std::nullopt);
}

TEST(UTF16, ATextFileTellsItsEncodingByItsMark) {
  EXPECT_EQ(foundation::decodedText("\xFF\xFE\xAC\x20"), "€");
  EXPECT_EQ(foundation::decodedText("\xFE\xFF\x20\xAC"), "€");
  EXPECT_EQ(foundation::decodedText("\xEF\xBB\xBF€"), "€");
  EXPECT_EQ(foundation::decodedText("€"), "€");
  EXPECT_EQ(foundation::decodedText("\xE9"), std::nullopt);
}
