#include "privileged/tool/Items.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "posix/RemoveTree.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/MountTable.h"
#include "privileged/tool/SignOfLife.h"
#include "privileged/tool/TreeCopy.h"

namespace AssistantTool {
namespace {

// By identity and not by name, so that a second mount of the same folder does not hide it.
bool liesInside(const Location& inner, const struct stat& outer) {
  return std::ranges::any_of(foldersAbove(inner), [&](const struct stat& folder) { return isSameItem(folder, outer); });
}

}  // namespace

bool isSameItem(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

std::vector<struct stat> foldersAbove(const Location& item) {
  std::vector<struct stat> above;
  for (posix::Descriptor folder;;) {
    const int below = folder ? folder.get() : item.folder.get();
    posix::Descriptor next(::openat(below, folder ? ".." : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!next) failWithSystemError("cannot look above " + item.path);
    const auto status = statusOf(next.get());
    if (!above.empty() && isSameItem(status, above.back())) return above;
    above.push_back(status);
    folder = std::move(next);
  }
}

struct stat requireItem(const Location& item) {
  const auto status = item.status();
  if (!status) throw Failure("nothing is at " + item.path);
  if (MountTable().isOrHoldsMount(item.path)) throw Failure("a file system is mounted at or below " + item.path);
  return *status;
}

struct stat requireBoundedItem(const Location& item, const TreeBounds& bounds) {
  const auto status = requireItem(item);
  requireBounded(item.folder.get(), item.name, bounds);
  return status;
}

void requireNothing(const Location& item) {
  if (item.exists()) throw Failure("something is already at " + item.path);
}

void refuseNesting(const Location& one, const Location& other) {
  const auto first = one.status();
  const auto second = other.status();
  if (one.path == other.path || (first && second && isSameItem(*first, *second)))
    throw Failure("source and destination are the same");
  if (second && liesInside(one, *second)) throw Failure("the source is inside the destination");
  if (first && liesInside(other, *first)) throw Failure("the destination is inside the source");
}

TreeSurvey surveyWithoutSpecialFiles(const Location& item, std::optional<Owner> owner, const TreeBounds& bounds) {
  const auto found = survey(item.folder.get(), item.name, owner, bounds);
  if (found.hasSpecialFiles) throw Failure("a device, socket or pipe is in " + item.path);
  return found;
}

void stageCopy(const Location& source, const Staging& staging, std::optional<Owner> owner, const TreeSurvey& found,
               std::optional<Owner> reader) {
  if (::mkdirat(staging.folder(), Staging::hardLinks, S_IRWXU) != 0)
    failWithSystemError("cannot write in the staging folder");
  const auto links = openFolderIn(staging.folder(), Staging::hardLinks);
  if (!links) failWithSystemError("cannot open the staging folder");
  copyTree(source.folder.get(), source.name, staging.folder(), Staging::newItem, links.get(), owner, found.bounds, reader);
  posix::removeTree(staging.folder(), Staging::hardLinks, posix::LockedFolders::areOpened, giveSignOfLife);
  syncTree(staging.folder(), Staging::newItem, found.entries);
}

void placeNewItem(const Staging& staging, const Location& destination) {
  const auto folder = destination.openFolder();
  const int error = renameWithoutReplacing(staging.folder(), Staging::newItem, folder.get(), destination.name);
  if (error != 0) failWithSystemError("cannot make " + destination.path, error);
  try {
    syncFolder(folder.get());
  } catch (const Failure&) {
    renameWithoutReplacing(folder.get(), destination.name, staging.folder(), Staging::newItem);
    throw;
  }
}

std::function<std::string()> takeAway(const Location& item) {
  const auto staging = std::make_shared<Staging>(item);
  const auto folder = item.openFolder();
  if (::renameat(item.folder.get(), item.name.c_str(), staging->folder(), Staging::doomed) != 0) {
    failWithSystemError("cannot remove " + item.path);
  }
  try {
    syncFolder(folder.get());
  } catch (const Failure&) {
    if (renameWithoutReplacing(staging->folder(), Staging::doomed, folder.get(), item.name) != 0) staging->keep();
    throw;
  }
  return [staging] { return staging->discard(); };
}

}  // namespace AssistantTool
