#include "privileged/tool/FolderChain.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

// No bundle is as deep, so only hostile and broken trees make a walk open folders again.
constexpr std::size_t heldOpen = 32;

}  // namespace

void FolderChain::enter(posix::Descriptor folder) {
  const auto status = statusOf(folder.get());
  _levels.push_back({.folder = std::move(folder), .device = status.st_dev, .inode = status.st_ino});
  if (_levels.size() > heldOpen) _levels[_levels.size() - heldOpen - 1].folder = posix::Descriptor();
}

// Before the deepest folder goes, the second above it is opened again from the first, in which names can be looked up: the
// deepest one was found there.
void FolderChain::leave() {
  if (_levels.size() > 2) {
    auto& wanted = _levels[_levels.size() - 3];
    if (!wanted.folder) {
      posix::Descriptor folder(::openat(above(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!folder) failWithSystemError("cannot open the folder above");
      const auto status = statusOf(folder.get());
      if (status.st_dev != wanted.device || status.st_ino != wanted.inode)
        throw Failure("a folder was moved while the tool walked through it");
      wanted.folder = std::move(folder);
    }
  }
  _levels.pop_back();
}

}  // namespace AssistantTool
