#include "privileged/tool/Swap.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {

Swap::Swap(Staging& staging, const Location& destination, bool replaces)
    : staging_(staging), destination_(destination), folder_(destination.openFolder()), replaces_(replaces) {}

void Swap::in() {
  const Way way = bringIn();
  if (::fsync(folder_.get()) == 0) return;
  const int error = errno;
  bringBack(way);
  failWithSystemError("cannot sync " + destination_.folderPath(), error);
}

Swap::Way Swap::bringIn() {
  const char* name = destination_.name.c_str();
  if (!replaces_) {
    const int error = renameWithoutReplacing(staging_.folder(), Staging::NewItem, folder_.get(), name);
    if (error != 0) failWithSystemError("cannot make " + destination_.path, error);
    return Way::placed;
  }
  if (::renameat2(staging_.folder(), Staging::NewItem, folder_.get(), name, RENAME_EXCHANGE) == 0) return Way::exchanged;
  if (errno != EINVAL && errno != ENOSYS) failWithSystemError("cannot replace " + destination_.path);
  renameTwice();
  return Way::renamed;
}

// The note comes first: whoever finds the staging folder without us knows where the old item belongs.
void Swap::renameTwice() {
  staging_.noteDestination(destination_.name);
  if (!renameTo(Staging::OldItem, true)) failWithSystemError("cannot replace " + destination_.path);
  if (renameTo(Staging::NewItem, false)) return;
  const int error = errno;
  if (!renameTo(Staging::OldItem, false)) staging_.keep();
  failWithSystemError("cannot replace " + destination_.path, error);
}

void Swap::bringBack(Way way) {
  const char* name = destination_.name.c_str();
  bool done = false;
  if (way == Way::exchanged) {
    done = ::renameat2(staging_.folder(), Staging::NewItem, folder_.get(), name, RENAME_EXCHANGE) == 0;
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
