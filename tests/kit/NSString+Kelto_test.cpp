#include "kit/NSString+Kelto.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace NSString::Kelto;
using namespace platform::Unicode;

namespace {

constexpr Range none{};

Range search(std::u16string_view text, std::u16string_view needle, CompareOptions options = CaseInsensitiveSearch) {
  return rangeOfSearchableString_options(text, needle, options);
}

}  // namespace

TEST(SearchableString, NotFoundIsTheMarkerWithLengthZero) {
  EXPECT_EQ(search(u"abc", u"x").location, 0x7fffffffffffffffU);
  EXPECT_EQ(search(u"abc", u"x").length, 0U);
}

TEST(SearchableString, SpacesAndPunctuationOfTheTextArePassedOverAndCounted) {
  EXPECT_EQ(search(u"Rock & Roll", u"rock roll"), (Range{0, 11}));
  EXPECT_EQ(search(u"The Rock-&-Roll!", u"rock roll"), (Range{4, 11}));
}

TEST(SearchableString, APlainNeedleFindsAccentedLetters) {
  EXPECT_EQ(search(u"Café", u"cafe"), (Range{0, 4}));
  EXPECT_EQ(rangeOfSearchableString(u"café", u"cafe"), (Range{0, 4}));
}

TEST(SearchableString, AnAccentThatIsTypedMustBeThere) {
  EXPECT_EQ(search(u"Cafe", u"café"), none);
  EXPECT_EQ(search(u"Café", u"café"), (Range{0, 4}));
}

TEST(SearchableString, WithAnAccentInTheNeedleAndNoOptionsTheTextStaysAsItIs) {
  EXPECT_EQ(rangeOfSearchableString(u"Café", u"Café"), (Range{0, 4}));
  EXPECT_EQ(rangeOfSearchableString(u"café", u"Café"), none);
}

TEST(SearchableString, WithoutTheOptionCaseCounts) {
  EXPECT_EQ(rangeOfSearchableString(u"Rock", u"rock"), none);
  EXPECT_EQ(rangeOfSearchableString(u"Rock", u"Rock"), (Range{0, 4}));
}

TEST(SearchableString, TheDiacriticOptionFoldsANeedleWithAccentsToo) {
  EXPECT_EQ(search(u"Cafe", u"Café", DiacriticInsensitiveSearch), (Range{0, 4}));
}

TEST(SearchableString, TheWidthOptionFindsWideForms) {
  EXPECT_EQ(search(u"ＡＢＣ", u"ABC", WidthInsensitiveSearch), (Range{0, 3}));
  EXPECT_EQ(search(u"ＡＢＣ", u"abc", WidthInsensitiveSearch), none);
  EXPECT_EQ(search(u"ＡＢＣ", u"abc", WidthInsensitiveSearch | CaseInsensitiveSearch), (Range{0, 3}));
  EXPECT_EQ(rangeOfSearchableString(u"ＡＢＣ", u"ABC"), none);
}

TEST(SearchableString, PunctuationInTheNeedleMakesPunctuationCount) {
  EXPECT_EQ(search(u"AC/DC", u"AC/DC"), (Range{0, 5}));
  EXPECT_EQ(search(u"ACDC", u"AC/DC"), none);
  EXPECT_EQ(search(u"AC / DC", u"AC/DC"), (Range{0, 7}));
  EXPECT_EQ(search(u"AC/DC", u"ACDC"), (Range{0, 5}));
}

TEST(SearchableString, ANeedleOfIgnorableCharactersIsNotFound) {
  EXPECT_EQ(search(u"a b", u"  "), none);
  EXPECT_EQ(search(u"a b", u"\t\u00A0"), none);
}

TEST(SearchableString, LineBreaksAreNotPassedOver) {
  EXPECT_EQ(search(u"a\nb", u"ab"), none);
  EXPECT_EQ(search(u"a\nb", u"a\nb"), (Range{0, 3}));
}

TEST(SearchableString, UnicodeSpacesAndPunctuationArePassedOver) {
  EXPECT_EQ(search(u"a\u2003\u2014\u3000b", u"ab"), (Range{0, 5}));
  EXPECT_EQ(search(u"a\u2014b", u"a\u2014b"), (Range{0, 3}));
}

TEST(SearchableString, SymbolsAreNotPunctuation) { EXPECT_EQ(search(u"a+b", u"ab"), none); }

TEST(SearchableString, ARangeThatEndsBeforeTheNeedleCouldIsNotFound) {
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"abc", 0, {0, 2}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"a b c", 0, {0, 3}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"abc", 0, {0, 3}), (Range{0, 3}));
}

TEST(SearchableString, EmptyTextsAndMarkedRangesAreNotFound) {
  EXPECT_EQ(rangeOfSearchableString(u"", u"a"), none);
  EXPECT_EQ(rangeOfSearchableString(u"a", u""), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"a", 0, {notFound, 3}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"a", 0, {4, 3}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abc", u"a", 0, {3, 1}), none);
}

TEST(SearchableString, ARangeBehindTheTextIsNotFoundEvenWhereFoldingReachesIt) {
  EXPECT_EQ(rangeOfSearchableString_options_range(u"ßß", u"s", CaseInsensitiveSearch, {3, 1}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"ßß", u"s", CaseInsensitiveSearch, {2, 1}), (Range{2, 1}));
}

TEST(SearchableString, OnlyTheRangeIsLookedAt) {
  EXPECT_EQ(rangeOfSearchableString_options_range(u"abab", u"ab", 0, {1, 3}), (Range{2, 2}));
  EXPECT_EQ(rangeOfSearchableString_options_range(u"xxab", u"ab", 0, {0, 3}), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"xxab", u"ab", 0, {0, 100}), (Range{2, 2}));
}

TEST(SearchableString, ANeedleWhosePrefixRepeatsCanBeMissed) {
  EXPECT_EQ(rangeOfSearchableString(u"aaab", u"aab"), none);
  EXPECT_EQ(rangeOfSearchableString(u"aaaab", u"aab"), (Range{2, 3}));
  EXPECT_EQ(rangeOfSearchableString(u"aaaaab", u"aab"), none);
  EXPECT_EQ(rangeOfSearchableString(u"abaab", u"aab"), (Range{2, 3}));
}

TEST(SearchableString, TheUnitThatFailedIsTriedAgainAsTheFirst) {
  EXPECT_EQ(rangeOfSearchableString(u"aab", u"ab"), (Range{1, 2}));
  EXPECT_EQ(rangeOfSearchableString(u"a ab", u"ab"), (Range{2, 2}));
}

TEST(SearchableString, IndicesAreThoseOfTheFoldedText) {
  EXPECT_EQ(search(u"Straße 5!", u"5"), (Range{8, 1}));
  EXPECT_EQ(search(u"e\u0301x", u"x"), (Range{1, 1}));
}

TEST(SearchableString, UnitsThatFoldingPushesBeyondTheRangeAreNotSearched) {
  EXPECT_EQ(search(u"Straße 5", u"5"), none);
  EXPECT_EQ(rangeOfSearchableString_options_range(u"Straße 5", u"5", CaseInsensitiveSearch, {0, 9}), (Range{8, 1}));
}

TEST(SearchableString, ATextThatFoldsToNothingHasNoMatch) { EXPECT_EQ(rangeOfSearchableString(u"\u0301", u"a"), none); }

TEST(SearchableString, BackwardsAndAnchoredHaveNoEffect) {
  const CompareOptions others = BackwardsSearch | AnchoredSearch | LiteralSearch | NumericSearch | ForcedOrderingSearch;
  EXPECT_EQ(search(u"xabab", u"ab", others), (Range{1, 2}));
  EXPECT_EQ(search(u"xABab", u"ab", others), (Range{3, 2}));
}

TEST(SearchableString, TheOptionsHaveThePlatformsValues) {
  EXPECT_EQ(
      (std::vector<CompareOptions>{CaseInsensitiveSearch, LiteralSearch, BackwardsSearch, AnchoredSearch, NumericSearch,
                                   DiacriticInsensitiveSearch, WidthInsensitiveSearch, ForcedOrderingSearch}),
      (std::vector<CompareOptions>{1, 2, 4, 8, 64, 128, 256, 512}));
}

TEST(SearchableString, APreparedNeedleServesManyTexts) {
  const SearchableString needle(u"rock roll", CaseInsensitiveSearch);
  EXPECT_EQ(needle.rangeIn(u"Rock & Roll"), (Range{0, 11}));
  EXPECT_EQ(needle.rangeIn(u"Roll & Rock"), none);
  EXPECT_EQ(needle.rangeIn(u"ROCKROLL IS IT"), (Range{0, 8}));
  EXPECT_EQ(needle.rangeIn(u"x Rock & Roll", {2, 11}), (Range{2, 11}));
}

TEST(SearchableString, AVeryLongTextIsSearchedToo) {
  std::u16string text(200'000, u'X');
  text += u"Needle";
  EXPECT_EQ(search(text, u"needle"), (Range{200'000, 6}));
}

TEST(ContainsString, FindsAPartAndHonoursCase) {
  EXPECT_TRUE(containsString(u"Hello World", u"lo W"));
  EXPECT_FALSE(containsString(u"Hello", u"hello"));
  EXPECT_TRUE(containsString_ignoringCase(u"Hello", u"hELLO", true));
  EXPECT_FALSE(containsString_ignoringCase(u"Hello", u"hELLO", false));
  EXPECT_FALSE(containsString(u"lo", u"Hello"));
}

TEST(ContainsString, NothingContainsTheEmptyText) {
  EXPECT_FALSE(containsString(u"Hello", u""));
  EXPECT_FALSE(containsString(u"", u""));
  EXPECT_FALSE(containsString_ignoringCase(u"Hello", u"", true));
}

TEST(ContainsString, IgnoresCaseBeyondASCII) {
  EXPECT_TRUE(containsString_ignoringCase(u"STRASSE", u"straße", true));
  EXPECT_TRUE(containsString_ignoringCase(u"ÉCOLE", u"école", true));
  EXPECT_FALSE(containsString_ignoringCase(u"ÉCOLE", u"ecole", true));
}

TEST(ContainsString, HowAnAccentIsSpelledDoesNotMatter) {
  EXPECT_TRUE(containsString(u"caf\u00E9", u"cafe\u0301"));
  EXPECT_TRUE(containsString(u"cafe\u0301", u"caf\u00E9"));
}

TEST(ContainsString, ALetterIsNotTornFromItsAccent) {
  EXPECT_FALSE(containsString(u"caf\u00E9", u"cafe"));
  EXPECT_FALSE(containsString(u"cafe\u0301", u"cafe"));
  EXPECT_FALSE(containsString(u"x\u0302", u"x"));
  EXPECT_TRUE(containsString(u"x\u0302x", u"x"));
}

TEST(Trimming, LeadingWhitespaceGoes) {
  EXPECT_EQ(stringByTrimmingLeadingWhitespace(u" \t\u00A0ab "), u"ab ");
  EXPECT_EQ(stringByTrimmingLeadingWhitespace(u"ab"), u"ab");
  EXPECT_EQ(stringByTrimmingLeadingWhitespace(u"\n ab"), u"\n ab");
}

TEST(Trimming, LeadingWithoutAnotherCharacterIsOutOfRange) {
  EXPECT_THROW((void)stringByTrimmingLeadingWhitespace(u""), std::out_of_range);
  EXPECT_THROW((void)stringByTrimmingLeadingWhitespace(u" \t "), std::out_of_range);
}

TEST(Trimming, TrailingWhitespaceGoes) {
  EXPECT_EQ(stringByTrimmingTrailingWhitespace(u""), u"");
  EXPECT_EQ(stringByTrimmingTrailingWhitespace(u"ab  "), u"ab");
  EXPECT_EQ(stringByTrimmingTrailingWhitespace(u" ab\u3000\t"), u" ab");
  EXPECT_EQ(stringByTrimmingTrailingWhitespace(u"ab \n"), u"ab \n");
}

TEST(Trimming, TrailingOfAllWhitespaceIsOutOfRange) {
  EXPECT_THROW((void)stringByTrimmingTrailingWhitespace(u"  "), std::out_of_range);
}

TEST(Trimming, BothEndsAreSafeOnAnyText) {
  EXPECT_EQ(stringByTrimmingLeadingAndTrailingWhitespace(u" \ta b\u2003 "), u"a b");
  EXPECT_EQ(stringByTrimmingLeadingAndTrailingWhitespace(u" \t "), u"");
  EXPECT_EQ(stringByTrimmingLeadingAndTrailingWhitespace(u""), u"");
}
