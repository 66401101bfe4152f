#include "privileged/tool/MountTable.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "posix/MountTable.h"
#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

bool liesAtOrBelow(std::string_view path, std::string_view folder) {
  if (folder == "/") return true;
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

MountTable::MountTable() {
  std::ifstream file(posix::mountTablePath);
  const std::string table{std::istreambuf_iterator(file), {}};
  for (auto& mount : posix::mountsIn(table)) _points.push_back(std::move(mount.point));
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
