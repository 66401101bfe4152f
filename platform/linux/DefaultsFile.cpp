#include "platform/linux/DefaultsFile.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "foundation/text/Path.h"
#include "platform/linux/Accounts.h"

namespace platform::Linux {
namespace {

constexpr auto longestWait = std::chrono::seconds(10);
constexpr auto pauseBetweenTries = std::chrono::milliseconds(2);

bool failed(std::string& reason, std::string_view what, const std::string& path) {
  reason = std::string(what) + " '" + path + "': " + std::strerror(errno);
  return false;
}

bool makeFolder(const std::string& path) {
  if (path.empty() || ::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return true;
  return errno == ENOENT && makeFolder(foundation::Path::deletingLastComponent(path)) && ::mkdir(path.c_str(), 0700) == 0;
}

// The lock, held for as long as the descriptor is open. Nothing when another program holds it for too long.
posix::Descriptor locked(const std::string& path, std::string& reason) {
  posix::Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!file) failed(reason, "cannot open", path);
  const auto deadline = std::chrono::steady_clock::now() + longestWait;
  while (file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if ((errno == EWOULDBLOCK || errno == EINTR) && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(pauseBetweenTries);
    } else {
      failed(reason, "cannot lock", path);
      file.reset();
    }
  }
  return file;
}

bool writeAll(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// A link stays a link: what it leads to is replaced.
std::string resolved(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  std::string result = real == nullptr ? path : real;
  std::free(real);
  return result;
}

// Puts a whole new file in place of the one at `path`, which keeps its permissions. The caller holds the lock, so the name
// of the file on the way is nobody else's; one that a killed program left is used again.
bool replaceFile(const std::string& path, std::string_view bytes, std::string& reason) {
  const std::string fresh = path + ".new";
  struct stat old {};
  const mode_t mode = ::stat(path.c_str(), &old) == 0 ? old.st_mode & 0777 : 0600;
  posix::Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return failed(reason, "cannot create", fresh);
  const bool isWritten = writeAll(file.get(), bytes) && ::fchmod(file.get(), mode) == 0 && ::fsync(file.get()) == 0;
  if (!isWritten || ::rename(fresh.c_str(), path.c_str()) != 0) {
    failed(reason, "cannot write", path);
    ::unlink(fresh.c_str());
    return false;
  }
  const posix::Descriptor folder(
      ::open(foundation::Path::deletingLastComponent(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) ::fsync(folder.get());
  return true;
}

}  // namespace

std::string configurationFolder() {
  const char* folder = std::getenv("XDG_CONFIG_HOME");
  if (folder != nullptr && *folder == '/') return folder;
  const std::string home = homeFolder();
  return home.empty() ? "" : foundation::Path::appending(home, ".config");
}

std::optional<DefaultsFile> DefaultsFile::forDomain(std::string_view domain) {
  constexpr std::size_t longestName = 200;  // leaves room for the extensions
  const std::string folder = configurationFolder();
  const bool isName = !domain.empty() && domain.front() != '.' && domain.size() <= longestName &&
                      domain.find('/') == std::string_view::npos && domain.find('\0') == std::string_view::npos;
  if (folder.empty() || !isName) return std::nullopt;
  return DefaultsFile(foundation::Path::appending(folder, std::string(domain) + ".plist"));
}

std::optional<foundation::PropertyList::Dictionary> DefaultsFile::read(std::string& reason,
                                                                       std::optional<ReadDocument>* source) const {
  if (source != nullptr) source->reset();
  ReadFailure failure;
  auto document = readDocument(_path, foundation::PropertyList::maximumBytes, failure);
  if (!document && failure.isMissing) return foundation::PropertyList::Dictionary();
  auto value = document ? foundation::PropertyList::parse(document->bytes, &failure.reason) : std::nullopt;
  if (document && source != nullptr) {
    document->bytes.clear();
    *source = std::move(document);
  }
  const auto* dictionary = value ? value->as<foundation::PropertyList::Dictionary>() : nullptr;
  if (dictionary != nullptr) return *dictionary;
  reason = "cannot read '" + _path + "': " + (value ? "it is not a dictionary" : failure.reason);
  return std::nullopt;
}

bool DefaultsFile::update(const std::function<bool(foundation::PropertyList::Dictionary&)>& change,
                          std::string& reason) const {
  const std::string folder = foundation::Path::deletingLastComponent(_path);
  if (!makeFolder(folder)) return failed(reason, "cannot create", folder);
  const auto lock = locked(_path + ".lock", reason);
  auto values = lock ? read(reason) : std::nullopt;
  if (!values) return false;
  if (!change(*values)) return true;
  const std::string bytes = foundation::PropertyList::serializeXML(std::move(*values));
  // A file that cannot be read back would lock the user out of everything stored in it.
  std::string refusal;
  if (foundation::PropertyList::parse(bytes, &refusal)) return replaceFile(resolved(_path), bytes, reason);
  reason = "the value cannot be stored: " + refusal;
  return false;
}

bool DefaultsFile::remove(std::string& reason) const {
  const auto lock = locked(_path + ".lock", reason);
  if (!lock) return false;
  return ::unlink(_path.c_str()) == 0 || errno == ENOENT || failed(reason, "cannot remove", _path);
}

}  // namespace platform::Linux
