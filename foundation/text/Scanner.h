#pragma once
// Numbers in text. Pure; any thread.
#include <cstdint>
#include <optional>
#include <string_view>

namespace foundation {

// Takes a decimal integer with its sign off the front of `text`. One that does not fit stops at the limit. Nothing, and
// `text` untouched, when it begins with none.
std::optional<std::int64_t> scanInteger(std::string_view& text);

}  // namespace foundation
