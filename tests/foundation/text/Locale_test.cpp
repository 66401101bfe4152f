#include "foundation/text/Locale.h"

#include <gtest/gtest.h>

using foundation::Locale;

TEST(Locale, HasTheLanguageTheScriptAndTheCountryOfItsIdentifier) {
  EXPECT_EQ(Locale::fromIdentifier("en"), (Locale{"en", "en", std::nullopt, std::nullopt}));
  EXPECT_EQ(Locale::fromIdentifier("en-GB"), (Locale{"en-GB", "en", std::nullopt, "GB"}));
  EXPECT_EQ(Locale::fromIdentifier("zh_Hans_CN"), (Locale{"zh_Hans_CN", "zh", "Hans", "CN"}));
  EXPECT_EQ(Locale::fromIdentifier("es-419"), (Locale{"es-419", "es", std::nullopt, "419"}));
  EXPECT_EQ(Locale::fromIdentifier(""), Locale());
}

TEST(Locale, LeavesOutEncodingsModifiersAndVariants) {
  EXPECT_EQ(Locale::fromIdentifier("de_AT.UTF-8@euro"), (Locale{"de_AT.UTF-8@euro", "de", std::nullopt, "AT"}));
  EXPECT_EQ(Locale::fromIdentifier("ca-valencia-ES"), (Locale{"ca-valencia-ES", "ca", std::nullopt, "ES"}));
  EXPECT_EQ(Locale::fromIdentifier("sl-1994-IT"), (Locale{"sl-1994-IT", "sl", std::nullopt, "IT"}));
}

TEST(Locale, KeepsTheCaseOfLetters) { EXPECT_EQ(Locale::fromIdentifier("DE-de").languageCode, "DE"); }

TEST(Locale, RunsFromRightToLeftAsItsScriptDoes) {
  for (const char* identifier : {"ar", "ar-EG", "fa_IR.UTF-8", "he-IL", "ur", "ur-PK", "ku-Arab-IQ", "yi-Hebr"})
    EXPECT_TRUE(Locale::fromIdentifier(identifier).isRightToLeft()) << identifier;
  for (const char* identifier : {"", "en", "de-AT", "ru", "zh-Hant-HK", "hi", "th", "ja", "ar-Latn", "ur-Latn-PK"})
    EXPECT_FALSE(Locale::fromIdentifier(identifier).isRightToLeft()) << identifier;
}

TEST(UsualScript, IsThatOfTheLanguage) {
  EXPECT_EQ(foundation::usualScript("sr", ""), "Cyrl");
  EXPECT_EQ(foundation::usualScript("ur", "IN"), "Arab");
  EXPECT_EQ(foundation::usualScript("de", "AT"), "Latn");
  EXPECT_EQ(foundation::usualScript("xx", ""), "Latn");
}

TEST(UsualScript, OfChineseDependsOnTheCountry) {
  for (const char* country : {"", "CN", "SG"}) EXPECT_EQ(foundation::usualScript("zh", country), "Hans") << country;
  for (const char* country : {"HK", "MO", "TW"}) EXPECT_EQ(foundation::usualScript("zh", country), "Hant") << country;
}
