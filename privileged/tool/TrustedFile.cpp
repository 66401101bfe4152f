#include "privileged/tool/TrustedFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "privileged/tool/BundleItem.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Manifest.h"

namespace AssistantTool {

TrustedFolder::TrustedFolder(const std::string& path, uid_t owner)
    : _path(path), _owner(owner), _folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
  if (!_folder && errno == ENOENT) return;
  if (!_folder) failWithSystemError("cannot open " + path);
  requireOwned(_folder.get(), path);
  const posix::Descriptor above(::openat(_folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  requireOwned(above.get(), "the folder above " + path);
}

std::optional<std::string> TrustedFolder::contents(const std::string& name, std::size_t maximum) const {
  const auto path = printable(_path + "/" + name);
  const posix::Descriptor file(::openat(_folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == ENOENT) return std::nullopt;
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) failWithSystemError("cannot open " + path);
  if (!S_ISREG(status.st_mode)) throw Failure("not a file: " + path);
  requireOwned(file.get(), path);
  return contentsOfFile(file.get(), maximum, path);
}

void TrustedFolder::requireOwned(int item, const std::string& path) const {
  struct stat status {};
  if (::fstat(item, &status) != 0) failWithSystemError("cannot look at " + path);
  if (status.st_uid != _owner) throw Failure("not root's: " + path);
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) throw Failure("others can write " + path);
}

}  // namespace AssistantTool
