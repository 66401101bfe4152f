#include "kit/NSURL+Kelto.h"

#include <gtest/gtest.h>

using namespace NSURL::Kelto;

namespace {

using Items = std::vector<QueryItems::Item>;

Items parsed(const std::string& query) {
  const QueryItems items = queryItems("kelto://host/path?" + query);
  return {items.begin(), items.end()};
}

std::string built(std::initializer_list<QueryItems::Item> items) { return queryStringWithDictionary(QueryItems(items)); }

}  // namespace

TEST(QueryItemsOfURL, AURLWithoutAQueryHasNone) {
  EXPECT_TRUE(queryItems("kelto://host/path").empty());
  EXPECT_TRUE(queryItems("kelto://host/path?").empty());
  EXPECT_TRUE(queryItems("").empty());
}

TEST(QueryItemsOfURL, TheQuestionMarkPartsLikeTheAmpersand) {
  EXPECT_EQ(parsed("a=1&b=2?c=3"), (Items{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

TEST(QueryItemsOfURL, PlusAndEscapesBecomeSpaces) { EXPECT_EQ(parsed("q=a+b%20c"), (Items{{"q", "a b c"}})); }

TEST(QueryItemsOfURL, AnEscapedPlusStaysAPlus) { EXPECT_EQ(parsed("a%2Bb+c=%2b"), (Items{{"a+b c", "+"}})); }

TEST(QueryItemsOfURL, AValueWithAnEqualsSignIsDropped) { EXPECT_EQ(parsed("x=1=2"), Items{}); }

TEST(QueryItemsOfURL, AComponentWithoutAnEqualsSignIsDropped) { EXPECT_EQ(parsed("x"), Items{}); }

TEST(QueryItemsOfURL, ABlankKeyIsDropped) {
  EXPECT_EQ(parsed("=5"), Items{});
  EXPECT_EQ(parsed("+=5&+\t+=6&\u3000+=7"), Items{});
}

TEST(QueryItemsOfURL, AKeyThatIsBlankOnlyWhenDecodedIsKept) { EXPECT_EQ(parsed("%20=5"), (Items{{" ", "5"}})); }

TEST(QueryItemsOfURL, AKeyWithALetterBehindAWideSpaceIsKept) { EXPECT_EQ(parsed("\u3000k=5"), (Items{{"\u3000k", "5"}})); }

TEST(QueryItemsOfURL, TheLastValueOfAKeyHolds) { EXPECT_EQ(parsed("a=1&a=2"), (Items{{"a", "2"}})); }

TEST(QueryItemsOfURL, AKeyKeepsTheSpacesAroundIt) {
  EXPECT_EQ(parsed("%20k%20=1"), (Items{{" k ", "1"}}));
  EXPECT_EQ(parsed("+k+=1"), (Items{{" k ", "1"}}));
}

TEST(QueryItemsOfURL, AnEmptyValueIsAValue) { EXPECT_EQ(parsed("a="), (Items{{"a", ""}})); }

TEST(QueryItemsOfURL, EmptyComponentsAreDropped) { EXPECT_EQ(parsed("&&a=1??b=2&"), (Items{{"a", "1"}, {"b", "2"}})); }

TEST(QueryItemsOfURL, TheFragmentDoesNotBelongToTheQuery) {
  EXPECT_EQ(parsed("a=1#b=2&c=3"), (Items{{"a", "1"}}));
  EXPECT_TRUE(queryItems("kelto://host/path#x?a=1").empty());
}

TEST(QueryItemsOfURL, EscapesAreUTF8) {
  EXPECT_EQ(parsed("%C3%A9=%e2%82%ac&raw=\u00E9"), (Items{{"\u00E9", "\u20AC"}, {"raw", "\u00E9"}}));
}

TEST(QueryItemsOfURL, AnInvalidEscapeInTheValueRemovesTheKey) {
  EXPECT_EQ(parsed("a=%"), Items{});
  EXPECT_EQ(parsed("a=%4"), Items{});
  EXPECT_EQ(parsed("a=%zz&b=2"), (Items{{"b", "2"}}));
  EXPECT_EQ(parsed("a=%FF"), Items{});
  EXPECT_EQ(parsed("a=%C0%80"), Items{});
  EXPECT_EQ(parsed("a=1&a=%4G"), Items{});
}

TEST(QueryItemsOfURL, AValueAfterAnInvalidOneHolds) { EXPECT_EQ(parsed("a=%&b=1&a=3"), (Items{{"a", "3"}, {"b", "1"}})); }

TEST(QueryItemsOfURL, AKeyWithAnInvalidEscapeIsPassedOver) { EXPECT_EQ(parsed("%4=1&b=2&%FF=3"), (Items{{"b", "2"}})); }

TEST(QueryItemsOfURL, AnEscapedNULIsACharacter) { EXPECT_EQ(parsed("a=%00b"), (Items{{"a", std::string("\0b", 2)}})); }

TEST(QueryItemsOfURL, KeysKeepTheOrderInWhichTheyCame) {
  EXPECT_EQ(parsed("z=1&a=2&m=3&a=4"), (Items{{"z", "1"}, {"a", "4"}, {"m", "3"}}));
}

TEST(QueryItemsOfURL, ManyKeysAreHandledLikeFew) {
  for (const int count : {31, 32, 33, 34, 1000}) {
    std::string query;
    Items expected;
    for (int i = 0; i < count; ++i) {
      query += "k" + std::to_string(i) + "=x&";
      expected.emplace_back("k" + std::to_string(i), std::to_string(i));
    }
    for (int i = count - 1; i >= 0; --i) query += "k" + std::to_string(i) + "=" + std::to_string(i) + "&";
    EXPECT_EQ(parsed(query), expected) << count;
  }
}

TEST(QueryItemsDictionary, ValuesAreSetReplacedAndRemoved) {
  QueryItems items{{"a", "1"}, {"b", "2"}, {"a", "3"}};
  EXPECT_EQ(items.size(), 2U);
  EXPECT_EQ(items.valueForKey("a"), "3");
  items.removeValue("a");
  EXPECT_EQ(items.valueForKey("a"), std::nullopt);
  items.removeValue("a");
  items.setValue("b", "4");
  EXPECT_EQ(items.valueForKey("b"), "4");
}

TEST(QueryString, OnePairHasNoAmpersand) { EXPECT_EQ(built({{"key", "value"}}), "key=value"); }

TEST(QueryString, AnEmptyDictionaryGivesTheEmptyString) { EXPECT_EQ(built({}), ""); }

TEST(QueryString, PairsStandInTheirOrder) { EXPECT_EQ(built({{"z", "1"}, {"a", "2"}, {"", ""}}), "z=1&a=2&="); }

TEST(QueryString, SpecialCharactersAreEscapedAndLettersAreNot) {
  EXPECT_EQ(built({{"a b", "x&y"}}), "a%20b=x%26y");
  EXPECT_EQ(built({{"\u00E9", "\u65E5"}}), "\u00E9=\u65E5");
}

TEST(QueryString, ExactlyTwentyOneCharactersAreEscaped) {
  EXPECT_EQ(built({{"k", ":/?#[]@!$&'()*+,;=\"% "}}), "k=%3A%2F%3F%23%5B%5D%40%21%24%26%27%28%29%2A%2B%2C%3B%3D%22%25%20");
  int escaped = 0;
  for (int c = 0; c < 128; ++c)
    if (built({{"k", std::string(1, static_cast<char>(c))}}).size() == 5) ++escaped;
  EXPECT_EQ(escaped, 21);
}
