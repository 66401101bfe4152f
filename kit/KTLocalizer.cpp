#include "kit/KTLocalizer.h"

#include <algorithm>
#include <iterator>
#include <memory>

#include "logging/KTLogger.h"
#include "platform/Platform.h"

namespace {

struct Language {
  std::string_view code;
  std::string_view country;
  std::string_view webSubdomain;
  std::string_view urlLanguageCode;
  std::string_view kitLanguageId;
};

// The values that the web site and the library code expect. The irregular ones are deliberate.
constexpr Language languages[] = {
    {"en", "US", "www", "en", "en-US"},     {"en", "GB", "www", "uk", "en-US"}, {"da", "DK", "da", "da", "da-DK"},
    {"de", "DE", "de", "de", "de-DE"},      {"es", "ES", "es", "es", "es-ES"},  {"fr", "FR", "fr", "fr", "fr-FR"},
    {"it", "IT", "it", "it", "it-IT"},      {"nb", "NO", "no", "bo", "nb-NO"},  {"pt", "BR", "pt", "pt", "pt-BR"},
    {"nl", "NL", "nl", "nl", "nl-NL"},      {"sv", "SE", "sv", "sv", "sv-SE"},  {"zh", "CN", "zh", "zh", "zh-CN"},
    {"zh-Hans", "CN", "zh", "zh", "zh-CN"}, {"ja", "JP", "ja", "ja", "ja-JP"},
};

// The language as the table spells it: with its script if there is such a row.
std::string languageInTable(const foundation::Locale& locale) {
  if (!locale.scriptCode) return locale.languageCode;
  const std::string withScript = locale.languageCode + "-" + *locale.scriptCode;
  const bool isInTable = std::ranges::find(languages, withScript, &Language::code) != std::end(languages);
  return isInTable ? withScript : locale.languageCode;
}

// An exact match of any localization comes before the first that matches by language alone.
std::int64_t rowForLocalizations(const std::vector<std::string>& localizations) {
  std::int64_t fallback = -1;
  for (const auto& localization : localizations) {
    const auto locale = foundation::Locale::fromIdentifier(localization);
    const std::string language = languageInTable(locale);
    for (std::int64_t row = 0; row < std::ssize(languages); ++row) {
      if (languages[row].code != language) continue;
      if (!locale.countryCode || languages[row].country == *locale.countryCode) return row;
      if (fallback < 0) fallback = row;
    }
  }
  return fallback < 0 ? 0 : fallback;
}

const Language& chosenLanguage() { return languages[KTLocalizer::languageCodes()]; }

std::optional<foundation::PropertyList::Array> unlocalizedStringsOf(const platform::Platform& platform) {
  const auto path = platform.bundles.mainBundle().pathForResource("UnlocalizedStrings", "plist");
  const auto bytes = path ? platform.fileManager.contentsAtPath(*path) : std::nullopt;
  const auto value = bytes ? foundation::PropertyList::parse(*bytes) : std::nullopt;
  const auto* array = value ? value->as<foundation::PropertyList::Array>() : nullptr;
  return array ? std::optional(*array) : std::nullopt;
}

}  // namespace

KTLocalizer* KTLocalizer::sharedLocalizer() {
  auto& platform = platform::current();
  return platform.process.once<KTLocalizer>([&] { return std::make_shared<KTLocalizer>(SingletonKey{}, platform); });
}

KTLocalizer::KTLocalizer(SingletonKey /*key*/, const platform::Platform& platform)
    : _mainBundle(platform.bundles.mainBundle()), _unlocalizedStrings(unlocalizedStringsOf(platform)) {}

std::string KTLocalizer::textForKey(std::string_view key) const {
  auto text = _mainBundle.localizedStringForKey(key, "", "");
  if (text != key) return text;
  KTDiagnostics::log({"KTLocalizer", this, "localizedStringForKey:", 149}, 7, "key not found: %@", key);
  return text + "ZXZ";
}

std::int64_t KTLocalizer::chosenRow() {
  std::call_once(_rowChosen, [this] { _row = rowForLocalizations(_mainBundle.preferredLocalizations()); });
  return _row;
}

std::int64_t KTLocalizer::languageCodes() { return sharedLocalizer()->chosenRow(); }

foundation::Locale KTLocalizer::locale() {
  const Language& language = chosenLanguage();
  return foundation::Locale::fromIdentifier(foundation::formatted("%@-%@", language.code, language.country));
}

std::string KTLocalizer::keltoSubdomain() { return std::string(chosenLanguage().webSubdomain); }

std::string KTLocalizer::keltoUrlLanguageCode() { return std::string(chosenLanguage().urlLanguageCode); }

std::string KTLocalizer::kclibLanguageId() { return std::string(chosenLanguage().kitLanguageId); }
