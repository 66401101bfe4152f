#include "platform/linux/FileManager.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "foundation/text/Path.h"
#include "platform/linux/Accounts.h"
#include "platform/linux/PathKind.h"
#include "platform/linux/PrivateTemporaryFolder.h"
#include "platform/linux/StandardFolders.h"
#include "platform/linux/Volume.h"
#include "posix/Descriptor.h"
#include "posix/MountTable.h"
#include "posix/RemoveTree.h"

namespace platform::Linux {

namespace {

constexpr mode_t permissionBits = 07777;
constexpr int folderNameAttempts = 100;

// FileAttributes with the names looked up. A number that is not given is -1, which chown leaves alone.
struct Attributes {
  std::optional<mode_t> mode;
  uid_t owner = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);

  [[nodiscard]] bool changesOwner() const { return owner != static_cast<uid_t>(-1) || group != static_cast<gid_t>(-1); }
};

// Nothing when an account is not known.
std::optional<Attributes> lookedUp(const FileAttributes& given) {
  Attributes attributes;
  if (given.posixPermissions) attributes.mode = static_cast<mode_t>(*given.posixPermissions) & permissionBits;
  if (given.ownerAccountName) {
    const auto owner = userWithName(*given.ownerAccountName);
    if (!owner) return std::nullopt;
    attributes.owner = *owner;
  }
  if (given.groupOwnerAccountName) {
    const auto group = groupWithName(*given.groupOwnerAccountName);
    if (!group) return std::nullopt;
    attributes.group = *group;
  }
  return attributes;
}

// The owner first: a change of owner takes special permission bits away.
bool setOwnerAndMode(const Attributes& attributes, int descriptor) {
  if (attributes.changesOwner() && ::fchown(descriptor, attributes.owner, attributes.group) != 0) return false;
  return !attributes.mode || ::fchmod(descriptor, *attributes.mode) == 0;
}

bool setOwnerAndMode(const Attributes& attributes, const std::string& path) {
  if (attributes.changesOwner() && ::chown(path.c_str(), attributes.owner, attributes.group) != 0) return false;
  return !attributes.mode || ::chmod(path.c_str(), *attributes.mode) == 0;
}

bool isDocumentItself(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<std::string> allOf(int descriptor) {
  std::string contents;
  char buffer[65536];
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
    if (count > 0) contents.append(buffer, static_cast<std::size_t>(count));
    if (count == 0) return contents;
    if (count < 0 && errno != EINTR) return std::nullopt;
  }
}

// Makes one folder; 0 or the error's number. `made` takes its path.
int makeFolder(const std::string& path, mode_t mode, std::vector<std::string>& made) {
  if (::mkdir(path.c_str(), mode) != 0) return errno;
  made.push_back(path);
  return 0;
}

// Makes the folder and those missing above it, outermost first. An existing folder is success.
int makeFolders(const std::string& path, mode_t mode, std::vector<std::string>& made) {
  int status = makeFolder(path, mode, made);
  const std::string parent = foundation::Path::deletingLastComponent(path);
  if (status == ENOENT && !parent.empty() && parent != path) {
    status = makeFolders(parent, mode, made);
    if (status == 0) status = makeFolder(path, mode, made);
  }
  return status == EEXIST && isFolder(path) ? 0 : status;
}

// Random letters and digits, every one as likely as the others; empty when the kernel gave no random bytes.
std::string randomCharacters(std::size_t count) {
  constexpr std::string_view characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string text;
  while (text.size() < count) {
    unsigned char bytes[64];
    const ssize_t length = ::getrandom(bytes, sizeof bytes, 0);
    if (length < 0 && errno != EINTR) return {};
    for (ssize_t i = 0; i < length && text.size() < count; ++i)
      if (const unsigned index = bytes[i] & 63U; index < characters.size()) text += characters[index];
  }
  return text;
}

}  // namespace

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) const {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return false;
  if (isDirectory != nullptr) *isDirectory = S_ISDIR(status.st_mode);
  return true;
}

bool FileManager::isExecutableFileAtPath(const std::string& path) const {
  return !isFolder(path) && ::access(path.c_str(), X_OK) == 0;
}

bool FileManager::createFileAtPath(const std::string& path, const FileAttributes& given) {
  const auto attributes = lookedUp(given);
  if (!attributes) return false;
  if (isDocumentItself(path) && ::unlink(path.c_str()) != 0) return false;
  // Closed to others until it has the attributes that were asked for.
  const mode_t mode = attributes->mode ? 0600 : 0666;
  const posix::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file) return false;
  if (setOwnerAndMode(*attributes, file.get())) return true;
  ::unlink(path.c_str());
  return false;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                        const FileAttributes& given, Error* error) {
  const auto attributes = lookedUp(given);
  std::vector<std::string> made;
  const mode_t mode = given.posixPermissions ? 0700 : 0777;
  int status = EINVAL;
  if (attributes) status = withIntermediateDirectories ? makeFolders(path, mode, made) : makeFolder(path, mode, made);
  for (; status == 0 && !made.empty(); made.pop_back())
    if (!setOwnerAndMode(*attributes, made.back())) status = errno;
  if (status == 0) return true;
  if (error != nullptr) *error = {status, std::generic_category().message(status)};
  return false;
}

bool FileManager::setAttributes(const FileAttributes& given, const std::string& path) {
  const auto attributes = lookedUp(given);
  return attributes && fileExistsAtPath(path) && setOwnerAndMode(*attributes, path);
}

bool FileManager::removeItemAtPath(const std::string& path) {
  const std::string name = foundation::Path::lastComponent(path);
  if (name.empty() || name == "/" || name == "." || name == "..") return false;
  const std::string parent = foundation::Path::deletingLastComponent(path);
  const posix::Descriptor folder(::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return false;
  if (::unlinkat(folder.get(), name.c_str(), 0) == 0) return true;
  return errno == EISDIR && posix::removeTree(folder.get(), name, posix::LockedFolders::areKept);
}

std::optional<std::string> FileManager::contentsAtPath(const std::string& path) const {
  // Without waiting, in case a pipe without a writer has that name.
  const posix::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return allOf(file.get());
}

std::string FileManager::temporaryDirectory() const { return privateTemporaryFolder(); }

std::string FileManager::unusedName(const std::string& nameTemplate) const {
  const auto start = nameTemplate.find_last_not_of('X') + 1;
  if (start == nameTemplate.size()) return {};
  for (int attempt = 0; attempt < folderNameAttempts; ++attempt) {
    const std::string characters = randomCharacters(nameTemplate.size() - start);
    if (characters.empty()) return {};
    std::string name = nameTemplate.substr(0, start) + characters;
    struct stat status {};
    if (::lstat(name.c_str(), &status) == 0) continue;
    return errno == ENOENT ? name : std::string();
  }
  return {};
}

std::vector<std::string> FileManager::searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                               bool expandTilde) const {
  return standardFolders(kind, domain, expandTilde);
}

std::optional<std::string> FileManager::volumeURLForPath(const std::string& path) const {
  const auto mount = mountOfPath(path);
  const auto table = contentsAtPath(posix::mountTablePath);
  if (!mount || !table) return std::nullopt;
  return volumeURL(*table, *mount);
}

}  // namespace platform::Linux
