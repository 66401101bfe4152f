#pragma once
// The caches that menus read in place of the entries and icons: brought up to date by the programs of the distribution,
// where they are installed.
//
// A file job starts no program, so a second process is made before it gives that up, and waits for the job to end. It keeps
// nothing that root has beyond the owner's rights to root's files: no capability, no socket, no way out of the two folders.
#include <sys/types.h>

#include <string>

#include "posix/Descriptor.h"

namespace AssistantTool {

class DesktopCaches {
 public:
  // Of the data folder at this path.
  explicit DesktopCaches(const std::string& dataFolder);
  // The process ends when nobody wants it any more.
  ~DesktopCaches();
  DesktopCaches(const DesktopCaches&) = delete;
  DesktopCaches& operator=(const DesktopCaches&) = delete;

  // Once only. Returns when it is done, or was given up.
  void update();

 private:
  posix::Descriptor _go;
  pid_t _process = -1;
};

}  // namespace AssistantTool
