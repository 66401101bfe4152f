#include "platform/linux/LogStorage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <thread>

#include "foundation/text/Path.h"
#include "platform/linux/FolderNames.h"
#include "platform/linux/PathKind.h"
#include "posix/Descriptor.h"

namespace platform::Linux {
namespace {

std::string attributeName(const std::string& name) { return "user." + name; }

foundation::Date dateOf(const struct statx_timestamp& time) {
  return foundation::Date(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

std::optional<struct statx> factsOf(const std::string& path) {
  struct statx facts {};
  constexpr unsigned wanted = STATX_BASIC_STATS | STATX_BTIME;
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, wanted, &facts) != 0) return std::nullopt;
  return facts;
}

// The end of the names of all hidden neighbours that stand for marks of a file; empty when there is no such file.
std::string markSuffix(const std::string& path) {
  const auto facts = factsOf(path);
  if (!facts) return {};
  const auto birth = (facts->stx_mask & STATX_BTIME) != 0 ? dateOf(facts->stx_btime) : foundation::Date();
  return "-" + std::to_string(facts->stx_ino) + "-" + std::to_string(birth.time_since_epoch().count());
}

// The hidden neighbour that stands for one mark; empty when there is no such file.
std::string markFile(const std::string& path, const std::string& name) {
  const std::string suffix = markSuffix(path);
  return suffix.empty() ? std::string()
                        : foundation::Path::appending(foundation::Path::deletingLastComponent(path), "." + name + suffix);
}

void removeMarkFiles(const std::string& folder, const std::string& suffix) {
  for (const auto& name : namesIn(folder))
    if (name.starts_with('.') && name.ends_with(suffix)) ::unlink(foundation::Path::appending(folder, name).c_str());
}

bool hasNoAttributes(int error) { return error == ENOTSUP; }

int makeEmptyFile(const std::string& path, int flags) {
  const posix::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | flags, 0644));
  return file ? 0 : errno;
}

// Another process takes no longer to remove a file, or to think better of it. A stranger's lock is not waited for.
constexpr int lockAttempts = 20;
constexpr std::chrono::milliseconds lockPause{1};

bool lockShared(int descriptor) {
  for (int attempt = 0; ::flock(descriptor, LOCK_SH | LOCK_NB) != 0; ++attempt) {
    if (errno != EINTR && errno != EWOULDBLOCK) return errno == EOPNOTSUPP || errno == ENOLCK;
    if (attempt == lockAttempts) return true;
    std::this_thread::sleep_for(lockPause);
  }
  return true;
}

// Writes at the end of a file that was opened for appending, whatever the offset: then the kernel has no place in the file
// to lock. The bare call, because the library's own wraps it for threads that are cancelled.
ssize_t appendOnce(int descriptor, std::string_view bytes) {
  return ::syscall(SYS_pwrite64, descriptor, bytes.data(), bytes.size(), off_t{0});
}

class OpenLogFile final : public LogFile {
 public:
  OpenLogFile(posix::Descriptor file, const struct stat& status)
      : _file(std::move(file)), _device(status.st_dev), _number(status.st_ino) {}

  std::size_t append(std::string_view bytes, int& error) override {
    std::size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t count = appendOnce(_file.get(), bytes.substr(written));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) {
        error = count < 0 ? errno : ENOSPC;
        break;
      }
      written += static_cast<std::size_t>(count);
    }
    return written;
  }

  [[nodiscard]] std::uint64_t size() const override {
    struct stat status {};
    return ::fstat(_file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  [[nodiscard]] std::string contentsFrom(std::uint64_t offset) const override {
    std::string contents;
    char buffer[16384];
    for (;;) {
      const ssize_t count = ::pread(_file.get(), buffer, sizeof buffer, static_cast<off_t>(offset + contents.size()));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return contents;
      contents.append(buffer, static_cast<std::size_t>(count));
    }
  }

  bool synchronize() override { return ::fsync(_file.get()) == 0; }

  void endUse() override { ::flock(_file.get(), LOCK_UN); }

  [[nodiscard]] Place placeOf(const std::string& path) const override {
    struct stat status {};
    const bool isSomething = ::lstat(path.c_str(), &status) == 0;
    // A path that cannot be looked at, for want of rights for example, does not tell that the file has moved.
    if (!isSomething && errno != ENOENT && errno != ENOTDIR) return Place::there;
    if (isSomething && status.st_dev == _device && status.st_ino == _number) return Place::there;
    return ::fstat(_file.get(), &status) == 0 && status.st_nlink > 0 ? Place::moved : Place::unlinked;
  }

 private:
  const posix::Descriptor _file;
  const dev_t _device;
  const ino_t _number;
};

}  // namespace

bool LogStorage::fileExists(const std::string& path) const {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool LogStorage::createDirectory(const std::string& path, Error& error) {
  std::error_code code;
  std::filesystem::create_directories(path, code);
  if (!code && std::filesystem::is_directory(path, code)) return true;
  error = {code ? code.value() : ENOTDIR, code ? code.message() : std::generic_category().message(ENOTDIR)};
  return false;
}

std::vector<std::string> LogStorage::namesInDirectory(const std::string& path) const { return namesIn(path); }

std::optional<LogFileAttributes> LogStorage::attributesOfFile(const std::string& path) const {
  const auto facts = factsOf(path);
  if (!facts) return std::nullopt;
  const bool hasBirth = (facts->stx_mask & STATX_BTIME) != 0;
  return LogFileAttributes{.size = facts->stx_size,
                           .creationDate = dateOf(hasBirth ? facts->stx_btime : facts->stx_ctime),
                           .modificationDate = dateOf(facts->stx_mtime)};
}

bool LogStorage::createFile(const std::string& path) { return makeEmptyFile(path, O_EXCL) == 0; }

std::unique_ptr<LogFile> LogStorage::openFile(const std::string& path) {
  posix::Descriptor file(::open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file || !lockShared(file.get()) || ::fstat(file.get(), &status) != 0) return nullptr;
  // It may have been removed before the lock was ours; and a pipe cannot be a log file.
  if (status.st_nlink == 0 || !S_ISREG(status.st_mode)) return nullptr;
  return std::make_unique<OpenLogFile>(std::move(file), status);
}

bool LogStorage::removeFile(const std::string& path) {
  const posix::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file || (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)) return false;
  const bool hasMarkFiles = ::fgetxattr(file.get(), "user.any", nullptr, 0) < 0 && hasNoAttributes(errno);
  const std::string suffix = hasMarkFiles ? markSuffix(path) : std::string();
  if (::unlink(path.c_str()) != 0) return false;
  if (!suffix.empty()) removeMarkFiles(foundation::Path::deletingLastComponent(path), suffix);
  return true;
}

bool LogStorage::moveFile(const std::string& path, const std::string& newPath, Error& error) {
  if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, newPath.c_str(), RENAME_NOREPLACE) == 0) return true;
  error = {errno, std::generic_category().message(errno)};
  return false;
}

bool LogStorage::hasMark(const std::string& path, const std::string& name) const {
  if (::lgetxattr(path.c_str(), attributeName(name).c_str(), nullptr, 0) >= 0) return true;
  return hasNoAttributes(errno) && exists(markFile(path, name));
}

int LogStorage::setMark(const std::string& path, const std::string& name) {
  if (::lsetxattr(path.c_str(), attributeName(name).c_str(), "", 0, 0) == 0) return 0;
  const int error = errno;
  const std::string substitute = hasNoAttributes(error) ? markFile(path, name) : std::string();
  return substitute.empty() ? error : makeEmptyFile(substitute, 0);
}

int LogStorage::removeMark(const std::string& path, const std::string& name, bool& wasMissing) {
  if (::lremovexattr(path.c_str(), attributeName(name).c_str()) == 0) return 0;
  int error = errno;
  const std::string substitute = hasNoAttributes(error) ? markFile(path, name) : std::string();
  if (!substitute.empty()) error = ::unlink(substitute.c_str()) == 0 ? 0 : errno;
  wasMissing = error == ENODATA || (!substitute.empty() && error == ENOENT);
  return error;
}

}  // namespace platform::Linux
