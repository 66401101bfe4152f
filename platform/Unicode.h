#pragma once
// What the kit asks of the Unicode character data: the classes of characters, folding, and plain search.
//
// Pure functions; any thread. They are no part of Platform, because they answer the same in every process and in every
// test: link the target kelto_platform_unicode, which carries the tables.
//
// Text is UTF-16. Classes are asked of single code units: half of a surrogate pair belongs to none.
#include <cstdint>
#include <string>
#include <string_view>

namespace platform::Unicode {

// The comparison options of the platform, by value. Folding looks at case, diacritics and width, and at no other.
using CompareOptions = std::uint64_t;
inline constexpr CompareOptions CaseInsensitiveSearch = 1;
inline constexpr CompareOptions LiteralSearch = 2;
inline constexpr CompareOptions BackwardsSearch = 4;
inline constexpr CompareOptions AnchoredSearch = 8;
inline constexpr CompareOptions NumericSearch = 64;
inline constexpr CompareOptions DiacriticInsensitiveSearch = 128;
inline constexpr CompareOptions WidthInsensitiveSearch = 256;
inline constexpr CompareOptions ForcedOrderingSearch = 512;

// Tab and the space separators; no line break.
bool isWhitespace(char16_t unit);
// White space, the other separators and the line breaks.
bool isWhitespaceOrNewline(char16_t unit);
// The punctuation categories. A sign such as "+" or "<" is a symbol, not punctuation.
bool isPunctuation(char16_t unit);
// Letters, marks and numbers.
bool isAlphanumeric(char16_t unit);

// Replaces `folded` by `text` folded as the options ask, in this order: wide and narrow forms become ordinary ones; case is
// folded fully ("ß" becomes "ss"), for no locale; nonspacing marks go. The length may change. `folded` keeps its capacity,
// and nothing is allocated for a text that fits, unless it has characters that join with the one before.
void fold(std::u16string_view text, CompareOptions options, std::u16string& folded);
std::u16string folded(std::u16string_view text, CompareOptions options);

// The plain search: true when `searched` is not empty and stands in `text`, case ignored when asked. Texts that differ only
// in how accents are spelled (composed or as marks) are the same, and a match never ends between a letter and its marks.
bool containsString(std::u16string_view text, std::u16string_view searched, bool ignoringCase);

// UTF-8 as UTF-16 and back; what is not well formed becomes U+FFFD.
std::u16string utf16(std::string_view text);
std::string utf8(std::u16string_view text);

}  // namespace platform::Unicode
