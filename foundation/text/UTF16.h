#pragma once
// UTF-16 text from outside, and text files of unknown encoding. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

enum class ByteOrder { little, big };

// `bytes` as UTF-8. Returns nullopt if a unit is cut off or a surrogate has no partner.
std::optional<std::string> utf8FromUTF16(std::string_view bytes, ByteOrder order);

// The contents of a text file as UTF-8 without byte-order mark. The file is read as UTF-16 if it begins with that mark, and
// as UTF-8 otherwise. Returns nullopt if it is malformed.
std::optional<std::string> decodedText(std::string_view bytes);

}  // namespace foundation
