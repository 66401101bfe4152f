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

TEST(UTF8, BytesAboveAsciiAreReplaced) { EXPECT_EQ(foundation::textFromASCII("a\xFFz"), "a\xEF\xBF\xBDz"); }
