#pragma once
// Reads what administrators wrote: files that belong to root, that nobody else can write, and that no link leads to. The
// folder and the one above it are held to the same, since everybody who can write these could exchange the file.
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "posix/Descriptor.h"

namespace AssistantTool {

class TrustedFolder {
 public:
  // `owner` is root but in tests. Throws Failure when the folder is there and cannot be believed.
  TrustedFolder(const std::string& path, uid_t owner);

  // False when there is no such folder.
  [[nodiscard]] bool exists() const { return static_cast<bool>(_folder); }
  [[nodiscard]] int descriptor() const { return _folder.get(); }
  // nullopt when no such file is there. Throws Failure when it cannot be believed or is longer than `maximum`.
  [[nodiscard]] std::optional<std::string> contents(const std::string& name, std::size_t maximum) const;

 private:
  void requireOwned(int item, const std::string& path) const;

  std::string _path;
  uid_t _owner;
  posix::Descriptor _folder;
};

}  // namespace AssistantTool
