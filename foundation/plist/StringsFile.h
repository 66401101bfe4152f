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
// accepted. A table with an error is refused as a whole, and `reason` names the line. The last definition of a key wins.
std::optional<StringTable> parseStrings(std::string_view bytes, std::string* reason = nullptr);

}  // namespace foundation
