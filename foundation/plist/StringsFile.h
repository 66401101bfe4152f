#pragma once
// String tables: `.strings` files as text ("key" = "value";) or as property list.
//
// Pure; any thread. Total on any input.
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace foundation {

using StringTable = std::map<std::string, std::string, std::less<>>;

// Reads a table. Text may be UTF-8 (with or without byte-order mark) or UTF-16 with byte-order mark; both kinds of comment,
// the escapes \" \\ \n \t \r \Uxxxx and \uxxxx, unquoted words and a missing value ("key"; stands for itself) are
// understood. A table with an error is refused as a whole, with `reason` saying the line; later definitions of a key win.
std::optional<StringTable> parseStrings(std::string_view bytes, std::string* reason = nullptr);

}  // namespace foundation
