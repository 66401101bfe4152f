#include "platform/linux/FolderNames.h"

#include <dirent.h>

#include <memory>
#include <string_view>

namespace platform::Linux {
namespace {

struct CloseFolderOfNames {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

bool isReal(std::string_view name) { return name != "." && name != ".."; }

}  // namespace

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, CloseFolderOfNames> open(::opendir(folder.c_str()));
  if (!open) return names;
  while (const dirent* entry = ::readdir(open.get()))
    if (isReal(entry->d_name)) names.emplace_back(entry->d_name);
  return names;
}

}  // namespace platform::Linux
