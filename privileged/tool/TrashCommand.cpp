#include "privileged/tool/TrashCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "posix/RemoveTree.h"
#include "privileged/tool/Account.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/Locations.h"
#include "privileged/tool/MountTable.h"
#include "privileged/tool/SignOfLife.h"
#include "privileged/tool/TrashFolder.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

struct User {
  Owner owner;
  std::string dataFolder;  // empty when there is none
};

User userOf(uid_t number) {
  const auto& account = accountOf(number);
  if (!account) throw Failure("the invoking user has no account");
  return {.owner = {account->user, account->group}, .dataFolder = account->dataFolder};
}

class Trasher {
 public:
  Trasher(const Location& item, const struct stat& status, const Request& request)
      : _item(item), _status(status), _walk(request.walk), _bounds(request.bounds), _user(userOf(_walk.user())) {}

  // The home Trash when it is on the same file system, else the volume's. File managers do not look for a Trash on the root
  // file system, so from there an item is copied to the home Trash first.
  Outcome perform() {
    const auto home =
        _user.dataFolder.empty() ? std::nullopt : TrashFolder::inDataFolder(_user.dataFolder, _user.owner, _walk);
    if (home && moveTo(*home)) return _outcome;
    const auto top = MountTable().topFolderOf(_item.path);
    if (top == "/" && home) return copyTo(*home);
    const auto volume = TrashFolder::onVolume(top, _user.owner, _walk);
    if (volume && moveTo(*volume)) return _outcome;
    if (home) return copyTo(*home);
    throw Failure("no Trash can be used for " + _item.path);
  }

 private:
  // False when the item is on another file system than the Trash.
  bool moveTo(const TrashFolder& trash) {
    trash.finishKilledJobs(_walk);
    Staging staging(trash.itemLocation("."));
    const auto name = trash.reserveName(_item.path, _status, staging);
    const auto place = trash.itemLocation(name);
    const int error = renameWithoutReplacing(_item.folder.get(), _item.name, place.folder.get(), place.name);
    if (error != 0) trash.releaseName(name, staging);
    if (error == EXDEV) return false;
    if (error != 0) failWithSystemError("cannot move to the Trash", error);
    try {
      trash.sync();
      syncFolder(_item.openFolder().get());
    } catch (const Failure&) {
      if (takeBack(place, staging)) trash.releaseName(name, staging);
      throw;
    }
    handOver(trash, name, staging);
    tell(place);
    return true;
  }

  // Nothing was given to the user yet. The item goes back by way of the staging folder, because in the Trash the user can
  // lay another one in its place. False when it stays in the Trash.
  bool takeBack(const Location& place, Staging& staging) const {
    try {
      staging.noteSource(_item, _status);
    } catch (const Failure&) {
      staging.keep();
      return false;
    }
    const auto renamed = [&](int from, const std::string& name, int to, const std::string& newName) {
      return renameWithoutReplacing(from, name, to, newName) == 0;
    };
    struct stat taken {};
    if (renamed(place.folder.get(), place.name, staging.folder(), Staging::newItem)) {
      const bool isItem = ::fstatat(staging.folder(), Staging::newItem, &taken, AT_SYMLINK_NOFOLLOW) == 0 &&
                          taken.st_dev == _status.st_dev && taken.st_ino == _status.st_ino;
      if (isItem && renamed(staging.folder(), Staging::newItem, _item.folder.get(), _item.name)) {
        if (syncDescriptor(_item.openFolder().get()) != 0) staging.keep();
        return true;
      }
      renamed(staging.folder(), Staging::newItem, place.folder.get(), place.name);
    }
    staging.keep();
    return false;
  }

  // From here on there is no way back: what the user once owned may hold anything, and belongs to nobody else any more.
  static void handOver(const TrashFolder& trash, const std::string& name, Staging& staging) {
    try {
      trash.handOver(name);
    } catch (const Failure& failure) {
      staging.keep();  // for the next job, which goes on with it
      throw Failure(std::string("moved to the Trash, but not all of it was given to the user: ") + failure.what());
    }
  }

  Outcome copyTo(const TrashFolder& trash) {
    const auto found = surveyWithoutSpecialFiles(_item, _user.owner, _bounds);
    trash.finishKilledJobs(_walk);
    Staging staging(trash.itemLocation("."));
    const auto name = trash.reserveName(_item.path, _status, staging);
    const auto place = trash.itemLocation(name);
    bool placed = false;
    try {
      stageCopy(_item, staging, _user.owner, found);
      placeNewItem(staging, place);
      placed = true;
      trash.sync();
      _outcome.afterwards = takeAway(_item);
    } catch (const Failure&) {
      if (placed) posix::removeTree(place.folder.get(), place.name, posix::LockedFolders::areOpened, giveSignOfLife);
      trash.releaseName(name, staging);
      throw;
    }
    tell(place);
    return _outcome;
  }

  void tell(const Location& place) {
    _outcome.report = "moved to the Trash as " + place.path;
    _outcome.output = place.path;
  }

  const Location& _item;
  struct stat _status;
  const PathWalk& _walk;
  TreeBounds _bounds;
  User _user;
  Outcome _outcome;
};

}  // namespace

Outcome trashFile(const Request& request) {
  const auto item = locateChanged(request, protocol::filePathKey);
  Staging::clearLeftovers(item, request.walk);
  const auto status = requireBoundedItem(item, request.bounds);
  return Trasher(item, status, request).perform();
}

}  // namespace AssistantTool
