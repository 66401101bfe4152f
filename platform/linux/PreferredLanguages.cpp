#include "platform/linux/PreferredLanguages.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>

#include "foundation/text/Locale.h"

namespace platform::Linux {
namespace {

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const auto end = std::min(text.find_first_of(separators), text.size());
    if (end > 0) parts.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

// Modifiers mean nothing for texts, but for one that names a script: "sr_RS.UTF-8@latin" is sr_Latn_RS.
std::string withoutEncoding(std::string_view locale) {
  std::string name(locale.substr(0, locale.find_first_of(".@")));
  if (locale.ends_with("@latin")) name.insert(std::min(name.find('_'), name.size()), "_Latn");
  return name;
}

bool isPlainLocale(std::string_view name) { return name == "C" || name == "POSIX"; }

std::string mapped(std::string text, int (*map)(int)) {
  std::ranges::transform(text, text.begin(), [map](unsigned char c) { return static_cast<char>(map(c)); });
  return text;
}

std::string capitalized(const std::string& word) {
  return mapped(word.substr(0, 1), std::toupper) + mapped(word.substr(1), std::tolower);
}

// A language in parts, in the usual spelling: "zh_hans_CN.UTF-8" is zh, Hans, CN.
struct Language {
  std::string code;
  std::string script;
  std::string region;
  bool operator==(const Language&) const = default;
};

Language languageNamed(std::string_view name) {
  const auto parts = split(withoutEncoding(name), "-_");
  Language language;
  if (parts.empty()) return language;
  language.code = mapped(parts.front(), std::tolower);
  for (std::size_t i = 1; i < parts.size(); ++i) {
    if (parts[i].size() == 4) language.script = capitalized(parts[i]);
    if (parts[i].size() == 2 || parts[i].size() == 3) language.region = mapped(parts[i], std::toupper);
  }
  // Norwegian without a form, and Nynorsk, whose readers read Bokmål.
  if (language.code == "no" || language.code == "nn") language.code = "nb";
  return language;
}

std::string_view scriptOf(const Language& language) {
  return language.script.empty() ? foundation::usualScript(language.code, language.region) : language.script;
}

bool isReadable(const Language& available, const Language& wanted) {
  return available.code == wanted.code && scriptOf(available) == scriptOf(wanted);
}

class Matches {
 public:
  explicit Matches(const std::vector<std::string>& available) : _available(available) { std::ranges::sort(_available); }

  // Adds the localizations for one wanted language.
  void add(const Language& wanted) {
    const bool hasRegion = addWhere(wanted, [&](const Language& each) { return each.region == wanted.region; });
    const bool hasPlain = addWhere(wanted, [](const Language& each) { return each.region.empty(); });
    if (!hasRegion && !hasPlain) addWhere(wanted, [](const Language&) { return true; });
  }

  void addLast(const std::string& developmentRegion) {
    const auto region = languageNamed(developmentRegion);
    const bool isThere = addWhere(region, [&](const Language& each) { return each == region; });
    if (!isThere && found.empty()) found.push_back(developmentRegion);
  }

  std::vector<std::string> found;

 private:
  // The first localization in the wanted language for which `test` holds; false when there is none.
  template <class Test>
  bool addWhere(const Language& wanted, const Test& test) {
    for (const auto& name : _available) {
      const auto each = languageNamed(name);
      if (!isReadable(each, wanted) || !test(each)) continue;
      if (std::ranges::find(found, name) == found.end()) found.push_back(name);
      return true;
    }
    return false;
  }

  std::vector<std::string> _available;
};

}  // namespace

std::vector<std::string> languagesOfTheEnvironment() {
  std::string locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if (locale.empty()) locale = variable(name);
  auto names = split(variable("LANGUAGE"), ":");
  if (names.empty() && !locale.empty()) names.push_back(locale);
  std::ranges::transform(names, names.begin(), withoutEncoding);
  std::erase_if(names, [](const std::string& name) { return name.empty() || isPlainLocale(name); });
  return names;
}

std::vector<std::string> preferredLanguages(const platform::UserDefaults& defaults) {
  std::vector<std::string> names;
  const auto value = defaults.objectForKey("AppleLanguages");
  if (value) {
    if (const auto* text = value->as<std::string>()) names = split(*text, "(), \t\n\"");
    if (const auto* array = value->as<foundation::PropertyList::Array>())
      for (const auto& element : *array)
        if (const auto* name = element.as<std::string>()) names.push_back(*name);
  }
  return names.empty() ? languagesOfTheEnvironment() : names;
}

std::vector<std::string> matchingLocalizations(const std::vector<std::string>& available,
                                               const std::vector<std::string>& wanted,
                                               const std::string& developmentRegion) {
  Matches matches(available);
  for (const auto& name : wanted) matches.add(languageNamed(name));
  matches.addLast(developmentRegion);
  return matches.found;
}

}  // namespace platform::Linux
