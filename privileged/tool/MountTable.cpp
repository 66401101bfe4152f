#include "privileged/tool/MountTable.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

// The kernel writes blank, tab, line feed and backslash as a backslash and three octal digits.
std::string unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      const int code = (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
      plain.push_back(static_cast<char>(code));
      i += 3;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

bool liesAtOrBelow(std::string_view path, std::string_view folder) {
  if (folder == "/") return true;
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

MountTable::MountTable() {
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string field;
    for (int i = 0; i < 5; ++i) fields >> field;  // id, parent, device, root, mount point
    if (fields) _points.push_back(unescaped(field));
  }
  if (_points.empty()) throw Failure("the table of mounts cannot be read");
}

bool MountTable::isOrHoldsMount(std::string_view path) const {
  return std::ranges::any_of(_points, [&](const auto& point) { return liesAtOrBelow(point, path); });
}

std::string MountTable::topFolderOf(std::string_view path) const {
  std::string top = "/";
  for (const auto& point : _points) {
    if (point.size() > top.size() && liesAtOrBelow(path, point)) top = point;
  }
  return top;
}

}  // namespace AssistantTool
