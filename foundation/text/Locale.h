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

  // True when the locale's script, its own or the usual one of its language, runs from right to left.
  [[nodiscard]] bool isRightToLeft() const;
};

// The script in which a language is usually written, for identifiers that name none: "Cyrl" for "sr", "Hant" for "zh" in
// "TW". "Latn" for every language that the table does not have. An empty country stands for none.
std::string_view usualScript(std::string_view languageCode, std::string_view countryCode);

}  // namespace foundation
