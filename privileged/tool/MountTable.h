#pragma once
// Where the file systems of this process's name space are mounted, as the tool asks for them.
#include <string>
#include <string_view>
#include <vector>

namespace AssistantTool {

class MountTable {
 public:
  // Throws Failure when the table cannot be read: then nothing is known to be safe.
  MountTable();

  // True when `path` (absolute, without links) is the root of a mounted file system or has one somewhere below it.
  [[nodiscard]] bool isOrHoldsMount(std::string_view path) const;
  // The mount point above `path` or at it; "/" at least.
  [[nodiscard]] std::string topFolderOf(std::string_view path) const;

 private:
  std::vector<std::string> _points;
};

}  // namespace AssistantTool
