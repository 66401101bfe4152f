#pragma once
// UTF-8 text from outside. Pure; any thread.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace foundation {

// True when `bytes` is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUTF8(std::string_view bytes);

// `bytes` read as ASCII: every byte above 127 becomes U+FFFD.
std::string textFromASCII(std::string_view bytes);

// Characters are Unicode scalar values. In text that is not well-formed every byte counts that does not continue a
// character.
std::size_t characterCount(std::string_view text);
// The first `count` characters of `text`, or all of it if it has fewer.
std::string_view firstCharacters(std::string_view text, std::size_t count);

// True for a number that is a character: at most U+10FFFF, and not a surrogate.
constexpr bool isUnicodeScalar(std::uint64_t number) { return number <= 0x10FFFF && (number < 0xD800 || number > 0xDFFF); }

// Appends one character; it must be a Unicode scalar value.
void appendUTF8(std::string& text, char32_t character);

}  // namespace foundation
