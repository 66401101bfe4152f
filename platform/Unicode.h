#pragma once
// Unicode character data: character classes, folding, and plain search.
//
// Pure functions; any thread. Platform does not hold them, because they give the same results in every process and in every
// test: link the target kelto_platform_unicode, which carries the tables.
//
// Text is UTF-16. Classes apply to single code units; half of a surrogate pair belongs to no class.
#include <cstdint>
#include <string>
#include <string_view>

namespace platform::Unicode {

// Comparison options, with the numbers of the system's own interface. Folding honours only those for case, diacritics and
// width.
using CompareOptions = std::uint64_t;
inline constexpr CompareOptions CaseInsensitiveSearch = 1;
inline constexpr CompareOptions LiteralSearch = 2;
inline constexpr CompareOptions BackwardsSearch = 4;
inline constexpr CompareOptions AnchoredSearch = 8;
inline constexpr CompareOptions NumericSearch = 64;
inline constexpr CompareOptions DiacriticInsensitiveSearch = 128;
inline constexpr CompareOptions WidthInsensitiveSearch = 256;
inline constexpr CompareOptions ForcedOrderingSearch = 512;

// Tab and the space separators, but no line breaks.
bool isWhitespace(char16_t unit);
// White space, the other separators and the line breaks.
bool isWhitespaceOrNewline(char16_t unit);
// The punctuation categories. A sign such as "+" or "<" is a symbol, not punctuation.
bool isPunctuation(char16_t unit);
// Letters, marks and numbers.
bool isAlphanumeric(char16_t unit);

// Sets `folded` to `text` folded by the options, in this order: wide and narrow forms become ordinary ones; case is folded
// fully ("ß" becomes "ss") and independently of the locale; nonspacing marks are dropped. The length may change. `folded`
// keeps its capacity, so a text that fits costs no allocation unless it has characters that combine with the one before.
void fold(std::u16string_view text, CompareOptions options, std::u16string& folded);
std::u16string folded(std::u16string_view text, CompareOptions options);

// True if `text` contains `searched`, which must not be empty; optionally ignores case. Composed and decomposed accents
// match each other, and a match never ends between a letter and its marks.
bool containsString(std::u16string_view text, std::u16string_view searched, bool ignoringCase);

// Converts between UTF-8 and UTF-16; ill-formed input becomes U+FFFD.
std::u16string utf16(std::string_view text);
std::string utf8(std::u16string_view text);

}  // namespace platform::Unicode
