#pragma once
// The parts of a locale identifier. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

// "zh-Hans-CN" has the language "zh" and the country "CN"; the script is not part of either.
struct Locale {
  std::string languageCode;
  std::optional<std::string> countryCode;

  // Takes identifiers with "-" or "_" between the parts; encodings and modifiers (".UTF-8", "@euro") are dropped. Letters
  // keep their case.
  static Locale fromIdentifier(std::string_view identifier);
};

}  // namespace foundation
