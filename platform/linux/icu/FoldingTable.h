#pragma once
// Folding by table, for the characters whose folded form does not depend on their neighbours. Any thread.
#include <unicode/unistr.h>

#include <string>
#include <string_view>

#include "platform/Unicode.h"

namespace platform::Linux {

// The three options that fold; all others are of no effect.
inline constexpr Unicode::CompareOptions foldingOptions =
    Unicode::CaseInsensitiveSearch | Unicode::DiacriticInsensitiveSearch | Unicode::WidthInsensitiveSearch;

// The library's own string. It counts in 32 bits: of a text of more than 2^30 units, the beginning.
icu::UnicodeString unicodeString(std::u16string_view text);

// Folds a whole text by the library's own operations. Slow and complete.
std::u16string foldedByLibrary(std::u16string_view text, Unicode::CompareOptions options);

// Makes `folded` the folded form of `text` and returns true; false, with `folded` unfinished, when the text has a character
// whose folded form depends on its neighbours.
bool foldByTable(std::u16string_view text, Unicode::CompareOptions options, std::u16string& folded);

}  // namespace platform::Linux
