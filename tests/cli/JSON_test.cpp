#include "cli/JSON.h"

#include <gtest/gtest.h>

#include <limits>

using cli::jsonOf;
using foundation::PropertyList::Array;
using foundation::PropertyList::Data;
using foundation::PropertyList::Dictionary;

TEST(JSONTest, HasEveryKindOfValue) {
  EXPECT_EQ(jsonOf("a"), "\"a\"");
  EXPECT_EQ(jsonOf(true), "true");
  EXPECT_EQ(jsonOf(-7), "-7");
  EXPECT_EQ(jsonOf(0.5), "0.5");
  EXPECT_EQ(jsonOf(std::numeric_limits<double>::infinity()), "null");
  EXPECT_EQ(jsonOf(Data{}), "null");
  EXPECT_EQ(jsonOf(foundation::Date{}), "\"" + foundation::PropertyList::dateText(foundation::Date{}) + "\"");
  EXPECT_EQ(jsonOf(Array{1, "b", Array{}}), "[1, \"b\", []]");
  EXPECT_EQ(jsonOf(Dictionary{{"b", 2}, {"a", Dictionary{}}}), "{\"a\": {}, \"b\": 2}");
}

TEST(JSONTest, EscapesWhatATextMustNotHold) {
  EXPECT_EQ(jsonOf("say \"hi\" \\ \n\t\x7f é"), "\"say \\\"hi\\\" \\\\ \\u000a\\u0009\\u007f é\"");
  EXPECT_EQ(jsonOf(std::string(1, '\0')), "\"\\u0000\"");
  EXPECT_EQ(jsonOf("\xff"), "\"\uFFFD\"");
  EXPECT_EQ(jsonOf(Dictionary{{"a\"b", 1}}), "{\"a\\\"b\": 1}");
}
