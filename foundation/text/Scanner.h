#pragma once
// Numbers in text. Pure; any thread.
#include <cstdint>
#include <optional>
#include <string_view>

namespace foundation {

// Removes a decimal integer with its sign from the front of `text`. One that does not fit becomes the nearest limit.
// Returns nullopt, and leaves `text` unchanged, if it does not begin with an integer.
std::optional<std::int64_t> scanInteger(std::string_view& text);

}  // namespace foundation
