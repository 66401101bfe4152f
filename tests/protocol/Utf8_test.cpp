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

}  // namespace
}  // namespace protocol
