#pragma once
// The archive in which an instruction dictionary travels to the assistant tool: the classic non-keyed typed stream,
// little-endian, so that any unarchiver of that format reads it.
//
// Pure; any thread; needs the standard library only, because the tool links it and runs as root. The reader takes bytes
// from an unprivileged program: it is total, and its memory is bounded by its input.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace InstructionArchive {

// Pairs in the order in which they were put in; keys are unique, strings are UTF-8.
using Instructions = std::vector<std::pair<std::string, std::string>>;

inline constexpr std::size_t maximumBytes = std::size_t{1} << 20;
inline constexpr std::size_t maximumPairs = 64;

// The value for `key`, or nullptr. Owned by `instructions`.
const std::string* valueForKey(const Instructions& instructions, std::string_view key);
// Adds the pair, or replaces the value of a key that is there.
void setValueForKey(Instructions& instructions, std::string_view key, std::string value);

// The bytes of the archive. Every dictionary can be written; one beyond the limits above is refused by the reader.
std::string archivedData(const Instructions& instructions);

// Reads an archive. Refused, with `reason` (when given) saying why: anything that is not exactly one dictionary of strings,
// trailing bytes, duplicate keys, nesting, invalid UTF-8, NUL characters, and what is beyond the limits.
std::optional<Instructions> unarchived(std::string_view bytes, std::string* reason = nullptr);

}  // namespace InstructionArchive
