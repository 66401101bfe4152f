#include "foundation/plist/StringsFile.h"

#include <gtest/gtest.h>

#include <string>

#include "foundation/plist/PropertyList.h"

using foundation::parseStrings;
using foundation::StringTable;

namespace {

std::string utf16(std::u16string_view text, bool isBigEndian) {
  std::string bytes = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char16_t unit : text) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    bytes += isBigEndian ? high : low;
    bytes += isBigEndian ? low : high;
  }
  return bytes;
}

std::string reasonFor(std::string_view text) {
  std::string reason;
  EXPECT_FALSE(parseStrings(text, &reason)) << text;
  return reason;
}

}  // namespace

TEST(StringsFile, ReadsKeysAndValues) {
  EXPECT_EQ(parseStrings("\"<OK>\" = \"OK\";\n\"<Done>\"=\"Fertig\";"),
            (StringTable{{"<OK>", "OK"}, {"<Done>", "Fertig"}}));
}

TEST(StringsFile, AnEmptyTableIsATable) {
  EXPECT_EQ(parseStrings(""), StringTable());
  EXPECT_EQ(parseStrings(" \n/* nothing yet */\n// nothing\n"), StringTable());
}

TEST(StringsFile, SkipsBothKindsOfCommentEverywhere) {
  EXPECT_EQ(parseStrings("// one\n/* two\nlines ; \" */ \"a\" /* x */ = // y\n \"b\" /**/ ; // end"),
            (StringTable{{"a", "b"}}));
}

TEST(StringsFile, CommentsInsideOfQuotationsAreText) {
  EXPECT_EQ(parseStrings("\"a // b\" = \"/* c */\";"), (StringTable{{"a // b", "/* c */"}}));
}

TEST(StringsFile, UnderstandsEscapes) {
  EXPECT_EQ(parseStrings(R"("k" = "\"q\" \\ a\nb\tc\rd \'";)"), (StringTable{{"k", "\"q\" \\ a\nb\tc\rd '"}}));
}

TEST(StringsFile, UnderstandsNumberedCharactersAndSurrogatePairs) {
  EXPECT_EQ(parseStrings(R"("k" = "\U00e9\u20AC \ud83d\ude00!";)"), (StringTable{{"k", "é€ 😀!"}}));
}

TEST(StringsFile, RefusesHalfASurrogatePair) {
  EXPECT_EQ(reasonFor(R"("k" = "\ud83d!";)"), "line 1: an escape names no character");
  EXPECT_EQ(reasonFor(R"("k" = "\ud83d\u0041";)"), "line 1: an escape names no character");
  EXPECT_EQ(reasonFor(R"("k" = "\ude00";)"), "line 1: an escape names no character");
  EXPECT_EQ(reasonFor(R"("k" = "\Uxyz";)"), "line 1: an escape names no character");
}

TEST(StringsFile, ReadsUnquotedWords) {
  EXPECT_EQ(parseStrings("CFBundleName = Kelto; url = http://kelto.com/a-b;"),
            (StringTable{{"CFBundleName", "Kelto"}, {"url", "http://kelto.com/a-b"}}));
}

TEST(StringsFile, AKeyWithoutValueStandsForItself) {
  EXPECT_EQ(parseStrings("\"Kelto\";"), (StringTable{{"Kelto", "Kelto"}}));
}

TEST(StringsFile, ALaterDefinitionWins) { EXPECT_EQ(parseStrings("a = 1; a = 2;"), (StringTable{{"a", "2"}})); }

TEST(StringsFile, AValueMayReachOverLines) { EXPECT_EQ(parseStrings("a = \"x\ny\";"), (StringTable{{"a", "x\ny"}})); }

TEST(StringsFile, ReadsEveryEncoding) {
  const StringTable expected{{"k", "é 😀"}};
  EXPECT_EQ(parseStrings("\"k\" = \"é 😀\";"), expected);
  EXPECT_EQ(parseStrings("\xEF\xBB\xBF\"k\" = \"é 😀\";"), expected);
  EXPECT_EQ(parseStrings(utf16(u"\"k\" = \"é 😀\";", false)), expected);
  EXPECT_EQ(parseStrings(utf16(u"\"k\" = \"é 😀\";", true)), expected);
}

TEST(StringsFile, RefusesBytesThatAreNotText) {
  EXPECT_EQ(reasonFor("\"k\" = \"\xE9\";"), "the table is not well-formed UTF-8 or UTF-16 text");
  EXPECT_EQ(reasonFor(utf16(u"\"k\";", true).substr(0, 7)), "the table is not well-formed UTF-8 or UTF-16 text");
  EXPECT_EQ(reasonFor(std::string("\xFF\xFE\x00\xD8", 4)), "the table is not well-formed UTF-8 or UTF-16 text");
}

TEST(StringsFile, AnErrorNamesItsLine) {
  EXPECT_EQ(reasonFor("a = b;\n\nc = d\ne = f;"), "line 4: a semicolon is missing");
  EXPECT_EQ(reasonFor("a = b;\n= c;"), "line 2: a key should stand here");
  EXPECT_EQ(reasonFor("a = b;\nc = ;"), "line 2: a value should stand here");
  EXPECT_EQ(reasonFor("a = b;\nc = \"d;\n\n"), "line 2: a quotation has no end");
  EXPECT_EQ(reasonFor("a = b;\n/* c"), "line 2: a comment has no end");
  EXPECT_EQ(reasonFor("\"a\\"), "line 1: a quotation has no end");
}

TEST(StringsFile, TheReasonIsUntouchedOnSuccess) {
  std::string reason = "before";
  EXPECT_TRUE(parseStrings("a = b;", &reason));
  EXPECT_EQ(reason, "before");
}

TEST(StringsFile, ReadsATableThatIsAPropertyList) {
  const auto text = foundation::PropertyList::serializeXML(foundation::PropertyList::Dictionary{{"<OK>", "D’accord"}});
  EXPECT_EQ(parseStrings(text), (StringTable{{"<OK>", "D’accord"}}));
}

TEST(StringsFile, RefusesAPropertyListOfAnotherShape) {
  EXPECT_EQ(reasonFor("<plist><array/></plist>"), "the property list is not a dictionary");
  EXPECT_EQ(reasonFor("<plist><dict><key>a</key><true/></dict></plist>"), "the value of \"a\" is not a string");
  EXPECT_EQ(reasonFor("<plist>"), "line 1: the document ends early");
}

TEST(StringsFile, RefusesATableThatIsTooLarge) {
  EXPECT_EQ(reasonFor(std::string(foundation::PropertyList::maximumBytes + 1, ' ')),
            "the table is larger than 16777216 bytes");
}

TEST(StringsFile, EveryTruncationIsReadOrRefused) {
  const std::string whole = "/* c */ \"<Key>\" = \"a\\U00e9\\\"\"; word; // end\n";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto table = parseStrings(whole.substr(0, length));
    if (table) {
      EXPECT_LE(table->size(), 2U);
    }
  }
}
