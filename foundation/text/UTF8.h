#pragma once
// UTF-8 text from outside. Pure; any thread.
#include <string>
#include <string_view>

namespace foundation {

// True when `bytes` is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUTF8(std::string_view bytes);

// `bytes` read as ASCII: every byte above 127 becomes U+FFFD.
std::string textFromASCII(std::string_view bytes);

// Appends one character; it must be a Unicode scalar value.
void appendUTF8(std::string& text, char32_t character);

}  // namespace foundation
