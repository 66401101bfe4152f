#pragma once
// UTF-16 text from outside, and text files of unknown encoding. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

enum class ByteOrder { little, big };

// `bytes` as UTF-8. Nothing when a unit is cut off or a surrogate has no partner.
std::optional<std::string> utf8FromUTF16(std::string_view bytes, ByteOrder order);

// What a text file holds, as UTF-8 without byte-order mark: UTF-16 when it begins with that mark, UTF-8 otherwise. Nothing
// when it is not well formed.
std::optional<std::string> decodedText(std::string_view bytes);

}  // namespace foundation
