#include "privileged/tool/BundleItem.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sodium.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr std::size_t bufferBytes = std::size_t{64} << 10;
constexpr std::uint64_t insideOnly = RESOLVE_BENEATH | RESOLVE_NO_XDEV | RESOLVE_NO_MAGICLINKS;
// The kernel gives a walk up when any folder of the machine is renamed while it goes through "..".
constexpr int maximumTries = 1000;

posix::Descriptor openInside(int bundle, const std::string& path, std::uint64_t flags, std::uint64_t resolve) {
  open_how how{};
  how.flags = flags | O_CLOEXEC;
  how.resolve = insideOnly | resolve;
  long item = -1;
  for (int tries = 0; tries < maximumTries; ++tries) {
    item = ::syscall(SYS_openat2, bundle, path.c_str(), &how, sizeof how);
    if (item >= 0 || (errno != EAGAIN && errno != EINTR)) break;
  }
  return posix::Descriptor(static_cast<int>(item));
}

posix::Descriptor openEntry(int bundle, const std::string& path) {
  constexpr std::uint64_t reading = O_RDONLY | O_NONBLOCK | O_NOCTTY;
  auto item = openInside(bundle, path, reading, RESOLVE_NO_SYMLINKS);
  if (!item && errno == ELOOP) item = openInside(bundle, path, O_PATH | O_NOFOLLOW, RESOLVE_NO_SYMLINKS);
  return item;
}

EntryKind kindOf(mode_t mode, const std::string& path) {
  if (S_ISREG(mode)) return EntryKind::file;
  if (S_ISDIR(mode)) return EntryKind::folder;
  if (S_ISLNK(mode)) return EntryKind::link;
  throw Failure("a device, socket or pipe is in the bundle: " + printable(path));
}

ssize_t readSome(int file, char* buffer, std::size_t length, const std::string& name) {
  for (;;) {
    const auto got = ::read(file, buffer, length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) failWithSystemError("cannot read " + printable(name));
    return got;
  }
}

Digest digestOfText(std::string_view text) {
  Digest digest{};
  crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  return digest;
}

}  // namespace

BundleItem::BundleItem(int bundle, std::string path) : _path(std::move(path)), _item(openEntry(bundle, _path)) {
  if (!_item && (errno == ENOENT || errno == ENOTDIR)) throw Failure("missing from the bundle: " + printable(_path));
  if (!_item && errno == EXDEV) throw Failure("on another file system than the bundle: " + printable(_path));
  struct stat status {};
  if (!_item || ::fstat(_item.get(), &status) != 0) failWithSystemError("cannot open " + printable(_path));
  _kind = kindOf(status.st_mode, _path);
  _mode = status.st_mode & ALLPERMS;
  if (_kind == EntryKind::link) _target = linkTargetOf(_item.get(), "");
  if (_kind == EntryKind::link) _size = _target.size();
  if (_kind == EntryKind::file) _size = static_cast<std::uint64_t>(status.st_size);
}

Digest BundleItem::digest() const {
  if (_kind == EntryKind::folder) return {};
  return _kind == EntryKind::link ? digestOfText(_target) : digestOfFile(_item.get(), _size, _path);
}

ManifestEntry BundleItem::described() const {
  return {.kind = _kind, .mode = _mode, .size = _size, .digest = digest(), .path = _path};
}

std::vector<std::string> BundleItem::contents() const {
  std::vector<std::string> paths;
  for (const auto& entry : entriesOf(_item.get())) {
    paths.push_back(_path == bundleItself ? entry.name : _path + "/" + entry.name);
  }
  return paths;
}

bool isMissing(int bundle, const std::string& path) {
  if (openInside(bundle, path, O_PATH | O_NOFOLLOW, RESOLVE_NO_SYMLINKS)) return false;
  if (errno == ENOENT || errno == ENOTDIR) return true;
  failWithSystemError("cannot open " + printable(path));
}

void requireLinkInside(int bundle, const std::string& path) {
  if (openInside(bundle, path, O_PATH, 0)) return;
  if (errno == EXDEV) throw Failure("a link leads out of the bundle: " + printable(path));
  if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) throw Failure("a link leads nowhere: " + printable(path));
  failWithSystemError("cannot follow the link " + printable(path));
}

Digest digestOfFile(int file, std::uint64_t size, const std::string& path) {
  static std::array<char, bufferBytes> buffer;  // one thread
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  std::uint64_t read = 0;
  while (const auto got = readSome(file, buffer.data(), buffer.size(), path)) {
    crypto_hash_sha256_update(&state, reinterpret_cast<const unsigned char*>(buffer.data()), static_cast<std::size_t>(got));
    read += static_cast<std::uint64_t>(got);
    giveSignOfLife();
    if (read > size) break;  // it grows, perhaps without end
  }
  if (read != size) throw Failure("a file changed while it was read: " + printable(path));
  Digest digest{};
  crypto_hash_sha256_final(&state, digest.data());
  return digest;
}

std::string contentsOfFile(int file, std::size_t maximum, const std::string& name) {
  std::string contents;
  std::array<char, 4096> buffer{};
  while (const auto got = readSome(file, buffer.data(), buffer.size(), name)) {
    contents.append(buffer.data(), static_cast<std::size_t>(got));
    if (contents.size() > maximum) throw Failure(printable(name) + " is too long");
  }
  return contents;
}

}  // namespace AssistantTool
