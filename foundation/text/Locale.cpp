#include "foundation/text/Locale.h"

#include <algorithm>
#include <cctype>

namespace foundation {
namespace {

bool consistsOf(std::string_view part, std::size_t size, int (*test)(int)) {
  return part.size() == size && std::ranges::all_of(part, [test](unsigned char c) { return test(c) != 0; });
}

// Any other part is a variant.
bool isScript(std::string_view part) { return consistsOf(part, 4, std::isalpha); }
bool isCountry(std::string_view part) { return consistsOf(part, 2, std::isalpha) || consistsOf(part, 3, std::isdigit); }

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

}  // namespace foundation
