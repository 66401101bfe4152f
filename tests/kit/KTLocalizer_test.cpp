#include "kit/KTLocalizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <type_traits>

#include "logging/KTLogger.h"
#include "platform/fake/FakePlatform.h"

using platform::fake::FakePlatform;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* tablePath = "/Apps/Installer.app/Contents/Resources/UnlocalizedStrings.plist";

struct Row {
  std::int64_t index;
  std::string locale;
  std::string subdomain;
  std::string urlLanguageCode;
  std::string kitLanguageId;
  bool operator==(const Row&) const = default;
};

Row chosenRow() {
  return {KTLocalizer::languageCodes(), KTLocalizer::locale().identifier, KTLocalizer::keltoSubdomain(),
          KTLocalizer::keltoUrlLanguageCode(), KTLocalizer::kclibLanguageId()};
}

Row rowFor(std::vector<std::string> localizations) {
  FakePlatform fake;
  fake.bundles.main.localizations = std::move(localizations);
  return chosenRow();
}

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.index << ' ' << row.locale << ' ' << row.subdomain << ' ' << row.urlLanguageCode << ' ' << row.kitLanguageId;
}

std::string textFor(const std::string& translation, auto... arguments) {
  FakePlatform fake;
  fake.bundles.main.strings["<Key>"] = translation;
  return KTLocalizer::sharedLocalizer()->localizedStringForKey("<Key>", arguments...);
}

// Remembers what it is told; stands for a client's own log.
struct RecordingLogger final : KTAdditionalLoggerProtocol {
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const foundation::FormatArgument> arguments) override {
    lines.push_back(foundation::formatted("%@ %d %@", selector, level, foundation::format(format, arguments)));
  }
  std::vector<std::string> lines;
};

}  // namespace

// The language table.

TEST(KTLocalizer, BritishEnglishSelectsItsIrregularRow) {
  EXPECT_EQ(rowFor({"en-GB"}), (Row{1, "en-GB", "www", "uk", "en-US"}));
}

TEST(KTLocalizer, AustralianEnglishFallsBackToTheFirstRowOfEnglish) {
  EXPECT_EQ(rowFor({"en-AU"}), (Row{0, "en-US", "www", "en", "en-US"}));
}

TEST(KTLocalizer, AnExactMatchLaterBeatsALanguageMatchEarlier) {
  EXPECT_EQ(rowFor({"fr-CA", "de-DE"}), (Row{3, "de-DE", "de", "de", "de-DE"}));
}

TEST(KTLocalizer, AnUnknownLanguageSelectsAmericanEnglish) { EXPECT_EQ(rowFor({"ko"}).index, 0); }

TEST(KTLocalizer, NoPreferredLocalizationSelectsAmericanEnglish) { EXPECT_EQ(rowFor({}).index, 0); }

TEST(KTLocalizer, NorwegianHasItsOwnUrlCode) { EXPECT_EQ(rowFor({"nb-NO"}), (Row{7, "nb-NO", "no", "bo", "nb-NO"})); }

TEST(KTLocalizer, TheFirstLanguageMatchIsTheFallback) { EXPECT_EQ(rowFor({"fr-CA", "de-AT"}).index, 5); }

TEST(KTLocalizer, ALanguageWithoutCountryMatchesItsFirstRowExactly) {
  EXPECT_EQ(rowFor({"ko", "fr-CA", "en"}).index, 0);
  EXPECT_EQ(rowFor({"fr-CA", "sv"}).index, 10);
}

TEST(KTLocalizer, LanguagesAreComparedWithTheirCase) {
  EXPECT_EQ(rowFor({"DE"}).index, 0);
  EXPECT_EQ(rowFor({"de-de", "ja"}).index, 13);
}

TEST(KTLocalizer, ChineseWithItsScriptSelectsTheRowWithTheScript) {
  EXPECT_EQ(rowFor({"zh-Hans-CN"}), (Row{12, "zh-Hans-CN", "zh", "zh", "zh-CN"}));
  EXPECT_EQ(rowFor({"zh-Hans"}).index, 12);
  EXPECT_EQ(rowFor({"zh_Hans_CN"}).index, 12);
}

TEST(KTLocalizer, ChineseWithoutAScriptSelectsTheRowWithoutOne) {
  EXPECT_EQ(rowFor({"zh-CN"}), (Row{11, "zh-CN", "zh", "zh", "zh-CN"}));
  EXPECT_EQ(rowFor({"zh"}).index, 11);
}

TEST(KTLocalizer, AScriptThatNoRowHasIsPassedOver) {
  EXPECT_EQ(rowFor({"en-Latn-GB"}).index, 1);
  EXPECT_EQ(rowFor({"zh-Hant-TW"}).index, 11);
  EXPECT_EQ(rowFor({"zh-Hans-SG"}).index, 12);
}

TEST(KTLocalizer, TheLocaleIsThatOfTheRow) {
  FakePlatform fake;
  fake.bundles.main.localizations = {"zh-Hans-CN"};
  const foundation::Locale locale = KTLocalizer::locale();
  EXPECT_EQ(locale, foundation::Locale::fromIdentifier("zh-Hans-CN"));
  EXPECT_EQ(locale.countryCode, "CN");
}

TEST(KTLocalizer, EveryRowHasItsValues) {
  EXPECT_EQ(rowFor({"en-US"}), (Row{0, "en-US", "www", "en", "en-US"}));
  EXPECT_EQ(rowFor({"da-DK"}), (Row{2, "da-DK", "da", "da", "da-DK"}));
  EXPECT_EQ(rowFor({"es-ES"}), (Row{4, "es-ES", "es", "es", "es-ES"}));
  EXPECT_EQ(rowFor({"fr-FR"}), (Row{5, "fr-FR", "fr", "fr", "fr-FR"}));
  EXPECT_EQ(rowFor({"it-IT"}), (Row{6, "it-IT", "it", "it", "it-IT"}));
  EXPECT_EQ(rowFor({"pt-BR"}), (Row{8, "pt-BR", "pt", "pt", "pt-BR"}));
  EXPECT_EQ(rowFor({"nl-NL"}), (Row{9, "nl-NL", "nl", "nl", "nl-NL"}));
  EXPECT_EQ(rowFor({"sv-SE"}), (Row{10, "sv-SE", "sv", "sv", "sv-SE"}));
  EXPECT_EQ(rowFor({"ja-JP"}), (Row{13, "ja-JP", "ja", "ja", "ja-JP"}));
}

TEST(KTLocalizer, TheRowStaysThoughTheLanguageChanges) {
  FakePlatform fake;
  fake.bundles.main.localizations = {"de"};
  EXPECT_EQ(KTLocalizer::languageCodes(), 3);
  fake.bundles.main.localizations = {"ja"};
  EXPECT_EQ(KTLocalizer::languageCodes(), 3);
  EXPECT_EQ(KTLocalizer::locale().identifier, "de-DE");
}

TEST(KTLocalizer, FirstCallsFromManyThreadsAgree) {
  FakePlatform fake;
  fake.bundles.main.localizations = {"nl"};
  std::vector<std::int64_t> rows(8, -1);
  std::vector<const KTLocalizer*> localizers(rows.size());
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < rows.size(); ++i)
      threads.emplace_back([&, i] {
        rows[i] = KTLocalizer::languageCodes();
        localizers[i] = KTLocalizer::sharedLocalizer();
      });
  }
  EXPECT_THAT(rows, testing::Each(9));
  EXPECT_THAT(localizers, testing::Each(KTLocalizer::sharedLocalizer()));
}

// The instance.

TEST(KTLocalizer, ThereIsOneAndNoOtherCanBeMade) {
  FakePlatform fake;
  EXPECT_NE(KTLocalizer::sharedLocalizer(), nullptr);
  EXPECT_EQ(KTLocalizer::sharedLocalizer(), KTLocalizer::sharedLocalizer());
  EXPECT_FALSE(std::is_default_constructible_v<KTLocalizer>);
  EXPECT_FALSE(std::is_copy_constructible_v<KTLocalizer>);
}

TEST(KTLocalizer, UnlocalizedStringsAreLoadedFromTheMainBundle) {
  FakePlatform fake;
  fake.bundles.main.resources["UnlocalizedStrings.plist"] = tablePath;
  fake.files.addFile(tablePath, "<plist><array><string>Kelto</string></array></plist>");
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->unlocalizedStrings(), (foundation::PropertyList::Array{"Kelto"}));
}

TEST(KTLocalizer, UnlocalizedStringsStayAsTheyWereAtCreation) {
  FakePlatform fake;
  fake.bundles.main.resources["UnlocalizedStrings.plist"] = tablePath;
  fake.files.addFile(tablePath, "<plist><array/></plist>");
  ASSERT_TRUE(KTLocalizer::sharedLocalizer()->unlocalizedStrings());
  fake.files.items.erase(tablePath);
  EXPECT_TRUE(KTLocalizer::sharedLocalizer()->unlocalizedStrings());
}

TEST(KTLocalizer, WithoutTheResourceThereAreNoUnlocalizedStringsAndNothingIsReported) {
  FakePlatform fake;
  fake.enableDebugLogging();
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->unlocalizedStrings(), std::nullopt);
  EXPECT_THAT(fake.systemLog.lines, testing::IsEmpty());
}

TEST(KTLocalizer, AResourceOfAnotherTypeGivesNoUnlocalizedStrings) {
  for (const char* text : {"<plist><dict/></plist>", "nonsense", ""}) {
    FakePlatform fake;
    fake.bundles.main.resources["UnlocalizedStrings.plist"] = tablePath;
    fake.files.addFile(tablePath, text);
    EXPECT_EQ(KTLocalizer::sharedLocalizer()->unlocalizedStrings(), std::nullopt) << text;
  }
}

// Texts.

TEST(KTLocalizer, AMissingKeyComesBackMarked) {
  FakePlatform fake;
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->localizedStringForKey("<NoSuchKey>"), "<NoSuchKey>ZXZ");
}

TEST(KTLocalizer, AMissingKeyIsLoggedWithItsPlaceAndTheKey) {
  FakePlatform fake;
  fake.enableDebugLogging();
  const auto* localizer = KTLocalizer::sharedLocalizer();
  std::ignore = localizer->localizedStringForKey("<NoSuchKey>");
  const auto tag =
      foundation::formatted("[KTLocalizer(%p) localizedStringForKey:]:149", static_cast<const void*>(localizer));
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Debug> " + tag + " key not found: <NoSuchKey>"));
}

TEST(KTLocalizer, AMissingKeyIsLoggedToTheAdditionalLoggerToo) {
  FakePlatform fake;
  RecordingLogger additional;
  KTLogger::sharedLogger()->setAdditionalLogger(&additional);
  std::ignore = KTLocalizer::sharedLocalizer()->localizedStringForKey("<NoSuchKey>");
  EXPECT_THAT(additional.lines, ElementsAre(testing::AllOf(testing::StartsWith("localizedStringForKey: 7 [KTLocalizer("),
                                                           testing::EndsWith(":149 key not found: <NoSuchKey>"))));
}

TEST(KTLocalizer, AMissingKeyIsSilentAtTheUsualLoggingLevel) {
  FakePlatform fake;
  std::ignore = KTLocalizer::sharedLocalizer()->localizedStringForKey("<NoSuchKey>");
  EXPECT_THAT(fake.systemLog.lines, testing::IsEmpty());
}

TEST(KTLocalizer, APercentSignInAMissingKeyDoesNotDisturbTheLog) {
  FakePlatform fake;
  fake.enableDebugLogging();
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->localizedStringForKey("<100%@>", "x"), "<100x>ZXZ");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre(HasSubstr("key not found: <100%@>")));
}

TEST(KTLocalizer, ATranslationEqualToItsKeyCountsAsMissing) { EXPECT_EQ(textFor("<Key>"), "<Key>ZXZ"); }

TEST(KTLocalizer, AFoundKeyIsNotLogged) {
  FakePlatform fake;
  fake.enableDebugLogging();
  fake.bundles.main.strings["<OK>"] = "OK";
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->localizedStringForKey("<OK>"), "OK");
  EXPECT_THAT(fake.systemLog.lines, testing::IsEmpty());
}

TEST(KTLocalizer, ATranslationIsFilledFromTheArguments) {
  EXPECT_EQ(textFor("Quit “%@” first", "Kelto"), "Quit “Kelto” first");
  EXPECT_EQ(textFor("%d of %@", 3, std::string("10")), "3 of 10");
}

TEST(KTLocalizer, PositionsReorderTheArguments) { EXPECT_EQ(textFor("%2$@ before %1$@", "a", "b"), "b before a"); }

TEST(KTLocalizer, TwoPercentSignsAreOneEvenWithoutArguments) {
  EXPECT_EQ(textFor("100%%"), "100%");
  EXPECT_EQ(textFor("%@ 100%%", "a"), "a 100%");
}

TEST(KTLocalizer, ATranslationThatAsksForMoreThanIsGivenShowsNothingForIt) {
  EXPECT_EQ(textFor("%@ and %@", "a"), "a and (null)");
  EXPECT_EQ(textFor("%9$@ and %d"), "(null) and (null)");
}

TEST(KTLocalizer, APercentSignInAnArgumentStandsForItself) { EXPECT_EQ(textFor("<%@>", "100%@%d"), "<100%@%d>"); }

TEST(KTLocalizer, AnAbsentArgumentIsShownAsSuch) { EXPECT_EQ(textFor("“%@”", std::optional<std::string>()), "“(null)”"); }

TEST(KTLocalizer, AMarkedKeyIsAFormatToo) {
  FakePlatform fake;
  EXPECT_EQ(KTLocalizer::sharedLocalizer()->localizedStringForKey("<Missing %@>", "x"), "<Missing x>ZXZ");
}
