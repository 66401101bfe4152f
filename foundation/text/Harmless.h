#pragma once
// Text of strangers for a terminal or one line of a log.
#include <string>
#include <string_view>

namespace foundation {

// `text` with control characters, line feeds among them, and bytes that are not UTF-8 as "\xHH".
std::string harmless(std::string_view text);

}  // namespace foundation
