#include "platform/linux/RemoveTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/text/Path.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

namespace {

constexpr int folderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A folder on the way down, whose documents are gone.
struct Level {
  std::string name;  // in the folder above
  dev_t device;
  ino_t inode;
  std::vector<std::string> folders;  // still to be removed
};

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// Removes everything in the open folder that is not a folder itself; the names of the folders, or nothing on failure.
std::optional<std::vector<std::string>> removeDocuments(int descriptor) {
  const int copy = ::openat(descriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (copy < 0) return std::nullopt;
  const std::unique_ptr<DIR, CloseFolder> folder(::fdopendir(copy));
  if (!folder) {
    ::close(copy);
    return std::nullopt;
  }
  std::vector<std::string> folders;
  for (errno = 0; const dirent* entry = ::readdir(folder.get()); errno = 0) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (entry->d_type != DT_DIR && ::unlinkat(descriptor, entry->d_name, 0) == 0) continue;
    if (entry->d_type != DT_DIR && errno != EISDIR) return std::nullopt;
    folders.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  return folders;
}

// The walk through one tree. `_current` is the folder of the last level.
class Removal {
 public:
  explicit Removal(posix::Descriptor parent) : _current(std::move(parent)) {}

  bool remove(const std::string& name) {
    if (!enter(name)) return false;
    while (!_levels.empty()) {
      auto& folders = _levels.back().folders;
      if (folders.empty()) {
        if (!leave()) return false;
      } else {
        const std::string next = std::move(folders.back());
        folders.pop_back();
        if (!enter(next)) return false;
      }
    }
    return true;
  }

 private:
  bool enter(const std::string& name) {
    struct stat above {};
    if (::fstat(_current.get(), &above) != 0) return false;
    posix::Descriptor folder(::openat(_current.get(), name.c_str(), folderFlags));
    if (!folder) return false;
    auto folders = removeDocuments(folder.get());
    if (!folders) return false;
    _levels.push_back({name, above.st_dev, above.st_ino, std::move(*folders)});
    _current = std::move(folder);
    return true;
  }

  // Goes up, to the very folder that it came from: one that was moved meanwhile ends the removal.
  bool leave() {
    const Level level = std::move(_levels.back());
    _levels.pop_back();
    posix::Descriptor above(::openat(_current.get(), "..", folderFlags));
    struct stat status {};
    if (!above || ::fstat(above.get(), &status) != 0) return false;
    if (status.st_dev != level.device || status.st_ino != level.inode) return false;
    _current = std::move(above);
    return ::unlinkat(_current.get(), level.name.c_str(), AT_REMOVEDIR) == 0;
  }

  posix::Descriptor _current;
  std::vector<Level> _levels;
};

}  // namespace

bool removeTree(const std::string& path) {
  const std::string name = foundation::Path::lastComponent(path);
  if (name.empty() || name == "/" || name == "." || name == "..") return false;
  const std::string parent = foundation::Path::deletingLastComponent(path);
  posix::Descriptor folder(::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return false;
  if (::unlinkat(folder.get(), name.c_str(), 0) == 0) return true;
  if (errno != EISDIR) return false;
  return Removal(std::move(folder)).remove(name);
}

}  // namespace platform::Linux
