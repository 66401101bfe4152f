#include "posix/RemoveTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "posix/Descriptor.h"

namespace posix {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// All entries but "." and "..", read before any is removed; nullopt when they cannot be read.
std::optional<std::vector<std::string>> namesIn(int folder) {
  const int copy = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return std::nullopt;
  const std::unique_ptr<DIR, CloseFolder> open(::fdopendir(copy));
  if (!open) {
    ::close(copy);
    return std::nullopt;
  }
  ::rewinddir(open.get());
  std::vector<std::string> names;
  for (errno = 0; const dirent* entry = ::readdir(open.get()); errno = 0) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return std::nullopt;
  return names;
}

// The walk through one tree. `_current` is the folder of the last level.
class Removal {
 public:
  Removal(int parent, LockedFolders locked, const std::function<void()>& onEntry)
      : _parent(parent), _locked(locked), _onEntry(onEntry) {}

  bool remove(const std::string& name) {
    arrive(name);
    while (!_levels.empty()) {
      auto& names = _levels.back().names;
      if (names.empty()) {
        if (!leave()) return false;
      } else {
        const std::string next = std::move(names.back());
        names.pop_back();
        arrive(next);
      }
    }
    return _isComplete;
  }

 private:
  // A folder on the way down.
  struct Level {
    std::string name;  // in the folder above
    dev_t device;
    ino_t inode;
    std::vector<std::string> names;  // still to be removed
  };

  [[nodiscard]] int here() const { return _levels.empty() ? _parent : _current.get(); }

  void arrive(const std::string& name) {
    const bool isGone = ::unlinkat(here(), name.c_str(), 0) == 0 || errno == ENOENT;
    _onEntry();
    if (!isGone && !enter(name)) _isComplete = false;
  }

  bool enter(const std::string& name) {
    open_how how{};
    how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
    Descriptor folder(static_cast<int>(::syscall(SYS_openat2, here(), name.c_str(), &how, sizeof how)));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) return false;
    unlock(folder.get(), status);
    auto names = namesIn(folder.get());
    if (!names) return false;
    _levels.push_back({name, status.st_dev, status.st_ino, std::move(*names)});
    _current = std::move(folder);
    return true;
  }

  void unlock(int folder, const struct stat& status) const {
    if (_locked == LockedFolders::areKept || ::geteuid() == 0 || (status.st_mode & S_IRWXU) == S_IRWXU) return;
    ::fchmod(folder, (status.st_mode & ALLPERMS) | S_IRWXU);
  }

  // False when the walk has to end.
  bool leave() {
    const std::string name = std::move(_levels.back().name);
    _levels.pop_back();
    if (!_levels.empty() && !goUp()) return false;
    if (::unlinkat(here(), name.c_str(), AT_REMOVEDIR) != 0) _isComplete = false;
    return true;
  }

  // To the very folder that the walk came from, which may have been moved meanwhile.
  bool goUp() {
    Descriptor above(::openat(_current.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!above || ::fstat(above.get(), &status) != 0) return false;
    if (status.st_dev != _levels.back().device || status.st_ino != _levels.back().inode) return false;
    _current = std::move(above);
    return true;
  }

  int _parent;
  LockedFolders _locked;
  const std::function<void()>& _onEntry;
  Descriptor _current;
  std::vector<Level> _levels;
  bool _isComplete = true;
};

}  // namespace

bool removeTree(int parent, const std::string& name, LockedFolders locked, const std::function<void()>& onEntry) {
  return Removal(parent, locked, onEntry).remove(name);
}

bool emptyFolder(int folder, LockedFolders locked, const std::function<void()>& onEntry) {
  const auto names = namesIn(folder);
  if (!names) return false;
  bool isComplete = true;
  for (const auto& name : *names) isComplete = removeTree(folder, name, locked, onEntry) && isComplete;
  return isComplete;
}

}  // namespace posix
