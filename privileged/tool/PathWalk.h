#pragma once
// From a path named by an unprivileged program to a folder held open and the item's name in it.
//
// The walk starts at "/" and takes one step at a time, so that each symbolic link is judged where it lies: it is followed
// only when nobody but root and the invoking user can write the folder that holds it. Root follows one that the invoking
// user could have laid, in a folder of theirs or on a volume they brought along, to folders of that user only: else any
// program of theirs could turn a job against the machine, by laying a link while it runs. The last component is never
// followed. Paths that are relative, hold "." or "..", or name "/" are refused.
#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "posix/Descriptor.h"

namespace AssistantTool {

// An item by the folder that holds it. The item itself need not exist.
struct Location {
  posix::Descriptor folder;  // opened with O_PATH: good for *at calls, not for reading
  std::string name;
  std::string path;  // absolute, without links in the folders

  // The current status, without following a link; nullopt when the item is missing.
  [[nodiscard]] std::optional<struct stat> status() const;
  [[nodiscard]] bool exists() const { return status().has_value(); }
  // The folder opened for reading and syncing.
  [[nodiscard]] posix::Descriptor openFolder() const;
  [[nodiscard]] std::string folderPath() const;
};

// True when somebody other than root and `user` may change what `status` describes.
bool canBeWrittenByOthers(const struct stat& status, uid_t user);

// Whether the open folder is root's. Owners prove nothing on a file system that people bring along; those are mounted
// without set-id programs. Throws Failure.
bool isRoots(int folder);

class PathWalk {
 public:
  explicit PathWalk(uid_t invokingUser) : _user(invokingUser) {}

  [[nodiscard]] uid_t user() const { return _user; }
  // Throws Failure when the path is refused or a folder on the way is missing.
  [[nodiscard]] Location locate(std::string_view path) const;
  // The item `name` in the folder at `folderPath`, whose last component is followed by the same rule.
  [[nodiscard]] Location locateInside(std::string_view folderPath, std::string_view name) const;

 private:
  uid_t _user;
};

}  // namespace AssistantTool
