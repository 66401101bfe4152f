#include "foundation/text/Locale.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace foundation {
namespace {

bool consistsOf(std::string_view part, std::size_t size, int (*test)(int)) {
  return part.size() == size && std::ranges::all_of(part, [test](unsigned char c) { return test(c) != 0; });
}

// Any other part is a variant.
bool isScript(std::string_view part) { return consistsOf(part, 4, std::isalpha); }
bool isCountry(std::string_view part) { return consistsOf(part, 2, std::isalpha) || consistsOf(part, 3, std::isdigit); }

struct Writing {
  std::string_view languageCode;
  std::string_view script;
};

// The languages of the installer's texts that are not written in Latin letters.
constexpr Writing writings[] = {{"ar", "Arab"}, {"bg", "Cyrl"}, {"el", "Grek"}, {"fa", "Arab"}, {"he", "Hebr"},
                                {"hi", "Deva"}, {"ja", "Jpan"}, {"ko", "Kore"}, {"ru", "Cyrl"}, {"sr", "Cyrl"},
                                {"th", "Thai"}, {"uk", "Cyrl"}, {"ur", "Arab"}, {"zh", "Hans"}};

constexpr std::string_view scriptsFromRightToLeft[] = {"Arab", "Hebr"};
constexpr std::string_view countriesOfTraditionalChinese[] = {"HK", "MO", "TW"};

bool contains(const auto& list, std::string_view value) { return std::ranges::find(list, value) != std::end(list); }

}  // namespace

Locale Locale::fromIdentifier(std::string_view identifier) {
  Locale locale;
  locale.identifier = identifier;
  identifier = identifier.substr(0, identifier.find_first_of(".@"));
  auto separator = identifier.find_first_of("-_");
  locale.languageCode = identifier.substr(0, separator);
  while (separator != std::string_view::npos && !locale.countryCode) {
    identifier.remove_prefix(separator + 1);
    separator = identifier.find_first_of("-_");
    const auto part = identifier.substr(0, separator);
    if (isScript(part) && !locale.scriptCode) locale.scriptCode = part;
    if (isCountry(part)) locale.countryCode = part;
  }
  return locale;
}

bool Locale::isRightToLeft() const {
  const std::string_view script = scriptCode ? *scriptCode : usualScript(languageCode, countryCode.value_or(""));
  return contains(scriptsFromRightToLeft, script);
}

std::string_view usualScript(std::string_view languageCode, std::string_view countryCode) {
  if (languageCode == "zh" && contains(countriesOfTraditionalChinese, countryCode)) return "Hant";
  const auto* place = std::ranges::find(writings, languageCode, &Writing::languageCode);
  return place == std::end(writings) ? "Latn" : place->script;
}

}  // namespace foundation
