#include "privileged/tool/DesktopPlace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "privileged/tool/ActingAs.h"
#include "privileged/tool/DesktopEntry.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr const char* entryFolder = "applications";
constexpr const char* entrySuffix = ".desktop";
constexpr const char* unfinishedSuffix = ".kelto-new";
constexpr mode_t readableByAll = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
constexpr mode_t enteredByAll = readableByAll | S_IXUSR | S_IXGRP | S_IXOTH;
constexpr std::size_t maximumEntries = 65536;
constexpr std::size_t maximumSizes = 256;
// Enough for the name of the bundle, which comes first.
constexpr std::size_t markBytes = 16384;
// The other places where an entry is for all users.
constexpr std::array placesOfPackages{"/usr/share/applications", "/usr/local/share/applications"};

// After a failed call: an item that the disk cannot read is not one that is not there.
void refuseUnreadable(const std::string& name) {
  if (errno == EIO) failWithSystemError("cannot read " + name);
}

posix::Descriptor openedFolder(const std::string& path) {
  posix::Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) refuseUnreadable(path);
  return folder;
}

posix::Descriptor madeFolder(const std::string& path) {
  for (auto slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    ::mkdir(path.substr(0, slash).c_str(), enteredByAll);
  ::mkdir(path.c_str(), enteredByAll);
  auto folder = openedFolder(path);
  if (!folder) failWithSystemError("cannot make " + path);
  return folder;
}

std::vector<std::string> namesIn(int folder, std::size_t maximum = maximumEntries) {
  const auto entries = entriesOf(folder, maximum);
  if (!entries) throw Failure("too many entries in a folder of the menus");
  std::vector<std::string> names;
  for (const auto& entry : *entries) names.push_back(entry.name);
  return names;
}

// The first bytes of a file; nothing of what is not one.
std::string startOf(int folder, const std::string& name, std::size_t bytes) {
  const posix::Descriptor file(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) return refuseUnreadable(name), std::string();
  if (!S_ISREG(status.st_mode)) return {};
  std::string start(bytes, '\0');
  const auto length = ::pread(file.get(), start.data(), start.size(), 0);
  if (length < 0) refuseUnreadable(name);
  start.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return start;
}

// The bundle of an entry of ours.
std::optional<std::string> bundleOfEntry(int folder, const std::string& name) {
  return DesktopEntry::bundleNamedBy(startOf(folder, name, markBytes));
}

bool isThere(int folder, const std::string& name) {
  struct stat status {};
  return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

void removeFrom(int folder, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT) failWithSystemError("cannot remove " + name);
}

// So that programs that keep what they found look again.
void touch(int folder) { ::futimens(folder, nullptr); }

std::string iconTarget(const std::string& bundle, const BroughtIcon& icon) {
  return bundle + "/" + desktopFolder + "/" + iconFolder + "/" + icon.size + "/" + iconContext + "/" + icon.name;
}

bool holdsIcon(const std::vector<BroughtIcon>& icons, const std::string& size, const std::string& name) {
  return std::ranges::any_of(icons, [&](const BroughtIcon& icon) { return icon.size == size && icon.name == name; });
}

}  // namespace

std::vector<posix::Descriptor> DesktopPlace::folders() const {
  const ActingAs acting(_user);
  std::vector<posix::Descriptor> folders;
  for (const char* name : {entryFolder, iconFolder}) {
    posix::Descriptor folder;
    for (auto path = _dataFolder + "/" + name; !folder && !path.empty(); path.resize(path.rfind('/')))
      folder = posix::Descriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (folder) folders.push_back(std::move(folder));
  }
  return folders;
}

std::string DesktopPlace::bring(const BroughtEntry& brought, const std::string& bundle) {
  const ActingAs acting(_user);
  const auto name = brought.identifier + entrySuffix;
  removeEntriesOfNobody(name, bundle);
  if (const auto other = whatSomebodyElseHas(brought, bundle); !other.empty()) return "somebody else has " + other;
  removeIcons(bundle, brought.icons);
  linkIcons(brought, bundle);
  removeEntries(bundle, name);
  writeEntry(brought, name);
  return {};
}

void DesktopPlace::clear(const std::string& bundle) {
  const ActingAs acting(_user);
  removeIcons(bundle, {});
  removeEntries(bundle, "");
}

// The entry of that name is another bundle's, which was taken away by other means.
void DesktopPlace::removeEntriesOfNobody(const std::string& name, const std::string& bundle) {
  const auto folder = openedFolder(_dataFolder + "/" + entryFolder);
  const auto other = folder ? bundleOfEntry(folder.get(), name) : std::nullopt;
  struct stat status {};
  if (!other || *other == bundle || ::lstat(other->c_str(), &status) == 0 || errno != ENOENT) return;
  removeIcons(*other, {});
  removeEntries(*other, "");
}

std::string DesktopPlace::whatSomebodyElseHas(const BroughtEntry& brought, const std::string& bundle) const {
  const auto name = brought.identifier + entrySuffix;
  for (const std::string each : placesOfPackages) {
    struct stat status {};
    const auto path = each + "/" + name;
    if (each != _dataFolder + "/" + entryFolder && ::lstat(path.c_str(), &status) == 0) return path;
  }
  const auto folder = openedFolder(_dataFolder + "/" + entryFolder);
  if (folder && isThere(folder.get(), name) && bundleOfEntry(folder.get(), name) != bundle)
    return _dataFolder + "/" + entryFolder + "/" + name;
  for (const auto& icon : brought.icons) {
    const auto path = folderOfIcon(icon);
    const auto icons = openedFolder(path);
    if (icons && isThere(icons.get(), icon.name) && linkTargetOf(icons.get(), icon.name) != iconTarget(bundle, icon))
      return path + "/" + icon.name;
  }
  return {};
}

std::string DesktopPlace::folderOfIcon(const BroughtIcon& icon) const {
  return _dataFolder + "/" + iconFolder + "/" + icon.size + "/" + iconContext;
}

void DesktopPlace::removeIcons(const std::string& bundle, const std::vector<BroughtIcon>& kept) {
  const auto path = _dataFolder + "/" + iconFolder;
  const auto theme = openedFolder(path);
  if (!theme) return;
  for (const auto& size : namesIn(theme.get(), maximumSizes)) {
    const auto folder = openedFolder(path + "/" + size + "/" + iconContext);
    if (!folder) continue;
    bool isRemoved = false;
    for (const auto& name : namesIn(folder.get())) {
      const bool isOurs = linkTargetOf(folder.get(), name).starts_with(bundle + "/" + desktopFolder + "/");
      if (!isOurs || holdsIcon(kept, size, name)) continue;
      removeFrom(folder.get(), name);
      isRemoved = true;
    }
    if (!isRemoved) continue;
    _hasChanged = true;
    syncFolder(folder.get());
    touch(theme.get());
  }
}

void DesktopPlace::linkIcons(const BroughtEntry& brought, const std::string& bundle) {
  for (const auto& icon : brought.icons) {
    const auto folder = madeFolder(folderOfIcon(icon));
    const auto target = iconTarget(bundle, icon);
    if (linkTargetOf(folder.get(), icon.name) == target) continue;
    if (::symlinkat(target.c_str(), folder.get(), icon.name.c_str()) != 0) failWithSystemError("cannot make " + icon.name);
    _hasChanged = true;
    syncFolder(folder.get());
    touch(madeFolder(_dataFolder + "/" + iconFolder).get());
  }
}

void DesktopPlace::removeEntries(const std::string& bundle, const std::string& kept) {
  const auto folder = openedFolder(_dataFolder + "/" + entryFolder);
  if (!folder) return;
  bool isRemoved = false;
  for (const auto& name : namesIn(folder.get())) {
    // Jobs hold the lock of the notes while they work here, so an unfinished entry is a killed job's.
    const bool isUnfinished = name.starts_with('.') && name.ends_with(unfinishedSuffix);
    const bool isOurs = name != kept && name.ends_with(entrySuffix) && bundleOfEntry(folder.get(), name) == bundle;
    if (!isUnfinished && !isOurs) continue;
    removeFrom(folder.get(), name);
    isRemoved = true;
  }
  _hasChanged = _hasChanged || isRemoved;
  if (isRemoved) syncFolder(folder.get());
}

void DesktopPlace::writeEntry(const BroughtEntry& brought, const std::string& name) {
  const auto folder = madeFolder(_dataFolder + "/" + entryFolder);
  if (startOf(folder.get(), name, brought.text.size() + 1) == brought.text) return;
  _hasChanged = true;
  const auto unfinished = "." + name + unfinishedSuffix;
  const posix::Descriptor file(
      ::openat(folder.get(), unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file) failWithSystemError("cannot make " + name);
  const auto length = ::write(file.get(), brought.text.data(), brought.text.size());
  const bool isWritten = length == static_cast<ssize_t>(brought.text.size()) && ::fchmod(file.get(), readableByAll) == 0 &&
                         syncDescriptor(file.get()) == 0;
  const auto fail = [&](int error) {
    ::unlinkat(folder.get(), unfinished.c_str(), 0);
    failWithSystemError("cannot write " + name, error);
  };
  if (!isWritten) fail(errno);
  const int error = isThere(folder.get(), name)
                        ? (::renameat(folder.get(), unfinished.c_str(), folder.get(), name.c_str()) == 0 ? 0 : errno)
                        : renameWithoutReplacing(folder.get(), unfinished, folder.get(), name);
  if (error != 0) fail(error);
  syncFolder(folder.get());
}

}  // namespace AssistantTool
