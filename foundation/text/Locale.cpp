#include "foundation/text/Locale.h"

#include <cctype>

namespace foundation {
namespace {

// A region is two letters or three digits; four letters are a script and anything else a variant.
bool isCountry(std::string_view part) {
  const auto all = [part](int (*test)(int)) {
    for (const char c : part)
      if (test(static_cast<unsigned char>(c)) == 0) return false;
    return true;
  };
  return (part.size() == 2 && all(std::isalpha)) || (part.size() == 3 && all(std::isdigit));
}

}  // namespace

Locale Locale::fromIdentifier(std::string_view identifier) {
  identifier = identifier.substr(0, identifier.find_first_of(".@"));
  Locale locale;
  auto separator = identifier.find_first_of("-_");
  locale.languageCode = identifier.substr(0, separator);
  while (separator != std::string_view::npos && !locale.countryCode) {
    identifier.remove_prefix(separator + 1);
    separator = identifier.find_first_of("-_");
    const auto part = identifier.substr(0, separator);
    if (isCountry(part)) locale.countryCode = part;
  }
  return locale;
}

}  // namespace foundation
