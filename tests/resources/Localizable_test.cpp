// The texts that ship: every language has all of them, and each is fit to be shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "app/InstallerTexts.h"
#include "foundation/plist/PropertyList.h"
#include "foundation/plist/StringsFile.h"
#include "foundation/text/Locale.h"
#include "foundation/text/UTF8.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/Bundle.h"
#include "tests/support/ShippedLanguages.h"
#include "tests/support/TemporaryFolder.h"

using foundation::StringTable;

namespace {

const std::string resources = KELTO_SOURCE_DIR "/resources";

const std::vector<std::string> languages(tests::shippedLanguages.begin(), tests::shippedLanguages.end());

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

// Thai has no sign for it.
bool endsSentence(std::string_view text) {
  return std::ranges::any_of(std::array{".", "。", "।", "۔"}, [&](const char* sign) { return text.ends_with(sign); });
}

struct Letters {
  std::string_view script;
  char32_t first;
  char32_t last;
};
constexpr Letters letters[] = {{"Latn", U'A', U'Z'},     {"Latn", U'a', U'z'},     {"Latn", 0xC0, 0x24F},
                               {"Grek", 0x370, 0x3FF},   {"Cyrl", 0x400, 0x52F},   {"Hebr", 0x590, 0x5FF},
                               {"Arab", 0x600, 0x6FF},   {"Deva", 0x900, 0x97F},   {"Thai", 0xE00, 0xE7F},
                               {"Latn", 0x1E00, 0x1EFF}, {"Kana", 0x3041, 0x30FF}, {"Hani", 0x4E00, 0x9FFF},
                               {"Hang", 0xAC00, 0xD7A3}};

// The script of one character of UTF-8; empty for digits and punctuation.
std::string_view scriptOf(std::string_view character) {
  constexpr unsigned leadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t code = static_cast<unsigned char>(character.front()) & leadBits[character.size()];
  for (const char byte : character.substr(1)) code = code << 6 | (static_cast<unsigned char>(byte) & 0x3F);
  const auto* place =
      std::ranges::find_if(letters, [&](const Letters& each) { return code >= each.first && code <= each.last; });
  return place == std::end(letters) ? "" : place->script;
}

std::vector<std::string> charactersOf(std::string_view text) {
  std::vector<std::string> characters;
  for (; !text.empty(); text.remove_prefix(characters.back().size()))
    characters.emplace_back(foundation::firstCharacters(text, 1));
  return characters;
}

std::set<std::string_view> scriptsOf(const std::string& language) {
  const auto locale = foundation::Locale::fromIdentifier(language);
  const std::string_view usual = locale.scriptCode ? *locale.scriptCode : foundation::usualScript(locale.languageCode, "");
  if (usual == "Jpan") return {"Kana", "Hani"};
  if (usual == "Kore") return {"Hang"};
  if (usual == "Hans" || usual == "Hant") return {"Hani"};
  return {std::ranges::find(letters, usual, &Letters::script)->script};
}

std::string without(std::string text, std::string_view part) {
  for (auto place = text.find(part); place != std::string::npos; place = text.find(part)) text.erase(place, part.size());
  return text;
}

std::string inLatinLetters(std::string_view serbian) {
  static const std::map<std::string, std::string> latin{
      {"а", "a"}, {"б", "b"},  {"в", "v"}, {"г", "g"}, {"д", "d"},  {"ђ", "đ"}, {"е", "e"}, {"ж", "ž"},  {"з", "z"},
      {"и", "i"}, {"ј", "j"},  {"к", "k"}, {"л", "l"}, {"љ", "lj"}, {"м", "m"}, {"н", "n"}, {"њ", "nj"}, {"о", "o"},
      {"п", "p"}, {"р", "r"},  {"с", "s"}, {"т", "t"}, {"ћ", "ć"},  {"у", "u"}, {"ф", "f"}, {"х", "h"},  {"ц", "c"},
      {"ч", "č"}, {"џ", "dž"}, {"ш", "š"}, {"А", "A"}, {"Г", "G"},  {"Д", "D"}, {"З", "Z"}, {"И", "I"},  {"Н", "N"},
      {"О", "O"}, {"П", "P"},  {"Р", "R"}, {"С", "S"}, {"У", "U"}};
  std::string text;
  for (const auto& character : charactersOf(serbian)) {
    const auto place = latin.find(character);
    text += place == latin.end() ? character : place->second;
  }
  return text;
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

TEST_P(Texts, AreWellFormed) {
  EXPECT_TRUE(foundation::isValidUTF8(tests::readFile(resources + "/" + GetParam() + ".lproj/Localizable.strings")));
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

TEST_P(Texts, HaveNoWordOfTheEnglishOnesLeft) {
  if (GetParam().starts_with("en")) return;
  const std::set<std::string_view> english{"The",           "the",  "again",     "could",   "being", "been",
                                           "when",          "with", "will",      "needed",  "your",  "yourself",
                                           "automatically", "then", "completed", "Updating"};
  for (const auto& [key, text] : table) {
    std::string words = text;
    std::ranges::replace_if(
        words, [](unsigned char c) { return c < 0x80 && std::isalpha(c) == 0; }, ' ');
    std::istringstream stream(words);
    for (std::string word; stream >> word;)
      EXPECT_FALSE(english.contains(word) && !(GetParam() == "de" && word == "will")) << key << ": " << word;
  }
}

TEST_P(Texts, AreWrittenInTheLettersOfTheirLanguage) {
  const auto scripts = scriptsOf(GetParam());
  for (const auto& [key, text] : table) {
    if (text == "OK") continue;
    std::size_t count = 0;
    for (const auto& character : charactersOf(without(without(text, "Kelto"), "%@"))) {
      const auto script = scriptOf(character);
      if (script.empty()) continue;
      EXPECT_TRUE(scripts.contains(script)) << key << ": " << character;
      ++count;
    }
    EXPECT_GE(count, 2U) << key;
  }
}

// A paragraph takes its direction from its first letter. A name of the user's may stand where the argument does.
TEST_P(Texts, BeginWithTheirOwnLettersWhereTheyAreReadFromTheRight) {
  if (!foundation::Locale::fromIdentifier(GetParam()).isRightToLeft()) return;
  for (const auto& [key, text] : table) {
    const auto characters = charactersOf(text);
    const auto first =
        std::ranges::find_if(characters, [](const auto& each) { return each == "%" || !scriptOf(each).empty(); });
    ASSERT_NE(first, characters.end()) << key;
    EXPECT_TRUE(scriptsOf(GetParam()).contains(scriptOf(*first))) << key << ": " << text;
  }
}

// The window was designed for the first languages; it has room for texts that are longer than theirs by a third.
TEST_P(Texts, AreNotMuchLongerThanThoseThatTheWindowWasDesignedFor) {
  std::map<std::string_view, std::size_t> longest;
  for (const char* first : {"en", "en-GB", "da", "de", "es", "fr", "it", "nb", "pt-BR", "nl", "sv", "ja", "zh-Hans"}) {
    const auto texts = tableOf(first);
    for (const auto key : keys) longest[key] = std::max(longest[key], foundation::characterCount(texts.find(key)->second));
  }
  for (const auto& [key, length] : longest)
    EXPECT_LE(foundation::characterCount(text(key)) * 3, length * 4) << key << ": " << text(key);
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
    EXPECT_EQ(endsSentence(text), isSentence && GetParam() != "th") << key << ": " << text;
  }
}

TEST_P(Texts, NameTheProductInEveryHeadlineOfTheWizard) {
  for (const auto title : {InstallerTexts::update.title, InstallerTexts::install.title, InstallerTexts::uninstall.title})
    EXPECT_EQ(count(text(title), "Kelto"), 1U) << title;
}

TEST_P(Texts, QuoteNamesAsTheLanguageDoes) {
  const std::map<std::string, std::string> quoted{{"en", "“%@”"},       {"en-GB", "‘%@’"}, {"da", "”%@”"},
                                                  {"de", "„%@“"},       {"es", "«%@»"},    {"fr", "«\u00A0%@\u00A0»"},
                                                  {"it", "“%@”"},       {"nb", "«%@»"},    {"pt-BR", "“%@”"},
                                                  {"nl", "‘%@’"},       {"sv", "”%@”"},    {"ja", "「%@」"},
                                                  {"zh-Hans", "“%@”"},  {"ar", "”%@“"},    {"bg", "„%@“"},
                                                  {"ca", "«%@»"},       {"cs", "„%@“"},    {"el", "«%@»"},
                                                  {"fa", "«%@»"},       {"fi", "”%@”"},    {"he", "”%@”"},
                                                  {"hi", "“%@”"},       {"hr", "„%@”"},    {"hu", "„%@”"},
                                                  {"id", "“%@”"},       {"ko", "“%@”"},    {"pl", "„%@”"},
                                                  {"pt", "“%@”"},       {"ro", "„%@”"},    {"ru", "«%@»"},
                                                  {"sk", "„%@“"},       {"sl", "»%@«"},    {"sr", "„%@“"},
                                                  {"sr-Latn", "„%@“"},  {"th", "“%@”"},    {"tr", "“%@”"},
                                                  {"uk", "«%@»"},       {"ur", "”%@“"},    {"vi", "“%@”"},
                                                  {"zh-Hant", "「%@」"}};
  for (const auto& [key, text] : table) {
    if (key.ends_with("_1>")) {
      EXPECT_EQ(count(text, quoted.at(GetParam())), 1U) << key;
    }
  }
}

TEST(SerbianTexts, SayTheSameInBothScripts) {
  const auto read = [](const std::string& language) {
    return foundation::parseStrings(tests::readFile(resources + "/" + language + ".lproj/Localizable.strings")).value();
  };
  const auto latin = read("sr-Latn");
  for (const auto& [key, text] : read("sr")) EXPECT_EQ(inLatinLetters(text), latin.find(key)->second) << key;
}

TEST(Resources, HaveEveryLanguageAndNoOther) {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(resources))
    if (entry.path().extension() == ".lproj") found.insert(entry.path().stem());
  EXPECT_EQ(found, std::set<std::string>(languages.begin(), languages.end()));
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
  const Expected all[] = {
      {"en_US", "Cancel", 0},      {"en_GB", "Cancel", 1},    {"da_DK", "Annuller", 2},    {"de_AT", "Abbrechen", 3},
      {"es_MX", "Cancelar", 4},    {"fr_CA", "Annuler", 5},   {"it_CH", "Annulla", 6},     {"nn_NO", "Avbryt", 7},
      {"pt_PT", "Cancelar", 8},    {"nl_BE", "Annuleren", 9}, {"sv_FI", "Avbryt", 10},     {"zh_CN", "取消", 12},
      {"ja_JP", "キャンセル", 13}, {"eo", "Cancel", 0},       {"ko_KR", "취소", 0},        {"pt_AO", "Cancelar", 8},
      {"zh_TW", "取消", 11},       {"sr_RS", "Откажи", 0},    {"sr_Latn_RS", "Otkaži", 0}, {"he_IL", "ביטול", 0}};
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
