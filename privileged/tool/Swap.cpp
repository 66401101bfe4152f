#include "privileged/tool/Swap.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

// While it lives, a signal that would end this process has to wait.
class WithoutSignals {
 public:
  WithoutSignals() {
    sigset_t all;
    sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &_before);
  }
  ~WithoutSignals() { ::sigprocmask(SIG_SETMASK, &_before, nullptr); }
  WithoutSignals(const WithoutSignals&) = delete;
  WithoutSignals& operator=(const WithoutSignals&) = delete;

 private:
  sigset_t _before{};
};

// Gives a folder the modification time that it had, when it has another by the end of this.
class KeptTimes {
 public:
  explicit KeptTimes(posix::Descriptor folder) : _folder(std::move(folder)) {
    if (_folder && ::fstat(_folder.get(), &_before) != 0) _folder = posix::Descriptor();
  }
  ~KeptTimes() {
    struct stat now {};
    const int error = errno;
    if (_folder && ::fstat(_folder.get(), &now) == 0 && !isSame(now.st_mtim, _before.st_mtim)) {
      const std::array<timespec, 2> times{_before.st_atim, _before.st_mtim};
      if (::futimens(_folder.get(), times.data()) == 0) syncDescriptor(_folder.get());
    }
    errno = error;
  }
  KeptTimes(const KeptTimes&) = delete;
  KeptTimes& operator=(const KeptTimes&) = delete;

 private:
  static bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
  }
  posix::Descriptor _folder;
  struct stat _before {};
};

}  // namespace

Swap::Swap(Staging& staging, const Location& destination, const std::optional<struct stat>& old)
    : _staging(staging), _destination(destination), _folder(destination.openFolder()), _old(old) {}

void Swap::in() {
  const Way way = bringIn();
  if (syncDescriptor(_folder.get()) == 0) return;
  const int error = errno;
  bringBack(way);
  failWithSystemError("cannot sync " + _destination.folderPath(), error);
}

Swap::Way Swap::bringIn() {
  const char* name = _destination.name.c_str();
  if (!_old) {
    const int error = renameWithoutReplacing(_staging.folder(), Staging::newItem, _folder.get(), name);
    if (error != 0) failWithSystemError("cannot make " + _destination.path, error);
    return Way::placed;
  }
  if (exchange()) return Way::exchanged;
  if (errno != EINVAL && errno != ENOSYS) failWithSystemError("cannot replace " + _destination.path);
  if (canRenameOver() && renameOver()) return Way::renamedOver;
  renameTwice();
  return Way::renamed;
}

// Some file systems take the exchange for a change of the two folders themselves; their times are given back at once.
bool Swap::exchange() {
  const KeptTimes fresh(openFolderIn(_staging.folder(), Staging::newItem));
  const KeptTimes old(openFolderIn(_folder.get(), _destination.name));
  return ::renameat2(_staging.folder(), Staging::newItem, _folder.get(), _destination.name.c_str(), RENAME_EXCHANGE) == 0;
}

// A rename takes the place of anything but a folder in one step.
bool Swap::canRenameOver() const {
  struct stat fresh {};
  return !S_ISDIR(_old->st_mode) && ::fstatat(_staging.folder(), Staging::newItem, &fresh, AT_SYMLINK_NOFOLLOW) == 0 &&
         !S_ISDIR(fresh.st_mode);
}

// The old file keeps a second name in the staging folder. False where files have one name only.
bool Swap::renameOver() {
  if (::linkat(_folder.get(), _destination.name.c_str(), _staging.folder(), Staging::oldItem, 0) != 0) return false;
  if (!renameTo(Staging::newItem, false)) failWithSystemError("cannot replace " + _destination.path);
  return true;
}

// The note comes first, and on the disk: whoever finds the staging folder without us knows where the old item belongs.
void Swap::renameTwice() {
  _staging.noteDestination(_destination.name);
  syncFolder(_staging.folder());
  syncFolder(_folder.get());
  const WithoutSignals undisturbed;
  if (!renameTo(Staging::oldItem, true)) failWithSystemError("cannot replace " + _destination.path);
  if (renameTo(Staging::newItem, false)) return;
  const int error = errno;
  if (!renameTo(Staging::oldItem, false)) _staging.keep();
  failWithSystemError("cannot replace " + _destination.path, error);
}

void Swap::bringBack(Way way) {
  const char* name = _destination.name.c_str();
  bool done = false;
  if (way == Way::renamedOver) {
    done = ::linkat(_folder.get(), name, _staging.folder(), Staging::newItem, 0) == 0 && renameTo(Staging::oldItem, false);
  } else if (way == Way::exchanged) {
    done = exchange();
  } else {
    done = renameTo(Staging::newItem, true) && (way == Way::placed || renameTo(Staging::oldItem, false));
  }
  if (!done) _staging.keep();
}

bool Swap::renameTo(const char* staged, bool intoStaging) {
  const char* name = _destination.name.c_str();
  if (intoStaging) return ::renameat(_folder.get(), name, _staging.folder(), staged) == 0;
  return ::renameat(_staging.folder(), staged, _folder.get(), name) == 0;
}

}  // namespace AssistantTool
