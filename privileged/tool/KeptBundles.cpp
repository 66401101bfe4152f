#include "privileged/tool/KeptBundles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "posix/RemoveTree.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/Journal.h"
#include "privileged/tool/SignOfLife.h"
#include "privileged/tool/Staging.h"
#include "privileged/tool/TreeCopy.h"
#include "protocol/KeptBundles.h"

namespace AssistantTool {
namespace {

constexpr mode_t openToAll = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr std::size_t digits = 8;

bool isNumber(const std::string& name) {
  return name.size() == digits && name.find_first_not_of("0123456789") == std::string::npos;
}

std::string numberAfter(const std::string& number) {
  const auto text = std::to_string(std::stoul(number) + 1);
  return std::string(digits - std::min(digits, text.size()), '0') + text;
}

void note(int folder, const char* name, const std::string& text) {
  if (::symlinkat(text.c_str(), folder, name) != 0) failWithSystemError("cannot note " + text);
}

// A user who could not go to the bundle where it lay must not be able to go to it here.
bool isReachableByAll(std::string folder) {
  for (; !folder.empty(); folder.resize(folder.rfind('/'))) {
    struct stat status {};
    if (::stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IXOTH) == 0) return false;
  }
  return true;
}

// By a rename, or by a copy where that is impossible or would leave something in it to others. The number of its entries.
std::size_t bringInto(int folder, const std::string& name, const ItemInFolder& replaced, const Staging& staging,
                      const TreeBounds& bounds) {
  struct stat status {};
  if (::fstatat(replaced.folder, replaced.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    failWithSystemError("cannot look at the replaced version");
  const Owner owner{status.st_uid, status.st_gid};
  const auto found = survey(replaced.folder, replaced.name, owner, bounds);
  const bool mayMove = !found.needsAdoption && !found.mustBeCopied && !found.hasSpecialFiles;
  if (mayMove && renameWithoutReplacing(replaced.folder, replaced.name, folder, name) == 0) return found.entries;
  if (::mkdirat(staging.folder(), Staging::hardLinks, S_IRWXU) != 0)
    failWithSystemError("cannot write in the folder of kept versions");
  const auto links = openFolderIn(staging.folder(), Staging::hardLinks);
  if (!links) failWithSystemError("cannot write in the folder of kept versions");
  copyTree(replaced.folder, replaced.name, folder, name, links.get(), owner, found.bounds);
  posix::removeTree(staging.folder(), Staging::hardLinks, posix::LockedFolders::areOpened, giveSignOfLife);
  return found.entries;
}

}  // namespace

KeptBundles KeptBundles::made() { return KeptBundles(folderOfNotes(protocol::keptFolder, openToAll, true)); }

std::optional<KeptBundles> KeptBundles::existing() {
  auto folder = folderOfNotes(protocol::keptFolder, openToAll, false);
  if (!folder) return std::nullopt;
  return KeptBundles(std::move(folder));
}

bool KeptBundles::holds(const Location& source, const Location& destination, const std::string& identifier) const {
  const auto path = source.folderPath();
  const auto number = path.substr(path.rfind('/') + 1);
  const auto folder = isNumber(number) ? openFolderIn(_folder.get(), number) : posix::Descriptor();
  struct stat ours {};
  struct stat named {};
  if (!folder || ::fstat(folder.get(), &ours) != 0 || ::fstat(source.folder.get(), &named) != 0) return false;
  if (ours.st_dev != named.st_dev || ours.st_ino != named.st_ino) return false;
  return linkTargetOf(folder.get(), protocol::keptPlaceNote) == destination.folderPath() &&
         linkTargetOf(folder.get(), protocol::keptApplicationNote) == identifier;
}

void KeptBundles::keep(const ItemInFolder& replaced, const Location& destination, const std::string& identifier,
                       const Request& request) const {
  Staging::clearLeftovers(locate(""), request.walk);
  const auto all = numbers();
  const auto entry = locate(numberAfter(all.empty() ? "0" : all.back()));
  const Staging staging(entry);
  if (::mkdirat(staging.folder(), Staging::newItem, isReachableByAll(destination.folderPath()) ? openToAll : S_IRWXU) != 0)
    failWithSystemError("cannot write in the folder of kept versions");
  const auto folder = openFolderIn(staging.folder(), Staging::newItem);
  if (!folder) failWithSystemError("cannot write in the folder of kept versions");
  note(folder.get(), protocol::keptPlaceNote, destination.folderPath());
  note(folder.get(), protocol::keptApplicationNote, identifier);
  const auto entries = bringInto(folder.get(), destination.name, replaced, staging, request.bounds);
  syncTree(staging.folder(), Staging::newItem, entries);
  placeNewItem(staging, entry);
  removeOldest(destination, identifier, request.rules.policy.keptVersions);
}

std::function<std::string()> KeptBundles::takeAwayFolderOf(const Location& source) const {
  const auto path = source.folderPath();
  return takeAway(locate(path.substr(path.rfind('/') + 1)));
}

std::vector<std::string> KeptBundles::numbers() const {
  std::vector<std::string> names;
  for (const auto& entry : entriesOf(_folder.get()))
    if (isNumber(entry.name)) names.push_back(entry.name);
  std::ranges::sort(names);
  return names;
}

Location KeptBundles::locate(const std::string& number) const {
  Location place;
  place.folder = posix::Descriptor(::openat(_folder.get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  place.name = number;
  place.path = stateFolder() + "/kelto/" + protocol::keptFolder + "/" + number;
  return place;
}

void KeptBundles::removeOldest(const Location& destination, const std::string& identifier, std::size_t count) const {
  try {
    std::vector<std::string> ofApplication;
    for (const auto& number : numbers()) {
      const auto folder = openFolderIn(_folder.get(), number);
      if (folder && linkTargetOf(folder.get(), protocol::keptPlaceNote) == destination.folderPath() &&
          linkTargetOf(folder.get(), protocol::keptApplicationNote) == identifier)
        ofApplication.push_back(number);
    }
    for (std::size_t i = 0; i + count < ofApplication.size(); ++i) static_cast<void>(takeAway(locate(ofApplication[i]))());
  } catch (const Failure&) {
    // The next job tries again.
  }
}

}  // namespace AssistantTool
