#include "privileged/tool/Swap.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

// While it lives, a signal that would end this process has to wait.
class WithoutSignals {
 public:
  WithoutSignals() {
    sigset_t all;
    sigfillset(&all);
    ::sigprocmask(SIG_SETMASK, &all, &before_);
  }
  ~WithoutSignals() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
  WithoutSignals(const WithoutSignals&) = delete;
  WithoutSignals& operator=(const WithoutSignals&) = delete;

 private:
  sigset_t before_{};
};

// Gives a folder the modification time that it had, when it has another by the end of this.
class KeptTimes {
 public:
  explicit KeptTimes(FileDescriptor folder) : folder_(std::move(folder)) {
    if (folder_ && ::fstat(folder_.get(), &before_) != 0) folder_ = FileDescriptor();
  }
  ~KeptTimes() {
    struct stat now {};
    const int error = errno;
    if (folder_ && ::fstat(folder_.get(), &now) == 0 && !isSame(now.st_mtim, before_.st_mtim)) {
      const std::array<timespec, 2> times{before_.st_atim, before_.st_mtim};
      if (::futimens(folder_.get(), times.data()) == 0) ::fsync(folder_.get());
    }
    errno = error;
  }
  KeptTimes(const KeptTimes&) = delete;
  KeptTimes& operator=(const KeptTimes&) = delete;

 private:
  static bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
  }
  FileDescriptor folder_;
  struct stat before_ {};
};

}  // namespace

Swap::Swap(Staging& staging, const Location& destination, const std::optional<struct stat>& old)
    : staging_(staging), destination_(destination), folder_(destination.openFolder()), old_(old) {}

void Swap::in() {
  const Way way = bringIn();
  if (::fsync(folder_.get()) == 0) return;
  const int error = errno;
  bringBack(way);
  failWithSystemError("cannot sync " + destination_.folderPath(), error);
}

Swap::Way Swap::bringIn() {
  const char* name = destination_.name.c_str();
  if (!old_) {
    const int error = renameWithoutReplacing(staging_.folder(), Staging::NewItem, folder_.get(), name);
    if (error != 0) failWithSystemError("cannot make " + destination_.path, error);
    return Way::placed;
  }
  if (exchange()) return Way::exchanged;
  if (errno != EINVAL && errno != ENOSYS) failWithSystemError("cannot replace " + destination_.path);
  if (canRenameOver() && renameOver()) return Way::renamedOver;
  renameTwice();
  return Way::renamed;
}

// Some file systems take the exchange for a change of the two folders themselves; their times are given back at once.
bool Swap::exchange() {
  const KeptTimes fresh(openFolderIn(staging_.folder(), Staging::NewItem));
  const KeptTimes old(openFolderIn(folder_.get(), destination_.name));
  return ::renameat2(staging_.folder(), Staging::NewItem, folder_.get(), destination_.name.c_str(), RENAME_EXCHANGE) == 0;
}

// A rename takes the place of anything but a folder in one step.
bool Swap::canRenameOver() const {
  struct stat fresh {};
  return !S_ISDIR(old_->st_mode) && ::fstatat(staging_.folder(), Staging::NewItem, &fresh, AT_SYMLINK_NOFOLLOW) == 0 &&
         !S_ISDIR(fresh.st_mode);
}

// The old file keeps a second name in the staging folder. False where files have one name only.
bool Swap::renameOver() {
  if (::linkat(folder_.get(), destination_.name.c_str(), staging_.folder(), Staging::OldItem, 0) != 0) return false;
  if (!renameTo(Staging::NewItem, false)) failWithSystemError("cannot replace " + destination_.path);
  return true;
}

// The note comes first, and on the disk: whoever finds the staging folder without us knows where the old item belongs.
void Swap::renameTwice() {
  staging_.noteDestination(destination_.name);
  syncFolder(staging_.folder());
  syncFolder(folder_.get());
  const WithoutSignals undisturbed;
  if (!renameTo(Staging::OldItem, true)) failWithSystemError("cannot replace " + destination_.path);
  if (renameTo(Staging::NewItem, false)) return;
  const int error = errno;
  if (!renameTo(Staging::OldItem, false)) staging_.keep();
  failWithSystemError("cannot replace " + destination_.path, error);
}

void Swap::bringBack(Way way) {
  const char* name = destination_.name.c_str();
  bool done = false;
  if (way == Way::renamedOver) {
    done = ::linkat(folder_.get(), name, staging_.folder(), Staging::NewItem, 0) == 0 && renameTo(Staging::OldItem, false);
  } else if (way == Way::exchanged) {
    done = exchange();
  } else {
    done = renameTo(Staging::NewItem, true) && (way == Way::placed || renameTo(Staging::OldItem, false));
  }
  if (!done) staging_.keep();
}

bool Swap::renameTo(const char* staged, bool intoStaging) {
  const char* name = destination_.name.c_str();
  if (intoStaging) return ::renameat(folder_.get(), name, staging_.folder(), staged) == 0;
  return ::renameat(staging_.folder(), staged, folder_.get(), name) == 0;
}

}  // namespace AssistantTool
