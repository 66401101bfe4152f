#pragma once
// The parts of a locale identifier. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

// "zh-Hans-CN" has the language "zh", the script "Hans" and the country "CN".
struct Locale {
  std::string identifier;  // as given
  std::string languageCode;
  std::optional<std::string> scriptCode;
  std::optional<std::string> countryCode;

  bool operator==(const Locale&) const = default;

  // Takes identifiers with "-" or "_" between the parts. Encodings and modifiers (".UTF-8", "@euro") belong to no part.
  // Letters keep their case.
  static Locale fromIdentifier(std::string_view identifier);
};

}  // namespace foundation
