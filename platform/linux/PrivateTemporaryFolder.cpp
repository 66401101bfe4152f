#include "platform/linux/PrivateTemporaryFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace platform::Linux {
namespace {

// Names to try beside one that someone else has taken, before a random one is chosen.
constexpr int nameAttempts = 16;

std::optional<struct stat> folderStatus(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
  return status;
}

bool isPrivate(const std::string& path) {
  const auto status = folderStatus(path);
  return status && status->st_uid == ::geteuid() && (status->st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

// In a folder that others can write without a sticky bit, they could put a folder of theirs in the place of ours.
bool keepsWhatItHolds(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return false;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (status.st_mode & S_ISVTX) != 0;
}

bool makePrivate(const std::string& path) {
  if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
  return isPrivate(path);
}

std::optional<std::string> folderFrom(const char* variable) {
  const char* folder = std::getenv(variable);
  if (folder == nullptr || *folder != '/' || !keepsWhatItHolds(folder)) return std::nullopt;
  return folder;
}

std::string privateFolderIn(const std::string& base) {
  const std::string name = base + "/kelto-" + std::to_string(::geteuid());
  if (makePrivate(name)) return name;
  for (int attempt = 1; attempt < nameAttempts; ++attempt) {
    const std::string other = name + "-" + std::to_string(attempt);
    if (makePrivate(other)) return other;
  }
  std::string random = name + "-XXXXXX";
  return ::mkdtemp(random.data()) != nullptr ? random : std::string();
}

}  // namespace

std::string privateTemporaryFolder() {
  if (const auto runtime = folderFrom("XDG_RUNTIME_DIR"); runtime && makePrivate(*runtime + "/kelto"))
    return *runtime + "/kelto";
  return privateFolderIn(folderFrom("TMPDIR").value_or("/tmp"));
}

TemporaryFolderClaim::TemporaryFolderClaim(std::string prefix, std::size_t suffixLength)
    : _prefix(std::move(prefix)),
      _suffixLength(suffixLength),
      _path(privateTemporaryFolder()),
      _folder(::open(_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
  if (!_folder) return;
  clearIfAlone();
  ::flock(_folder.get(), LOCK_SH);
}

TemporaryFolderClaim::~TemporaryFolderClaim() {
  if (_folder && clearIfAlone()) ::rmdir(_path.c_str());
}

// The lock goes with the process, however that ends. True when this program is the only one with a claim.
bool TemporaryFolderClaim::clearIfAlone() const {
  if (::flock(_folder.get(), LOCK_EX | LOCK_NB) != 0) return false;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(_path, error)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with(_prefix) || name.size() != _prefix.size() + _suffixLength) continue;
    if (entry.is_regular_file(error) && !entry.is_symlink(error)) ::unlinkat(_folder.get(), name.c_str(), 0);
  }
  return true;
}

}  // namespace platform::Linux
