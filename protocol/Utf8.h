#pragma once
// Text that a program got from another one.
//
// Pure; any thread.
#include <string_view>

namespace protocol {

// Whether all of `text` is well-formed UTF-8 (RFC 3629): no overlong form, no surrogate, nothing cut off.
bool isValidUTF8(std::string_view text);

// Whether the character is one of the 33 of ASCII that are not printed: below the space, or delete. No byte of a character
// beyond ASCII is one in UTF-8.
bool isControlCharacter(char character);
bool hasControlCharacter(std::string_view text);

}  // namespace protocol
