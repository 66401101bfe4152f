#pragma once
// Text that a program got from another one.
//
// Pure; any thread.
#include <string_view>

namespace protocol {

// Whether all of `text` is well-formed UTF-8 (RFC 3629): no overlong form, no surrogate, nothing cut off.
bool isValidUTF8(std::string_view text);

}  // namespace protocol
