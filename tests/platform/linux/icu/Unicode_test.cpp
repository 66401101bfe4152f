// The character classes and foldings against the files of the Unicode character database.
#include "platform/Unicode.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "platform/linux/icu/FoldingTable.h"

using namespace platform::Unicode;

namespace {

constexpr const char* database = "/usr/share/unicode/";

std::u16string encoded(char32_t character) {
  if (character < 0x10000) return {static_cast<char16_t>(character)};
  const char32_t rest = character - 0x10000;
  return {static_cast<char16_t>(0xD800 + (rest >> 10)), static_cast<char16_t>(0xDC00 + (rest & 0x3FF))};
}

std::vector<std::string> fields(const std::string& line) {
  std::vector<std::string> all;
  std::istringstream stream(line.substr(0, line.find('#')));
  for (std::string field; std::getline(stream, field, ';');) {
    const auto start = field.find_first_not_of(' ');
    all.push_back(start == std::string::npos ? "" : field.substr(start));
  }
  return all;
}

std::u16string charactersOf(const std::string& list) {
  std::u16string text;
  std::istringstream stream(list);
  for (std::string number; stream >> number;) text += encoded(static_cast<char32_t>(std::stoul(number, nullptr, 16)));
  return text;
}

struct Character {
  std::string category;
  std::string decomposition;
};

// Every character of the database with its own line; nothing when the file is not there.
const std::map<char32_t, Character>& characters() {
  static const auto all = [] {
    std::map<char32_t, Character> read;
    std::ifstream file(std::string(database) + "UnicodeData.txt");
    for (std::string line; std::getline(file, line);) {
      const auto parts = fields(line);
      read[static_cast<char32_t>(std::stoul(parts[0], nullptr, 16))] = {parts[2], parts[5]};
    }
    return read;
  }();
  return all;
}

// The canonical decomposition, marks left out.
std::u16string withoutMarks(char32_t character) {
  const auto place = characters().find(character);
  if (place == characters().end()) return encoded(character);
  if (place->second.category == "Mn") return {};
  const auto& parts = place->second.decomposition;
  if (parts.empty() || parts[0] == '<') return encoded(character);
  std::u16string text;
  std::istringstream stream(parts);
  for (std::string number; stream >> number;) text += withoutMarks(static_cast<char32_t>(std::stoul(number, nullptr, 16)));
  return text;
}

class UnicodeDatabase : public testing::Test {
 protected:
  void SetUp() override {
    if (characters().empty()) GTEST_SKIP() << "the package unicode-data is not installed";
  }
};

bool isClass(char16_t unit, const std::string& letters) {
  const auto place = characters().find(unit);
  return place != characters().end() && letters.find(place->second.category[0]) != std::string::npos;
}

// In UnicodeData.txt some blocks are given by their first and last character only; all of them are letters.
bool isInBlock(char16_t unit) {
  return (unit >= 0x3400 && unit <= 0x4DBF) || (unit >= 0x4E00 && unit <= 0x9FFF) || (unit >= 0xAC00 && unit <= 0xD7A3);
}

}  // namespace

TEST_F(UnicodeDatabase, HasTheClassesOfEveryUnit) {
  for (unsigned n = 0; n < 0x10000; ++n) {
    const auto unit = static_cast<char16_t>(n);
    const auto place = characters().find(unit);
    const std::string category = place == characters().end() ? "" : place->second.category;
    EXPECT_EQ(isWhitespace(unit), category == "Zs" || n == 9) << n;
    EXPECT_EQ(isWhitespaceOrNewline(unit), isClass(unit, "Z") || (n >= 9 && n <= 13) || n == 0x85) << n;
    EXPECT_EQ(isPunctuation(unit), isClass(unit, "P")) << n;
    EXPECT_EQ(isAlphanumeric(unit), isClass(unit, "LMN") || isInBlock(unit)) << n;
  }
}

TEST_F(UnicodeDatabase, HasTheCaseFoldingOfEveryCharacter) {
  std::map<char32_t, std::u16string> expected;
  std::ifstream file(std::string(database) + "CaseFolding.txt");
  for (std::string line; std::getline(file, line);) {
    const auto parts = fields(line);
    if (parts.size() > 2 && (parts[1] == "C" || parts[1] == "F"))
      expected[static_cast<char32_t>(std::stoul(parts[0], nullptr, 16))] = charactersOf(parts[2]);
  }
  EXPECT_GT(expected.size(), 1400U);
  for (char32_t c = 0; c < 0x20000; ++c) {
    if (c >= 0xD800 && c < 0xE000) continue;
    const auto place = expected.find(c);
    EXPECT_EQ(folded(encoded(c), CaseInsensitiveSearch), place == expected.end() ? encoded(c) : place->second)
        << static_cast<unsigned>(c);
  }
}

TEST_F(UnicodeDatabase, HasTheLetterUnderEveryAccent) {
  int folding = 0;
  for (const auto& [c, character] : characters()) {
    if (c > 0x20000 || (c >= 0xAC00 && c < 0xE000)) continue;
    const std::u16string expected = withoutMarks(c);
    if (expected == encoded(c)) continue;
    ++folding;
    // A character that falls into several without a mark may be put together again.
    if (expected.size() > 1) continue;
    EXPECT_EQ(folded(encoded(c), DiacriticInsensitiveSearch), expected) << static_cast<unsigned>(c);
  }
  EXPECT_GT(folding, 2000);
}

TEST_F(UnicodeDatabase, HasTheOrdinaryFormOfEveryWideAndNarrowOne) {
  int folding = 0;
  for (const auto& [c, character] : characters()) {
    if (c > 0xFFFF || (c >= 0xD800 && c < 0xE000)) continue;
    const bool isOther = character.decomposition.starts_with("<wide>") || character.decomposition.starts_with("<narrow>");
    if (!isOther) {
      EXPECT_EQ(folded(encoded(c), WidthInsensitiveSearch), encoded(c)) << static_cast<unsigned>(c);
      continue;
    }
    ++folding;
    EXPECT_EQ(folded(encoded(c), WidthInsensitiveSearch),
              charactersOf(character.decomposition.substr(character.decomposition.find('>') + 1)))
        << static_cast<unsigned>(c);
  }
  EXPECT_GT(folding, 200);
}

TEST(Folding, OnlyTheOptionsAskedForApply) {
  EXPECT_EQ(folded(u"\uFF21\u00C9", 0), u"\uFF21\u00C9");
  EXPECT_EQ(folded(u"\uFF21\u00C9", CaseInsensitiveSearch), u"\uFF41\u00E9");
  EXPECT_EQ(folded(u"\uFF21\u00C9", DiacriticInsensitiveSearch), u"\uFF21E");
  EXPECT_EQ(folded(u"\uFF21\u00C9", WidthInsensitiveSearch), u"A\u00C9");
  EXPECT_EQ(folded(u"\uFF21\u00C9", CaseInsensitiveSearch | DiacriticInsensitiveSearch | WidthInsensitiveSearch), u"ae");
  EXPECT_EQ(
      folded(u"\uFF21\u00C9", LiteralSearch | BackwardsSearch | AnchoredSearch | NumericSearch | ForcedOrderingSearch),
      u"\uFF21\u00C9");
}

TEST(Folding, ALongASCIITextFoldsLikeItsCharacters) {
  for (unsigned shift = 0; shift < 4; ++shift) {
    std::u16string text(shift, u'-');
    std::u16string expected = text;
    for (char16_t c = 0; c < 0x80; ++c) {
      text += c;
      expected += c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 0x20) : c;
    }
    EXPECT_EQ(folded(text, CaseInsensitiveSearch), expected);
    EXPECT_EQ(folded(text, DiacriticInsensitiveSearch), text);
    EXPECT_EQ(folded(text + u'\u00C9', CaseInsensitiveSearch), expected + u'\u00E9');
    EXPECT_EQ(folded(text + u'\u00C9', DiacriticInsensitiveSearch), text + u'E');
  }
}

TEST(Folding, ANarrowLetterJoinsWithItsSoundMark) { EXPECT_EQ(folded(u"\uFF76\uFF9E", WidthInsensitiveSearch), u"\u30AC"); }

TEST(Folding, MarksGoWhereverTheyStand) {
  EXPECT_EQ(folded(u"e\u0301a\u0302\u0323", DiacriticInsensitiveSearch), u"ea");
  EXPECT_EQ(folded(u"\u0301", DiacriticInsensitiveSearch), u"");
}

TEST(Folding, AnEmojiIsFoldedByTheTable) {
  std::u16string result;
  EXPECT_TRUE(platform::Linux::foldByTable(u"\U0001F600 \u00C9", CaseInsensitiveSearch, result));
  EXPECT_EQ(result, u"\U0001F600 \u00E9");
  EXPECT_FALSE(platform::Linux::foldByTable(u"\U00010400", CaseInsensitiveSearch, result));
  EXPECT_EQ(folded(u"\U00010400", CaseInsensitiveSearch), u"\U00010428");
}

TEST(Folding, TheBufferIsReplaced) {
  std::u16string buffer = u"something that was there before";
  fold(u"ABC", CaseInsensitiveSearch, buffer);
  EXPECT_EQ(buffer, u"abc");
  fold(u"\u1100\u1161", DiacriticInsensitiveSearch, buffer);
  EXPECT_EQ(buffer, u"\uAC00");
  fold(u"", CaseInsensitiveSearch, buffer);
  EXPECT_EQ(buffer, u"");
}

// The table folds unit by unit; it must never differ from folding the whole text.
RC_GTEST_PROP(Folding, TheTableAgreesWithTheLibraryOnAnyText, ()) {
  const auto character = rc::gen::oneOf(
      rc::gen::inRange<char32_t>(0, 0x10000), rc::gen::inRange<char32_t>(0, 0x600),
      rc::gen::inRange<char32_t>(0x900, 0xE00), rc::gen::inRange<char32_t>(0x1100, 0x1200),
      rc::gen::inRange<char32_t>(0x1E00, 0x2000), rc::gen::inRange<char32_t>(0x3000, 0x3100),
      rc::gen::inRange<char32_t>(0xAC00, 0xAC40), rc::gen::inRange<char32_t>(0xFF00, 0xFFE7),
      rc::gen::inRange<char32_t>(0x1F600, 0x1F640), rc::gen::inRange<char32_t>(0x10400, 0x10450),
      rc::gen::inRange<char32_t>(0x11080, 0x110C8), rc::gen::inRange<char32_t>(0x11100, 0x11150),
      rc::gen::inRange<char32_t>(0x1D158, 0x1D190),
      rc::gen::elementOf(std::u32string(U"\u0BC6\u0BBE\u0345\u0301\u0323\u302E\u302F\u09C7\u09BE\U0002F800")));
  std::u16string text;
  for (const char32_t c : *rc::gen::container<std::u32string>(character)) text += encoded(c);
  const auto options = *rc::gen::element<CompareOptions>(1, 128, 129, 256, 257, 384, 385);
  std::u16string byTable;
  const bool isWhole = platform::Linux::foldByTable(text, options, byTable);
  RC_CLASSIFY(isWhole, "by table");
  if (isWhole) RC_ASSERT(byTable == platform::Linux::foldedByLibrary(text, options));
  RC_ASSERT(folded(text, options) == platform::Linux::foldedByLibrary(text, options));
}

TEST(Folding, ThreadsThatFoldAtOnceAgree) {
  std::u16string text;
  for (unsigned n = 0x20; n < 0xD800; n += 7) text += static_cast<char16_t>(n);
  std::vector<std::u16string> results(4);
  std::vector<std::thread> threads;
  for (auto& result : results)
    threads.emplace_back([&] {
      for (const char16_t unit : text) result += folded({&unit, 1}, 385);
    });
  for (auto& thread : threads) thread.join();
  for (const auto& result : results) EXPECT_EQ(result, results[0]);
}

// A text folded twice is as folded once, also when the first time left the marks: the search relies on it.
RC_GTEST_PROP(Folding, FoldingAgainWithoutMarksIsFoldingOnceWithoutMarks, ()) {
  const auto unit = rc::gen::oneOf(rc::gen::inRange<char16_t>(0x20, 0x250), rc::gen::inRange<char16_t>(0x370, 0x400),
                                   rc::gen::inRange<char16_t>(0x1E00, 0x2000));
  const auto text = *rc::gen::container<std::u16string>(unit);
  RC_ASSERT(folded(folded(text, 1), 129) == folded(text, 129));
}

TEST(Text, GoesFromUTF8ToUTF16AndBack) {
  EXPECT_EQ(utf16("a\u00E9\u20AC\U0001F600"), u"a\u00E9\u20AC\U0001F600");
  EXPECT_EQ(utf8(u"a\u00E9\u20AC\U0001F600"), "a\u00E9\u20AC\U0001F600");
  EXPECT_EQ(utf16(std::string("\0a", 2)), std::u16string(u"\0a", 2));
  EXPECT_EQ(utf16(""), u"");
}

TEST(Text, IllFormedTextBecomesTheReplacementCharacter) {
  EXPECT_EQ(utf16("a\xFFz"), u"a\uFFFDz");
  EXPECT_EQ(utf8(std::u16string{u'a', 0xD800}), "a\uFFFD");
}
