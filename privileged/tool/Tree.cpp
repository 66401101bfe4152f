#include "privileged/tool/Tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

constexpr mode_t SetIDBits = S_ISUID | S_ISGID;
// Up to here each entry is synced by itself; above it one call for the file system is faster.
constexpr std::size_t FewEntries = 16;

struct stat statusIn(int parent, const std::string& name) {
  struct stat status {};
  if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) failWithSystemError("cannot look at " + name);
  return status;
}

bool isToBeAdopted(const struct stat& status, std::optional<Owner> owner) {
  if (owner && Owner{status.st_uid, status.st_gid} != *owner) return true;
  return !S_ISLNK(status.st_mode) && (status.st_mode & SetIDBits) != 0;
}

FileDescriptor folderToRead(int parent, const std::string& name) {
  auto folder = openFolderIn(parent, name);
  if (!folder) failWithSystemError("cannot open the folder " + name);
  return folder;
}

// The names that files with several have in one tree.
class LinkCounts {
 public:
  void add(const struct stat& status) {
    if (!S_ISREG(status.st_mode) || status.st_nlink <= 1) return;
    auto& names = names_[status.st_ino];
    names.all = status.st_nlink;
    ++names.here;
  }
  [[nodiscard]] bool hasOutsideLinks() const {
    return std::ranges::any_of(names_, [](const auto& file) { return file.second.here < file.second.all; });
  }
  [[nodiscard]] bool isInside(const struct stat& status) const {
    if (!S_ISREG(status.st_mode) || status.st_nlink <= 1) return true;
    const auto found = names_.find(status.st_ino);
    return found != names_.end() && found->second.here >= status.st_nlink;
  }

 private:
  struct Names {
    nlink_t here = 0;
    nlink_t all = 0;
  };
  std::map<ino_t, Names> names_;
};

class Surveyor {
 public:
  explicit Surveyor(std::optional<Owner> owner) : owner_(owner) {}

  void look(int parent, const std::string& name) {
    const auto status = statusIn(parent, name);
    ++found_.entries;
    links_.add(status);
    if (isToBeAdopted(status, owner_)) found_.needsAdoption = true;
    if (!S_ISDIR(status.st_mode)) {
      if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) found_.hasSpecialFiles = true;
      return;
    }
    const auto folder = folderToRead(parent, name);
    for (const auto& entry : entriesOf(folder.get())) look(folder.get(), entry.name);
  }
  TreeSurvey finish() {
    found_.hasOutsideLinks = links_.hasOutsideLinks();
    return found_;
  }
  [[nodiscard]] const LinkCounts& links() const { return links_; }

 private:
  std::optional<Owner> owner_;
  TreeSurvey found_;
  LinkCounts links_;
};

class Adopter {
 public:
  Adopter(std::optional<Owner> owner, const LinkCounts& links) : owner_(owner), links_(links) {}

  void adoptItem(int parent, const std::string& name) {
    const auto seen = statusIn(parent, name);
    if (S_ISDIR(seen.st_mode)) {
      const auto folder = folderToRead(parent, name);
      for (const auto& entry : entriesOf(folder.get())) adoptItem(folder.get(), entry.name);
    }
    if (isToBeAdopted(seen, owner_)) adoptEntry(parent, name);
  }

 private:
  // Judged and changed through one descriptor, so that the file changed is the file judged.
  void adoptEntry(int parent, const std::string& name) {
    const FileDescriptor item(::openat(parent, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!item || ::fstat(item.get(), &status) != 0) failWithSystemError("cannot open " + name);
    if (!links_.isInside(status)) return;
    if (owner_ && Owner{status.st_uid, status.st_gid} != *owner_) give(item.get(), name);
    if (!S_ISLNK(status.st_mode)) dropSetIDBits(item.get(), name);
  }
  void give(int item, const std::string& name) const {
    if (::fchownat(item, "", owner_->user, owner_->group, AT_EMPTY_PATH) == 0) return;
    if (errno != EPERM || ::geteuid() == 0) failWithSystemError("cannot change the owner of " + name);
  }
  static void dropSetIDBits(int item, const std::string& name) {
    struct stat status {};
    if (::fstat(item, &status) != 0) failWithSystemError("cannot look at " + name);
    if ((status.st_mode & SetIDBits) == 0) return;
    const mode_t mode = status.st_mode & ALLPERMS & ~SetIDBits;
    if (::chmod(pathOfDescriptor(item).c_str(), mode) != 0) failWithSystemError("cannot change the mode of " + name);
  }

  std::optional<Owner> owner_;
  const LinkCounts& links_;
};

void syncEntries(int parent, const std::string& name) {
  const auto status = statusIn(parent, name);
  if (S_ISDIR(status.st_mode)) {
    const auto folder = folderToRead(parent, name);
    for (const auto& entry : entriesOf(folder.get())) syncEntries(folder.get(), entry.name);
    return syncFolder(folder.get());
  }
  if (!S_ISREG(status.st_mode)) return;
  const FileDescriptor file(::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // A file that its user may write but not read is left to the file system's own pace.
  if (!file && errno == EACCES) return;
  if (!file || ::fsync(file.get()) != 0) failWithSystemError("cannot sync " + name);
}

}  // namespace

TreeSurvey survey(int parent, const std::string& name, std::optional<Owner> owner) {
  Surveyor surveyor(owner);
  surveyor.look(parent, name);
  return surveyor.finish();
}

void adopt(int parent, const std::string& name, std::optional<Owner> owner) {
  Surveyor surveyor(owner);
  surveyor.look(parent, name);
  Adopter(owner, surveyor.links()).adoptItem(parent, name);
}

void syncTree(int parent, const std::string& name, std::size_t entries) {
  if (entries <= FewEntries) return syncEntries(parent, name);
  if (::syncfs(parent) != 0) failWithSystemError("cannot sync the file system");
}

}  // namespace AssistantTool
