#pragma once
// The folders from the top of a tree down to where a walk is. Only the deepest few are held open, so that a walk needs the
// same number of descriptors at any depth. On the way back a folder is opened again as ".." of the one below it, and must
// still be the folder that it was.
#include <sys/types.h>

#include <cstddef>
#include <vector>

#include "posix/Descriptor.h"

namespace AssistantTool {

class FolderChain {
 public:
  // Goes into `folder`, which lies in the deepest one. Throws Failure.
  void enter(posix::Descriptor folder);
  // Leaves the deepest folder. Throws Failure when a folder was moved during the walk.
  void leave();

  [[nodiscard]] std::size_t levels() const { return _levels.size(); }
  // The deepest folder; there has to be one.
  [[nodiscard]] int deepest() const { return _levels.back().folder.get(); }
  // The folder that holds the deepest one; there have to be two.
  [[nodiscard]] int above() const { return _levels[_levels.size() - 2].folder.get(); }

 private:
  struct Level {
    posix::Descriptor folder;  // open for the deepest few, at least for two
    dev_t device = 0;
    ino_t inode = 0;
  };
  std::vector<Level> _levels;
};

}  // namespace AssistantTool
