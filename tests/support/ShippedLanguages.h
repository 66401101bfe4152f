#pragma once
// The languages of the installer's texts, as their folders are named.
#include <array>

namespace tests {

inline constexpr std::array shippedLanguages{"ar", "bg",      "ca", "cs", "da", "de",    "el", "en", "en-GB",   "es",
                                             "fa", "fi",      "fr", "he", "hi", "hr",    "hu", "id", "it",      "ja",
                                             "ko", "nb",      "nl", "pl", "pt", "pt-BR", "ro", "ru", "sk",      "sl",
                                             "sr", "sr-Latn", "sv", "th", "tr", "uk",    "ur", "vi", "zh-Hans", "zh-Hant"};

}  // namespace tests
