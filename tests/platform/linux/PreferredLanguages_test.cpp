#include "platform/linux/PreferredLanguages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "platform/fake/FakePlatform.h"
#include "tests/support/Environment.h"
#include "tests/support/ShippedLanguages.h"

using foundation::PropertyList::Array;
using platform::Linux::languagesOfTheEnvironment;
using platform::Linux::matchingLocalizations;
using platform::Linux::preferredLanguages;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Names = std::vector<std::string>;

// The installer's own localizations.
const Names shipped(tests::shippedLanguages.begin(), tests::shippedLanguages.end());

Names matches(const Names& wanted, const Names& available = shipped) {
  return matchingLocalizations(available, wanted, "en");
}

class Languages : public testing::Test {
 protected:
  void set(const char* name, const char* value) { _variables.emplace_back(name, value); }

 private:
  std::deque<tests::EnvironmentVariable> _variables;
  tests::EnvironmentVariable _language{"LANGUAGE", std::nullopt};
  tests::EnvironmentVariable _all{"LC_ALL", std::nullopt};
  tests::EnvironmentVariable _messages{"LC_MESSAGES", std::nullopt};
  tests::EnvironmentVariable _lang{"LANG", std::nullopt};
};

}  // namespace

TEST_F(Languages, WithoutVariablesThereAreNone) { EXPECT_THAT(languagesOfTheEnvironment(), IsEmpty()); }

TEST_F(Languages, TheListComesFirst) {
  set("LANGUAGE", "sv:de_AT.UTF-8::fr");
  set("LC_ALL", "it_IT.UTF-8");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("sv", "de_AT", "fr"));
}

TEST_F(Languages, TheLocaleOfAllCategoriesComesBeforeThatOfMessages) {
  set("LANG", "de_DE.UTF-8");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("de_DE"));
  set("LC_MESSAGES", "fr_FR.UTF-8");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("fr_FR"));
  set("LC_ALL", "it_IT@euro");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("it_IT"));
}

TEST_F(Languages, AModifierCountsWhenItNamesAScript) {
  set("LANG", "sr_RS.UTF-8@latin");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("sr_Latn_RS"));
  set("LANGUAGE", "sr@latin:ca_ES@valencia");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("sr_Latn", "ca_ES"));
}

TEST_F(Languages, AnEmptyVariableCountsAsAbsent) {
  set("LC_ALL", "");
  set("LANGUAGE", "");
  set("LANG", "nl_NL");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("nl_NL"));
}

TEST_F(Languages, TheListCountsWhetherThereIsALocaleOrNot) {
  set("LANGUAGE", "ja");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("ja"));
  for (const char* locale : {"C", "POSIX", "C.UTF-8", "en_US.UTF-8"}) {
    set("LANG", locale);
    EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("ja")) << locale;
  }
}

TEST_F(Languages, TheCLocaleAloneNamesNone) {
  set("LANG", "C");
  EXPECT_THAT(languagesOfTheEnvironment(), IsEmpty());
  set("LANG", "POSIX");
  EXPECT_THAT(languagesOfTheEnvironment(), IsEmpty());
}

TEST_F(Languages, TheListCountsInTheCLocaleWithAnEncodingAsItDoesForTheCLibrary) {
  set("LANG", "C.UTF-8");
  EXPECT_THAT(languagesOfTheEnvironment(), IsEmpty());
  set("LANGUAGE", "de:C");
  EXPECT_THAT(languagesOfTheEnvironment(), ElementsAre("de"));
}

TEST_F(Languages, TheDefaultsWinOverTheEnvironment) {
  set("LANG", "de_DE.UTF-8");
  platform::fake::FakeUserDefaults defaults;
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("de_DE"));
  defaults.setObject("AppleLanguages", Array{"sv-SE", 5, "ja"});
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("sv-SE", "ja"));
}

TEST_F(Languages, AListInTheDefaultsMayBeText) {
  platform::fake::FakeUserDefaults defaults;
  defaults.setObject("AppleLanguages", "(de, \"pt-BR\", zh-Hans)");
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("de", "pt-BR", "zh-Hans"));
  defaults.setObject("AppleLanguages", "nb");
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("nb"));
}

TEST_F(Languages, DefaultsThatNameNoLanguageDoNotCount) {
  set("LANG", "de_DE.UTF-8");
  platform::fake::FakeUserDefaults defaults;
  defaults.setObject("AppleLanguages", Array{});
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("de_DE"));
  defaults.setObject("AppleLanguages", true);
  EXPECT_THAT(preferredLanguages(defaults), ElementsAre("de_DE"));
}

TEST(MatchingLocalizations, ARegionalLanguageFallsBackToThePlainOne) {
  EXPECT_THAT(matches({"de-AT"}), ElementsAre("de", "en"));
  EXPECT_THAT(matches({"fr_CA"}), ElementsAre("fr", "en"));
  EXPECT_THAT(matches({"en_AU"}), ElementsAre("en"));
}

TEST(MatchingLocalizations, TheRegionComesBeforeThePlainLanguage) {
  EXPECT_THAT(matches({"en_GB"}), ElementsAre("en-GB", "en"));
  EXPECT_THAT(matches({"pt_BR"}), ElementsAre("pt-BR", "pt", "en"));
}

TEST(MatchingLocalizations, AnotherRegionIsTakenOnlyWhenThereIsNothingNearer) {
  EXPECT_THAT(matches({"pt-PT"}, {"en", "pt-BR"}), ElementsAre("pt-BR", "en"));
  EXPECT_THAT(matches({"pt"}, {"en", "pt-BR"}), ElementsAre("pt-BR", "en"));
  EXPECT_THAT(matches({"pt-BR"}, {"en", "pt-AO", "pt-BR"}), ElementsAre("pt-BR", "en"));
}

TEST(MatchingLocalizations, ChineseIsMatchedByItsScript) {
  for (const char* name : {"zh_CN", "zh-CN", "zh", "zh-Hans", "zh-Hans-CN", "zh_SG"})
    EXPECT_THAT(matches({name}), ElementsAre("zh-Hans", "en")) << name;
  for (const char* name : {"zh_TW", "zh-HK", "zh_MO.UTF-8", "zh-Hant", "zh-Hant-HK", "zh_hant_cn"})
    EXPECT_THAT(matches({name}), ElementsAre("zh-Hant", "en")) << name;
  EXPECT_THAT(matches({"zh_TW"}, {"en", "zh-Hans"}), ElementsAre("en"));
}

TEST(MatchingLocalizations, SerbianIsMatchedByItsScript) {
  for (const char* name : {"sr", "sr_RS", "sr_RS.UTF-8", "sr-Cyrl", "sr-Cyrl-BA", "sr_ME"})
    EXPECT_THAT(matches({name}), ElementsAre("sr", "en")) << name;
  for (const char* name : {"sr@latin", "sr_RS@latin", "sr_RS.UTF-8@latin", "sr-Latn", "sr_Latn_ME"})
    EXPECT_THAT(matches({name}), ElementsAre("sr-Latn", "en")) << name;
}

TEST(MatchingLocalizations, TheUsualScriptOfALanguageMayBeNamed) {
  EXPECT_THAT(matches({"ru-Cyrl-RU", "ar_Arab_EG", "ko-Kore", "de-Latn"}), ElementsAre("ru", "ar", "ko", "de", "en"));
  EXPECT_THAT(matches({"hi-Latn"}), ElementsAre("en"));
}

TEST(MatchingLocalizations, PortugueseOutsideBrazilIsThatOfEurope) {
  for (const char* name : {"pt", "pt_PT", "pt_AO.UTF-8", "pt-MZ"})
    EXPECT_THAT(matches({name}), ElementsAre("pt", "en")) << name;
}

TEST(MatchingLocalizations, EveryShippedLanguageIsItsOwnBestMatch) {
  for (const std::string& name : shipped) EXPECT_EQ(matches({name}).front(), name);
}

TEST(MatchingLocalizations, EveryKindOfNorwegianIsBokmal) {
  for (const char* name : {"nb_NO", "no", "nn_NO", "no_NO"}) EXPECT_THAT(matches({name}), ElementsAre("nb", "en")) << name;
}

TEST(MatchingLocalizations, SeveralLanguagesKeepTheirOrderAndAppearOnce) {
  EXPECT_THAT(matches({"fr-CA", "eo", "de-DE", "fr"}), ElementsAre("fr", "de", "en"));
  EXPECT_THAT(matches({"en", "sv"}), ElementsAre("en", "sv"));
}

TEST(MatchingLocalizations, TheDevelopmentRegionIsUsedWhenNoLanguageMatches) {
  EXPECT_THAT(matches({"eo"}), ElementsAre("en"));
  EXPECT_THAT(matches({}), ElementsAre("en"));
  EXPECT_THAT(matches({"eo"}, {}), ElementsAre("en"));
  EXPECT_THAT(matchingLocalizations({"de", "sv"}, {}, "sv"), ElementsAre("sv"));
}

TEST(MatchingLocalizations, ALanguageIsMatchedWhateverItsSpelling) {
  EXPECT_THAT(matches({"DE_de.utf8"}), ElementsAre("de", "en"));
  EXPECT_THAT(matches({"zh-hans-cn"}, {"zh_Hans"}), ElementsAre("zh_Hans"));
}
