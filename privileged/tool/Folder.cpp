#include "privileged/tool/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>

#include "privileged/tool/Failure.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

// Without the flag: a folder can only go over an empty one, anything else gets its new name before it loses the old.
int renameInTwoSteps(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  struct stat status {};
  if (::fstatat(toFolder, to.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  if (::fstatat(fromFolder, from.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (S_ISDIR(status.st_mode)) return ::renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0 ? 0 : errno;
  if (::linkat(fromFolder, from.c_str(), toFolder, to.c_str(), 0) != 0) return errno;
  if (::unlinkat(fromFolder, from.c_str(), 0) == 0) return 0;
  const int error = errno;
  ::unlinkat(toFolder, to.c_str(), 0);
  return error;
}

void appendEntries(const char* bytes, long length, std::vector<FolderEntry>& entries) {
  for (long offset = 0; offset < length;) {
    dirent64 entry{};
    const char* record = bytes + offset;
    std::memcpy(&entry, record, offsetof(dirent64, d_name));
    const char* name = record + offsetof(dirent64, d_name);
    if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
      entries.push_back({.name = name, .isFolder = entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN});
    }
    offset += entry.d_reclen;
  }
}

}  // namespace

std::optional<std::vector<FolderEntry>> entriesOf(int folder, std::size_t maximum) {
  std::vector<FolderEntry> entries;
  static std::array<char, 32768> buffer;  // one thread
  if (::lseek(folder, 0, SEEK_SET) < 0) failWithSystemError("cannot read a folder");
  for (;;) {
    const long length = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size());
    if (length < 0) failWithSystemError("cannot read a folder");
    if (length == 0) return entries;
    appendEntries(buffer.data(), length, entries);
    if (entries.size() > maximum) return std::nullopt;
  }
}

std::vector<FolderEntry> entriesOf(int folder) { return *entriesOf(folder, std::numeric_limits<std::size_t>::max()); }

posix::Descriptor openFolderIn(int parent, const std::string& name) {
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
  return posix::Descriptor(static_cast<int>(::syscall(SYS_openat2, parent, name.c_str(), &how, sizeof how)));
}

int renameWithoutReplacing(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  if (::renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  return renameInTwoSteps(fromFolder, from, toFolder, to);
}

struct stat statusOf(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) failWithSystemError("cannot look at an open item");
  return status;
}

std::string linkTargetOf(int folder, const std::string& name) {
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlinkat(folder, name.c_str(), target.data(), target.size());
  if (length < 0 && errno != ENOENT && errno != EINVAL)
    failWithSystemError("cannot read the link" + (name.empty() ? "" : " " + name));
  return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string pathOfDescriptor(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

void syncFolder(int folder) {
  if (syncDescriptor(folder) != 0) failWithSystemError("cannot sync a folder");
}

}  // namespace AssistantTool
