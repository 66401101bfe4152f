// The texts that ship: every language has all of them, and each is fit to be shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "app/InstallerTexts.h"
#include "foundation/plist/PropertyList.h"
#include "foundation/plist/StringsFile.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/Bundle.h"
#include "tests/support/TemporaryFolder.h"

using foundation::StringTable;

namespace {

const std::string resources = KELTO_SOURCE_DIR "/resources";

const std::set<std::string> languages{"en", "en-GB", "da", "de", "es", "fr",     "it",
                                      "nb", "pt-BR", "nl", "sv", "ja", "zh-Hans"};

const std::set<std::string_view> keys{InstallerTexts::update.title,
                                      InstallerTexts::update.body,
                                      InstallerTexts::update.nextButton,
                                      InstallerTexts::install.title,
                                      InstallerTexts::install.body,
                                      InstallerTexts::install.nextButton,
                                      InstallerTexts::uninstall.title,
                                      InstallerTexts::uninstall.body,
                                      InstallerTexts::cancel,
                                      InstallerTexts::ok,
                                      InstallerTexts::unexpectedErrorSubtitle,
                                      InstallerTexts::unexpectedErrorMessage,
                                      InstallerTexts::badPermissionSubtitle,
                                      InstallerTexts::badPermissionMessage,
                                      InstallerTexts::runningSubtitle,
                                      InstallerTexts::runningMessage,
                                      InstallerTexts::unableToUninstallSubtitle,
                                      InstallerTexts::unableToUninstallMessage};

std::size_t count(std::string_view text, std::string_view part) {
  std::size_t found = 0;
  for (auto place = text.find(part); place != std::string_view::npos; place = text.find(part, place + part.size())) ++found;
  return found;
}

class Texts : public testing::TestWithParam<std::string> {
 protected:
  static StringTable tableOf(const std::string& language) {
    std::string reason;
    const auto table =
        foundation::parseStrings(tests::readFile(resources + "/" + language + ".lproj/Localizable.strings"), &reason);
    EXPECT_TRUE(table) << language << ": " << reason;
    return table.value_or(StringTable());
  }

  [[nodiscard]] std::string text(std::string_view key) const {
    const auto place = table.find(key);
    return place == table.end() ? "" : place->second;
  }

  const StringTable table = tableOf(GetParam());
};

std::string nameOf(const testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  std::ranges::replace(name, '-', '_');
  return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Language, Texts, testing::ValuesIn(languages), nameOf);

TEST_P(Texts, AreThereForEveryKeyAndNoOther) {
  std::set<std::string_view> present;
  for (const auto& [key, text] : table) present.insert(key);
  EXPECT_EQ(keys.size(), 18U);
  EXPECT_EQ(present, keys);
}

TEST_P(Texts, TakeAsManyArgumentsAsTheirKeySays) {
  for (const auto& [key, text] : table) {
    const std::size_t expected = key.ends_with("_1>") ? 1 : 0;
    EXPECT_EQ(count(text, "%@"), expected) << key;
    EXPECT_EQ(count(text, "%"), expected) << key;
  }
}

TEST_P(Texts, AreTranslated) {
  if (GetParam().starts_with("en")) {
    EXPECT_EQ(text("<Cancel>"), "Cancel");
    return;
  }
  for (const auto& [key, english] : tableOf("en")) {
    if (key != "<OK>") {
      EXPECT_NE(text(key), english) << key;
    }
  }
}

TEST_P(Texts, AreCleanlySet) {
  for (const auto& [key, text] : table) {
    EXPECT_FALSE(text.empty() || text.front() == ' ' || text.back() == ' ') << key;
    for (const char* unwanted : {"  ", "...", "\"", "'", "<", ">", "\n", "\t", "ZXZ", "KELTO", "kelto"})
      EXPECT_EQ(count(text, unwanted), 0U) << key << ": " << unwanted;
  }
}

TEST_P(Texts, SentencesEndAndHeadlinesAndButtonsDoNot) {
  for (const auto& [key, text] : table) {
    const bool isSentence = key.find("Message") != std::string::npos || key.find("Body") != std::string::npos ||
                            key.find("_Installing") != std::string::npos || key.find("Error") != std::string::npos ||
                            key.find("Permission") != std::string::npos || key.find("Running") != std::string::npos ||
                            key.find("UnableTo") != std::string::npos;
    EXPECT_EQ(text.ends_with('.') || text.ends_with("。"), isSentence) << key << ": " << text;
  }
}

TEST_P(Texts, NameTheProductInEveryHeadlineOfTheWizard) {
  for (const auto title : {InstallerTexts::update.title, InstallerTexts::install.title, InstallerTexts::uninstall.title})
    EXPECT_EQ(count(text(title), "Kelto"), 1U) << title;
}

TEST_P(Texts, QuoteNamesAsTheLanguageDoes) {
  const std::map<std::string, std::string> quoted{
      {"en", "“%@”"},     {"en-GB", "‘%@’"}, {"da", "”%@”"},    {"de", "„%@“"}, {"es", "«%@»"}, {"fr", "«\u00A0%@\u00A0»"},
      {"it", "“%@”"},     {"nb", "«%@»"},    {"pt-BR", "“%@”"}, {"nl", "‘%@’"}, {"sv", "”%@”"}, {"ja", "「%@」"},
      {"zh-Hans", "“%@”"}};
  for (const auto& [key, text] : table) {
    if (key.ends_with("_1>")) {
      EXPECT_EQ(count(text, quoted.at(GetParam())), 1U) << key;
    }
  }
}

TEST(Resources, HaveEveryLanguageAndNoOther) {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(resources))
    if (entry.path().extension() == ".lproj") found.insert(entry.path().stem());
  EXPECT_EQ(found, languages);
}

TEST(Resources, UnlocalizedStringsAreAListOfTexts) {
  std::string reason;
  const auto value = foundation::PropertyList::parse(tests::readFile(resources + "/UnlocalizedStrings.plist"), &reason);
  ASSERT_TRUE(value) << reason;
  const auto* list = value->as<foundation::PropertyList::Array>();
  ASSERT_NE(list, nullptr);
  for (const auto& element : *list) EXPECT_NE(element.as<std::string>(), nullptr);
}

TEST(Resources, EveryUsersLanguageSelectsItsTextsAndItsRow) {
  struct Expected {
    std::string locale;
    std::string cancel;
    std::int64_t row;
  };
  const tests::TemporaryFolder folder;
  std::filesystem::create_directories(folder.path("App.app/Contents"));
  std::filesystem::create_directory_symlink(resources, folder.path("App.app/Contents/Resources"));
  tests::writeFile(folder.path("App.app/Contents/Info.plist"), "<plist><dict/></plist>");
  const Expected all[] = {{"en_US", "Cancel", 0},      {"en_GB", "Cancel", 1},   {"da_DK", "Annuller", 2},
                          {"de_AT", "Abbrechen", 3},   {"es_MX", "Cancelar", 4}, {"fr_CA", "Annuler", 5},
                          {"it_CH", "Annulla", 6},     {"nn_NO", "Avbryt", 7},   {"pt_PT", "Cancelar", 8},
                          {"nl_BE", "Annuleren", 9},   {"sv_FI", "Avbryt", 10},  {"zh_CN", "取消", 12},
                          {"ja_JP", "キャンセル", 13}, {"ko_KR", "Cancel", 0}};
  for (const auto& expected : all) {
    platform::fake::FakePlatform fake;
    const platform::Linux::Bundles bundles(fake.systemLog, [&] { return std::vector<std::string>{expected.locale}; });
    const auto bundle = bundles.bundleWithPath(folder.path("App.app"));
    fake.bundles.main.localizations = bundle->preferredLocalizations();
    EXPECT_EQ(bundle->localizedStringForKey("<Cancel>", "", ""), expected.cancel) << expected.locale;
    EXPECT_EQ(KTLocalizer::languageCodes(), expected.row) << expected.locale;
    EXPECT_THAT(fake.systemLog.lines, testing::IsEmpty());
  }
}
