#include "privileged/tool/TreeCopy.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <tuple>
#include <vector>

#include "privileged/tool/ActingAs.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/FileContents.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/FolderChain.h"

namespace AssistantTool {
namespace {

constexpr mode_t permissionBits = ALLPERMS & ~(S_ISUID | S_ISGID);

struct stat statusOf(int item, const std::string& name) {
  struct stat status {};
  if (::fstat(item, &status) != 0) failWithSystemError("cannot look at " + name);
  return status;
}

class TreeCopier final : public TreeVisitor {
 public:
  // The copy of the tree's topmost entry is to be called `newName`.
  TreeCopier(int to, std::string newName, int links, std::optional<Owner> owner, std::optional<Owner> reader)
      : _to(to), _newName(std::move(newName)), _links(links), _owner(owner), _reader(reader) {
    if (::fstatat(links, "..", &_staging, AT_SYMLINK_NOFOLLOW) != 0)
      failWithSystemError("cannot look at the staging folder");
  }

  posix::Descriptor arrive(int from, const FolderEntry& entry) override {
    const bool isTop = _copies.levels() == 0;
    const int to = isTop ? _to : _copies.deepest();
    const auto& newName = isTop ? _newName : entry.name;
    struct stat status {};
    if (::fstatat(from, entry.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      failWithSystemError("cannot look at " + entry.name);
    if (S_ISDIR(status.st_mode)) return startFolder(from, entry.name, to, newName);
    if (!S_ISLNK(status.st_mode) && !S_ISREG(status.st_mode)) throw Failure("not a file, folder or link: " + entry.name);
    S_ISLNK(status.st_mode) ? copyLink(from, entry.name, to, newName, status) : copyFile(from, entry.name, to, newName);
    return {};
  }
  void leave(int /*parent*/, const std::string& name, int source) override {
    finish(source, _copies.deepest(), _statuses.back(), name);
    _copies.leave();
    _statuses.pop_back();
  }

 private:
  // As the reader, so that it is the kernel that judges what may be read.
  template <typename Open>
  auto openSource(int from, const std::string& name, Open open) const {
    const ActingAs acting(_reader);
    return open(from, name);
  }
  static posix::Descriptor openFile(int from, const std::string& name) {
    return posix::Descriptor(::openat(from, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  }

  posix::Descriptor startFolder(int from, const std::string& name, int to, const std::string& newName) {
    auto source = openSource(from, name, openFolderIn);
    if (!source) failWithSystemError("cannot open the folder " + name);
    const auto status = statusOf(source.get(), name);
    if (status.st_dev == _staging.st_dev && status.st_ino == _staging.st_ino) {
      throw Failure("the destination is inside the source");
    }
    if (::mkdirat(to, newName.c_str(), S_IRWXU) != 0) failWithSystemError("cannot make the folder " + name);
    auto target = openFolderIn(to, newName);
    if (!target) failWithSystemError("cannot open the copy of " + name);
    _copies.enter(std::move(target));
    _statuses.push_back(status);
    return source;
  }

  void copyLink(int from, const std::string& name, int to, const std::string& newName, const struct stat& status) {
    const auto target = openSource(from, name, linkTargetOf);
    if (target.empty() || ::symlinkat(target.c_str(), to, newName.c_str()) != 0)
      failWithSystemError("cannot copy the link " + name);
    const Owner owner = ownerFor(status);
    checkGiven(::fchownat(to, newName.c_str(), owner.user, owner.group, AT_SYMLINK_NOFOLLOW), name);
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    if (::utimensat(to, newName.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0)
      failWithSystemError("cannot set the times of " + name);
  }

  void copyFile(int from, const std::string& name, int to, const std::string& newName) {
    const auto source = openSource(from, name, openFile);
    if (!source) failWithSystemError("cannot open " + name);
    const auto status = statusOf(source.get(), name);
    if (!S_ISREG(status.st_mode)) throw Failure("not a file: " + name);
    const auto number = std::to_string(status.st_ino);
    if (status.st_nlink > 1 && ::linkat(_links, number.c_str(), to, newName.c_str(), 0) == 0) return;
    const posix::Descriptor target(
        ::openat(to, newName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!target) failWithSystemError("cannot make the copy of " + name);
    _contents.copy(source.get(), target.get(), status, name);
    finish(source.get(), target.get(), status, name);
    // Where that fails, the file's other names become files of their own.
    if (status.st_nlink > 1) std::ignore = ::linkat(to, newName.c_str(), _links, number.c_str(), 0);
  }

  // Owner first, because giving a file away takes bits of its mode; times last, because everything else changes them.
  void finish(int source, int target, const struct stat& status, const std::string& name) {
    const Owner owner = ownerFor(status);
    const auto made = statusOf(target, name);
    if (Owner{made.st_uid, made.st_gid} != owner) checkGiven(::fchown(target, owner.user, owner.group), name);
    const bool becomesRoots = owner.user == 0 && status.st_uid != 0;
    copyExtendedAttributes(source, target, name, becomesRoots ? AccessLists::left : AccessLists::copied);
    const mode_t kept = becomesRoots ? permissionBits & ~(S_IWGRP | S_IWOTH) : permissionBits;
    if (::fchmod(target, status.st_mode & kept) != 0) failWithSystemError("cannot set the mode of " + name);
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    if (::futimens(target, times.data()) != 0) failWithSystemError("cannot set the times of " + name);
  }

  [[nodiscard]] Owner ownerFor(const struct stat& status) const {
    return _owner.value_or(Owner{status.st_uid, status.st_gid});
  }
  // An ordinary user keeps what it may not give away.
  static void checkGiven(int result, const std::string& name) {
    if (result != 0 && (errno != EPERM || ::geteuid() == 0)) failWithSystemError("cannot set the owner of " + name);
  }

  int _to;
  std::string _newName;
  int _links;
  std::optional<Owner> _owner;
  std::optional<Owner> _reader;
  FolderChain _copies;                 // of the folders that the walk is in
  std::vector<struct stat> _statuses;  // of these folders
  struct stat _staging {};  // the folder that holds copy and links: met inside the source it would be copied into itself
  FileContents _contents;
};

}  // namespace

void copyTree(int from, const std::string& name, int to, const std::string& newName, int links, std::optional<Owner> owner,
              const TreeBounds& bounds, std::optional<Owner> reader) {
  TreeCopier copier(to, newName, links, owner, reader);
  walkTree(from, name, copier, bounds);
}

}  // namespace AssistantTool
