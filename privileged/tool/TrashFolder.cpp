#include "privileged/tool/TrashFolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <ctime>

#include "privileged/tool/ActingAs.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr std::string_view infoSuffix = ".trashinfo";
constexpr unsigned maximumNumber = 10000;

bool isFolderOf(int folder, uid_t user) {
  struct stat status {};
  return ::fstat(folder, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == user;
}

posix::Descriptor openRealFolder(int parent, const std::string& name) {
  return posix::Descriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Makes the folder as the user, who must own it then.
posix::Descriptor ownFolder(int parent, const std::string& name, Owner user) {
  const ActingAs acting(user);
  if (::mkdirat(parent, name.c_str(), S_IRWXU) != 0 && errno != EEXIST) return {};
  auto folder = openRealFolder(parent, name);
  return folder && isFolderOf(folder.get(), user.user) ? std::move(folder) : posix::Descriptor();
}

// Makes every folder of the path that is missing, as the user.
bool makeFolders(const std::string& path, Owner user, const PathWalk& walk) {
  for (auto slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const auto folder = walk.locate(path.substr(0, slash));
    const ActingAs acting(user);
    if (!folder.exists() && ::mkdirat(folder.folder.get(), folder.name.c_str(), S_IRWXU) != 0) return false;
    if (slash == std::string::npos) return true;
  }
}

// The top folder of a volume that only root can write: there root makes the user's Trash.
void makeAsRoot(const Location& trash, Owner user) {
  struct stat top {};
  if (::geteuid() != 0 || ::fstat(trash.folder.get(), &top) != 0 || canBeWrittenByOthers(top, 0)) return;
  if (::mkdirat(trash.folder.get(), trash.name.c_str(), S_IRWXU) != 0) return;
  const auto made = openRealFolder(trash.folder.get(), trash.name);
  if (!made || ::fchown(made.get(), user.user, user.group) != 0) {
    ::unlinkat(trash.folder.get(), trash.name.c_str(), AT_REMOVEDIR);
  }
}

std::string localTimeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local);
  return text.data();
}

}  // namespace

std::optional<TrashFolder> TrashFolder::inDataFolder(const std::string& dataFolder, Owner user, const PathWalk& walk) {
  try {
    if (!makeFolders(dataFolder, user, walk)) return std::nullopt;
    return open(walk.locateInside(dataFolder, "Trash"), user);
  } catch (const Failure&) {
    return std::nullopt;  // no such home, or links in it that others could have laid
  }
}

std::optional<TrashFolder> TrashFolder::onVolume(const std::string& top, Owner user, const PathWalk& walk) {
  const auto number = std::to_string(user.user);
  const std::string prefix = top == "/" ? "" : top;
  std::optional<TrashFolder> trash;
  try {
    const auto shared = walk.locate(prefix + "/.Trash").status();
    if (shared && S_ISDIR(shared->st_mode) && (shared->st_mode & S_ISVTX) != 0) {
      trash = open(walk.locate(prefix + "/.Trash/" + number), user);
    }
    if (!trash) {
      const auto own = walk.locate(prefix + "/.Trash-" + number);
      if (!own.exists()) makeAsRoot(own, user);
      trash = open(own, user);
    }
  } catch (const Failure&) {
    return std::nullopt;
  }
  if (trash) trash->_top = top;
  return trash;
}

std::optional<TrashFolder> TrashFolder::open(const Location& trash, Owner user) {
  const auto folder = ownFolder(trash.folder.get(), trash.name, user);
  if (!folder) return std::nullopt;
  TrashFolder opened;
  opened._user = user;
  opened._files = ownFolder(folder.get(), "files", user);
  opened._info = ownFolder(folder.get(), "info", user);
  opened._path = trash.path;
  if (!opened._files || !opened._info) return std::nullopt;
  return opened;
}

std::string TrashFolder::reserveName(const std::string& path, const struct stat& status, Staging& staging) const {
  const auto name = path.substr(path.rfind('/') + 1);
  const auto written = _top.empty() ? path : path.substr(_top == "/" ? 1 : _top.size() + 1);
  const auto text = "[Trash Info]\nPath=" + percentEncoded(written) + "\nDeletionDate=" + localTimeNow() + "\n";
  for (unsigned number = 1; number < maximumNumber; ++number) {
    auto candidate = trashName(name, number);
    if (itemLocation(candidate).exists()) continue;
    staging.noteTrashName(candidate, status);
    try {
      const bool isWritten = writeInfo(candidate, text);
      if (isWritten && !itemLocation(candidate).exists()) return candidate;
      if (isWritten && !removeInfo(candidate)) failWithSystemError("cannot write in the Trash");
    } catch (const Failure&) {
      if (!removeInfo(candidate)) staging.keep();
      throw;
    }
    staging.forgetTrashName();
  }
  throw Failure("no free name in the Trash");
}

// False when the name is taken. After a Failure there may be half an info file.
bool TrashFolder::writeInfo(const std::string& name, const std::string& text) const {
  const ActingAs acting(_user);
  const auto fileName = name + std::string(infoSuffix);
  const posix::Descriptor file(
      ::openat(_info.get(), fileName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file && errno == EEXIST) return false;
  if (!file) failWithSystemError("cannot write in the Trash");
  if (::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) && syncDescriptor(file.get()) == 0)
    return true;
  failWithSystemError("cannot write in the Trash");
}

bool TrashFolder::removeInfo(const std::string& name) const {
  const bool isGone = ::unlinkat(_info.get(), (name + std::string(infoSuffix)).c_str(), 0) == 0 || errno == ENOENT;
  return isGone && syncDescriptor(_info.get()) == 0;  // before the note of it goes
}

void TrashFolder::releaseName(const std::string& name, Staging& staging) const {
  if (!removeInfo(name)) staging.keep();
}

Location TrashFolder::itemLocation(const std::string& name) const {
  return {.folder = posix::Descriptor(::fcntl(_files.get(), F_DUPFD_CLOEXEC, 0)),
          .name = name,
          .path = _path + "/files/" + name};
}

void TrashFolder::finishKilledJobs(const PathWalk& walk) const {
  Staging::clearLeftovers(itemLocation("."), walk, [this](const Staging::TrashName& trashed) {
    const auto status = itemLocation(trashed.name).status();
    if (!status) return removeInfo(trashed.name);
    if (std::to_string(status->st_ino) != trashed.inode) return true;
    try {
      handOver(trashed.name);
      return true;
    } catch (const Failure&) {
      return false;
    }
  });
}

void TrashFolder::sync() const {
  syncFolder(_info.get());
  syncFolder(_files.get());
}

void TrashFolder::handOver(const std::string& name) const {
  if (!survey(_files.get(), name, _user, anyNumberOfEntries).needsAdoption) return;
  Adoption(_user).apply(_files.get(), name);
  // Entry by entry would not do: a symbolic link, whose owner is new too, cannot be synced by itself.
  syncFileSystem(_files.get());
}

std::string trashName(const std::string& name, unsigned number) {
  const auto dot = name.rfind('.');
  const bool hasExtension = dot != std::string::npos && dot > 0;
  std::string stem = name.substr(0, hasExtension ? dot : name.size());
  const std::string ending = (number > 1 ? " " + std::to_string(number) : "") + (hasExtension ? name.substr(dot) : "");
  const std::size_t longest = NAME_MAX - infoSuffix.size();
  if (stem.size() + ending.size() <= longest) return stem + ending;
  if (ending.size() >= longest) return name.substr(0, longest - 8) + std::to_string(number);
  stem.resize(longest - ending.size());
  // Not in the middle of a character.
  while (!stem.empty() && (static_cast<unsigned char>(stem.back()) & 0xC0U) == 0x80U) stem.pop_back();
  if (!stem.empty() && (static_cast<unsigned char>(stem.back()) & 0x80U) != 0) stem.pop_back();
  return stem + ending;
}

std::string percentEncoded(std::string_view path) {
  constexpr std::string_view unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char character : path) {
    if (unreserved.find(character) != std::string_view::npos) {
      encoded.push_back(character);
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    encoded += {'%', hexDigits[byte >> 4U], hexDigits[byte & 15U]};
  }
  return encoded;
}

}  // namespace AssistantTool
