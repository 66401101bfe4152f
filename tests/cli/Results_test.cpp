#include "cli/Results.h"

#include <gtest/gtest.h>

using cli::Dictionary;
using cli::linesOf;
using foundation::PropertyList::Array;

TEST(ResultsTest, AreALineForEachValue) {
  EXPECT_EQ(linesOf({{"b", Dictionary{{"list", Array{"x", 2}}, {"text", "t"}}}, {"a", true}, {"c", 3}}),
            "a: yes\nb:\n  list: x, 2\n  text: t\nc: 3\n");
}

TEST(ResultsTest, ShowNoControlCharacters) { EXPECT_EQ(linesOf({{"a", "x\033\ny"}}), "a: x\\x1b\\x0ay\n"); }

TEST(ResultsTest, OfAnotherProgramAreReadLineByLine) {
  EXPECT_EQ(cli::valuesOfLines("a: 1\nb: c: d\nnothing\n"), (Dictionary{{"a", "1"}, {"b", "c: d"}}));
}

TEST(ResultsTest, HaveTheCauseOfAProgramThatFailed) {
  EXPECT_EQ(cli::causeOfHelper("warning\nkelto-manifest: not a file: x\n"), "not a file: x");
  EXPECT_EQ(cli::causeOfHelper("No such file\n"), "No such file");
  EXPECT_EQ(cli::causeOfHelper(""), "the program that looks at it ended without a word");
}
