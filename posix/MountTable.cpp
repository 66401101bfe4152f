#include "posix/MountTable.h"

#include <charconv>
#include <optional>

namespace posix {

namespace {

bool isOctal(char digit) { return digit >= '0' && digit <= '7'; }

// The kernel writes blanks, line ends and backslashes of a field as "\" and three octal digits.
std::string unescaped(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) && isOctal(field[i + 2]) &&
        isOctal(field[i + 3])) {
      text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0'));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> parts;
  while (!line.empty()) {
    const auto blank = line.find(' ');
    parts.push_back(line.substr(0, blank));
    if (blank == std::string_view::npos) break;
    line.remove_prefix(blank + 1);
  }
  return parts;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue", with any number of tags before the
// lone "-".
std::optional<Mount> mountOfLine(std::string_view line) {
  const auto parts = fields(line);
  if (parts.size() < 6) return std::nullopt;
  std::uint64_t number = 0;
  const auto end = parts[0].data() + parts[0].size();
  if (std::from_chars(parts[0].data(), end, number).ptr != end) return std::nullopt;
  for (std::size_t i = 6; i + 2 < parts.size(); ++i)
    if (parts[i] == "-") return Mount{number, unescaped(parts[4]), unescaped(parts[i + 1]), unescaped(parts[i + 2])};
  return std::nullopt;
}

}  // namespace

std::vector<Mount> mountsIn(std::string_view table) {
  std::vector<Mount> mounts;
  while (!table.empty()) {
    const auto end = table.find('\n');
    if (auto mount = mountOfLine(table.substr(0, end))) mounts.push_back(*std::move(mount));
    if (end == std::string_view::npos) break;
    table.remove_prefix(end + 1);
  }
  return mounts;
}

}  // namespace posix
