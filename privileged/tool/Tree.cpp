#include "privileged/tool/Tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"
#include "privileged/tool/TreeWalk.h"

namespace AssistantTool {
namespace {

constexpr mode_t setIDBits = S_ISUID | S_ISGID;
// Up to here each entry is synced by itself; above it one call for the file system is faster.
constexpr std::size_t fewEntries = 16;

struct stat statusIn(int parent, const std::string& name) {
  struct stat status {};
  if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) failWithSystemError("cannot look at " + name);
  return status;
}

bool isToBeAdopted(const struct stat& status, std::optional<Owner> owner) {
  if (owner && Owner{status.st_uid, status.st_gid} != *owner) return true;
  return !S_ISLNK(status.st_mode) && (status.st_mode & setIDBits) != 0;
}

// It would be given to an ordinary user who cannot do with it as they like already. Only root can give.
bool isGainedByAUser(const struct stat& status, std::optional<Owner> owner) {
  return owner && owner->user != 0 && owner->user != status.st_uid && ::geteuid() == 0;
}

bool hasSeveralNames(const struct stat& status) { return !S_ISDIR(status.st_mode) && status.st_nlink > 1; }

// For every entry of the tree, contents before their folder.
template <typename Visit>
class ContentsFirst final : public TreeVisitor {
 public:
  explicit ContentsFirst(const Visit& visit) : _visit(visit) {}
  posix::Descriptor arrive(int parent, const FolderEntry& entry) override {
    auto folder = openIfFolder(parent, entry);
    if (!folder) _visit(parent, entry.name);
    return folder;
  }
  void leave(int parent, const std::string& name, int /*folder*/) override { _visit(parent, name); }

 private:
  const Visit& _visit;
};
template <typename Visit>
void visitTree(int parent, const std::string& name, const Visit& visit) {
  ContentsFirst<Visit> visitor(visit);
  walkTree(parent, name, visitor, anyNumberOfEntries);
}

// The names that files with several have in one tree.
class LinkCounts {
 public:
  void add(const struct stat& status) {
    if (!S_ISREG(status.st_mode) || status.st_nlink <= 1) return;
    auto& names = _names[status.st_ino];
    names.all = status.st_nlink;
    ++names.here;
  }
  [[nodiscard]] bool hasOutsideLinks() const {
    return std::ranges::any_of(_names, [](const auto& file) { return file.second.here < file.second.all; });
  }

 private:
  struct Names {
    nlink_t here = 0;
    nlink_t all = 0;
  };
  std::map<ino_t, Names> _names;
};

class Surveyor final : public TreeVisitor {
 public:
  Surveyor(std::optional<Owner> owner, const TreeBounds& bounds) : _owner(owner) { _found.bounds = bounds; }

  posix::Descriptor arrive(int parent, const FolderEntry& entry) override {
    const auto status = statusIn(parent, entry.name);
    ++_found.entries;
    _links.add(status);
    if (isToBeAdopted(status, _owner)) {
      _found.needsAdoption = true;
      const bool losesBits = S_ISREG(status.st_mode) && (status.st_mode & setIDBits) != 0;
      if (hasSeveralNames(status) || losesBits || isGainedByAUser(status, _owner)) _found.mustBeCopied = true;
    }
    const auto kind = status.st_mode & S_IFMT;
    if (kind != S_IFDIR && kind != S_IFREG && kind != S_IFLNK) _found.hasSpecialFiles = true;
    return kind == S_IFDIR ? openIfFolder(parent, {.name = entry.name, .isFolder = true}) : posix::Descriptor();
  }
  TreeSurvey finish() {
    if (_links.hasOutsideLinks()) _found.mustBeCopied = true;
    return _found;
  }

 private:
  std::optional<Owner> _owner;
  TreeSurvey _found;
  LinkCounts _links;
};

void changeMode(int item, mode_t mode, const std::string& name) {
  if (::chmod(pathOfDescriptor(item).c_str(), mode) != 0) failWithSystemError("cannot change the mode of " + name);
}

void syncFile(int parent, const std::string& name) {
  if (!S_ISREG(statusIn(parent, name).st_mode)) return;
  const posix::Descriptor file(::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // A file that its user may write but not read is left to the file system's own pace.
  if (!file && errno == EACCES) return;
  if (!file || syncDescriptor(file.get()) != 0) failWithSystemError("cannot sync " + name);
}

class Syncer final : public TreeVisitor {
 public:
  posix::Descriptor arrive(int parent, const FolderEntry& entry) override {
    auto folder = openIfFolder(parent, entry);
    if (!folder) syncFile(parent, entry.name);
    return folder;
  }
  void leave(int /*parent*/, const std::string& /*name*/, int folder) override { syncFolder(folder); }
};

}  // namespace

TreeSurvey survey(int parent, const std::string& name, std::optional<Owner> owner, const TreeBounds& bounds) {
  Surveyor surveyor(owner, bounds);
  walkTree(parent, name, surveyor, bounds);
  return surveyor.finish();
}

void Adoption::apply(int parent, const std::string& name) {
  visitTree(parent, name, [this](int folder, const std::string& entry) { applyToEntry(folder, entry); });
}

// Judged and changed through one descriptor, so that the file changed is the file judged.
void Adoption::applyToEntry(int parent, const std::string& name) {
  if (!isToBeAdopted(statusIn(parent, name), _owner)) return;
  const posix::Descriptor item(::openat(parent, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!item || ::fstat(item.get(), &status) != 0) failWithSystemError("cannot open " + name);
  if (hasSeveralNames(status)) return;
  const Owner before{status.st_uid, status.st_gid};
  const mode_t bitsToGiveBack = S_ISDIR(status.st_mode) ? ALLPERMS : ALLPERMS & ~setIDBits;
  if (!isGainedByAUser(status, _owner)) _changed.push_back({status.st_ino, before, status.st_mode & bitsToGiveBack});
  if (_owner && before != *_owner) give(item.get(), name);
  if (S_ISLNK(status.st_mode) || (status.st_mode & setIDBits) == 0) return;
  // Giving it away may have taken bits of its mode already.
  changeMode(item.get(), status.st_mode & ALLPERMS & ~setIDBits, name);
}

void Adoption::give(int item, const std::string& name) const {
  if (::fchownat(item, "", _owner->user, _owner->group, AT_EMPTY_PATH) == 0) return;
  if (errno != EPERM || ::geteuid() == 0) failWithSystemError("cannot change the owner of " + name);
}

void Adoption::undo(int parent, const std::string& name) const {
  std::map<ino_t, Was> were;
  for (const auto& was : _changed) were.insert({was.inode, was});
  if (were.empty()) return;
  try {
    visitTree(parent, name, [&were](int folder, const std::string& entry) {
      const posix::Descriptor item(::openat(folder, entry.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
      struct stat status {};
      if (!item || ::fstat(item.get(), &status) != 0) return;
      const auto was = were.find(status.st_ino);
      if (was == were.end() || hasSeveralNames(status)) return;
      const auto& [inode, owner, mode] = was->second;
      if (::fchownat(item.get(), "", owner.user, owner.group, AT_EMPTY_PATH) != 0 && ::geteuid() == 0) return;
      if (!S_ISLNK(status.st_mode)) changeMode(item.get(), mode, entry);
    });
  } catch (const Failure&) {
    // The failure that brought us here is the one to tell.
  }
}

void syncTree(int parent, const std::string& name, std::size_t entries) {
  if (entries > fewEntries) return syncFileSystem(parent);
  Syncer syncer;
  walkTree(parent, name, syncer, anyNumberOfEntries);
}

void syncFileSystem(int folder) {
  if (syncFileSystemOf(folder) != 0) failWithSystemError("cannot sync the file system");
}

}  // namespace AssistantTool
