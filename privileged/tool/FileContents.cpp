#include "privileged/tool/FileContents.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "privileged/tool/Failure.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr std::size_t bufferBytes = std::size_t{256} << 10;
constexpr off_t bytesPerCall = off_t{8} << 20;  // so that a large file on a slow disk gives signs of life
constexpr off_t bytesPerBlock = 512;            // the unit of st_blocks

bool isSparse(const struct stat& status) { return status.st_blocks * bytesPerBlock < status.st_size; }

bool isCopiedAttribute(std::string_view attribute, AccessLists accessLists) {
  if (attribute.starts_with("user.")) return true;
  if (accessLists == AccessLists::left) return false;
  return attribute == "system.posix_acl_access" || attribute == "system.posix_acl_default";
}

void copyAttribute(int source, int target, const char* attribute, const std::string& name) {
  const auto size = ::fgetxattr(source, attribute, nullptr, 0);
  std::vector<char> value(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  const auto length = size < 0 ? size : ::fgetxattr(source, attribute, value.data(), value.size());
  if (length < 0 && errno == ENODATA) return;  // taken away meanwhile
  if (length < 0) failWithSystemError("cannot read an extended attribute of " + name);
  if (::fsetxattr(target, attribute, value.data(), static_cast<std::size_t>(length), 0) == 0) return;
  if (errno != EOPNOTSUPP && errno != EPERM) failWithSystemError("cannot copy an extended attribute of " + name);
}

}  // namespace

void FileContents::copy(int source, int target, const struct stat& status, const std::string& name) {
  if (status.st_size == 0 || shareBlocks(source, target)) return;
  if (!isSparse(status)) return copyData(source, target, 0, status.st_size, name);
  off_t at = 0;
  while (at < status.st_size) {
    const off_t begin = ::lseek(source, at, SEEK_DATA);
    if (begin < 0 && errno == ENXIO) break;
    if (begin < 0) return copyData(source, target, at, status.st_size, name);
    const off_t hole = ::lseek(source, begin, SEEK_HOLE);
    const off_t end = hole < 0 ? status.st_size : std::min(hole, status.st_size);
    copyData(source, target, begin, end, name);
    at = end;
  }
  if (::ftruncate(target, status.st_size) != 0) failWithSystemError("cannot copy " + name);
}

bool FileContents::shareBlocks(int source, int target) {
  if (!_canShareBlocks) return false;
  if (::ioctl(target, FICLONE, source) == 0) return true;
  _canShareBlocks = false;
  return false;
}

void FileContents::copyData(int source, int target, off_t begin, off_t end, const std::string& name) {
  for (off_t at = begin; at < end;) {
    const auto copied = copySome(source, target, at, static_cast<std::size_t>(std::min(end - at, bytesPerCall)));
    if (copied < 0) failWithSystemError("cannot copy " + name);
    if (copied == 0) return;  // the source has become shorter
    at += copied;
    giveSignOfLife();
  }
}

ssize_t FileContents::copySome(int source, int target, off_t at, std::size_t length) {
  while (_canCopyRanges) {
    off_t from = at;
    off_t to = at;
    const auto copied = ::copy_file_range(source, &from, target, &to, length, 0);
    if (copied > 0) return copied;
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0 && (errno == ENOSPC || errno == EIO || errno == EDQUOT)) return copied;
    _canCopyRanges = false;
  }
  return readAndWrite(source, target, at, length);
}

ssize_t FileContents::readAndWrite(int source, int target, off_t at, std::size_t length) {
  _buffer.resize(bufferBytes);
  ssize_t got = 0;
  do {
    got = ::pread(source, _buffer.data(), std::min(length, _buffer.size()), at);
  } while (got < 0 && errno == EINTR);
  for (ssize_t done = 0; done < got;) {
    const auto put = ::pwrite(target, _buffer.data() + done, static_cast<std::size_t>(got - done), at + done);
    if (put < 0 && errno != EINTR) return -1;
    if (put > 0) done += put;
  }
  return got;
}

void copyExtendedAttributes(int source, int target, const std::string& name, AccessLists accessLists) {
  const auto size = ::flistxattr(source, nullptr, 0);
  if (size == 0 || (size < 0 && errno == EOPNOTSUPP)) return;
  std::vector<char> names(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  const auto length = size < 0 ? size : ::flistxattr(source, names.data(), names.size());
  if (length < 0) failWithSystemError("cannot read the extended attributes of " + name);
  std::string_view rest(names.data(), static_cast<std::size_t>(length));
  while (!rest.empty()) {
    const std::string attribute(rest.substr(0, rest.find('\0')));
    if (isCopiedAttribute(attribute, accessLists)) copyAttribute(source, target, attribute.c_str(), name);
    rest.remove_prefix(std::min(rest.size(), attribute.size() + 1));
  }
}

}  // namespace AssistantTool
