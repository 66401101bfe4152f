#include "platform/linux/authorizationd/ToolFolders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>

namespace platform::Linux::authorizationd {

namespace {

bool isOwnedBy(const struct stat& item, uid_t trusted) { return item.st_uid == 0 || item.st_uid == trusted; }
bool isWritableByOthers(const struct stat& item) { return (item.st_mode & (S_IWGRP | S_IWOTH)) != 0; }

// Why the open folder must not be believed, or nullptr.
const char* objectionToFolder(int folder, bool isLast, uid_t trusted) {
  struct stat item {};
  if (::fstat(folder, &item) != 0) return "cannot be examined";
  if (!isOwnedBy(item, trusted)) return "belongs to another user";
  const bool isSticky = !isLast && (item.st_mode & S_ISVTX) != 0;
  return isWritableByOthers(item) && !isSticky ? "can be written by others" : nullptr;
}

posix::Descriptor refused(std::string& cause, const std::string& path, const char* why) {
  cause = path + " " + why;
  errno = EPERM;
  return posix::Descriptor();
}

constexpr unsigned neededOfTool = STATX_TYPE | STATX_MODE | STATX_UID | STATX_INO;

std::string nameOf(int file) {
  std::array<char, 4096> path{};
  const ssize_t length = ::readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path.data(), path.size());
  const std::string_view whole(path.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  return std::string(whole.substr(whole.rfind('/') + 1));
}

// The name alone proves nothing, since it may come from a mount namespace of the caller's: the file of that name, here, has
// to be the same one.
bool liesIn(int folder, const std::string& name, const struct statx& tool) {
  struct statx entry {};
  return ::statx(folder, name.c_str(), AT_SYMLINK_NOFOLLOW, neededOfTool, &entry) == 0 &&
         entry.stx_dev_major == tool.stx_dev_major && entry.stx_dev_minor == tool.stx_dev_minor &&
         entry.stx_ino == tool.stx_ino;
}

// The file's contents, or nothing with `cause`.
std::optional<std::string> readTrustedFile(int folder, const std::string& name, uid_t trusted, std::string& cause) {
  const posix::Descriptor file(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat item {};
  if (!file || ::fstat(file.get(), &item) != 0) {
    cause = std::strerror(errno);
    return std::nullopt;
  }
  if (!S_ISREG(item.st_mode)) cause = "not a regular file";
  if (!isOwnedBy(item, trusted)) cause = "belongs to another user";
  if (isWritableByOthers(item)) cause = "can be written by others";
  if (!cause.empty()) return std::nullopt;
  std::string text(protocol::maximumPolicyFileBytes + 1, '\0');
  std::size_t length = 0;
  for (ssize_t got = 1; got > 0 && length < text.size(); length += static_cast<std::size_t>(got)) {
    got = ::read(file.get(), text.data() + length, text.size() - length);
    if (got >= 0) continue;
    cause = std::strerror(errno);
    return std::nullopt;
  }
  text.resize(length);
  return text;
}

}  // namespace

posix::Descriptor openTrustedFolder(const std::string& path, uid_t trusted, std::string& cause) {
  constexpr int flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  posix::Descriptor folder(::open("/", flags));
  for (std::size_t begin = 1; folder;) {
    const bool isLast = begin > path.size();
    const std::string reached = begin > 1 ? path.substr(0, begin - 1) : "/";
    if (const char* why = objectionToFolder(folder.get(), isLast, trusted)) return refused(cause, reached, why);
    if (isLast) return folder;
    const auto end = std::min(path.find('/', begin), path.size());
    folder = posix::Descriptor(::openat(folder.get(), path.substr(begin, end - begin).c_str(), flags));
    begin = end + 1;
  }
  const int error = errno;
  cause = path + ": " + std::strerror(error);
  errno = error;
  return posix::Descriptor();
}

protocol::Policy readPolicy(const std::string& path, uid_t trusted, std::string& cause) {
  const auto slash = path.rfind('/');
  const posix::Descriptor folder = openTrustedFolder(path.substr(0, slash), trusted, cause);
  const bool isFolderMissing = !folder && errno == ENOENT;
  std::optional<std::string> text;
  if (folder) text = readTrustedFile(folder.get(), path.substr(slash + 1), trusted, cause);
  if (isFolderMissing || (folder && !text && cause == std::strerror(ENOENT))) {
    cause.clear();
    return {};
  }
  const auto policy = text ? protocol::parsePolicy(*text, &cause) : std::nullopt;
  if (policy) return *policy;
  cause = path + " is refused: " + cause;
  return protocol::strictestPolicy();
}

std::string objectionAsTool(int tool, const std::vector<std::string>& folders, uid_t trusted) {
  // The program's own file system, which may be the caller's, is not asked and so cannot keep the broker waiting.
  struct statx item {};
  if (::statx(tool, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, neededOfTool, &item) != 0)
    return "the program cannot be examined";
  std::string why = "the program lies in no folder for tools";
  const std::string name = nameOf(tool);
  for (const auto& path : folders) {
    std::string cause;
    const posix::Descriptor folder = openTrustedFolder(path, trusted, cause);
    if (!folder) why = "a folder for tools is of no use: " + cause;
    if (!folder || !liesIn(folder.get(), name, item)) continue;
    if (item.stx_uid != 0 && item.stx_uid != trusted) return "the program belongs to another user";
    return (item.stx_mode & (S_IWGRP | S_IWOTH)) != 0 ? "the program is writable by others" : "";
  }
  return why;
}

}  // namespace platform::Linux::authorizationd
