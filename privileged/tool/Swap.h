#pragma once
// The moment of replacement: the new item in a staging folder for the old one at the destination.
#include <sys/stat.h>

#include <optional>

#include "privileged/tool/PathWalk.h"
#include "privileged/tool/Staging.h"

namespace AssistantTool {

class Swap {
 public:
  // Both outlive the swap. `old` is what is at the destination now.
  Swap(Staging& staging, const Location& destination, const std::optional<struct stat>& old);

  // Brings NewItem to the destination, the old item into the staging folder, and both facts to the disk: in one step where
  // the file system knows the exchange or what is exchanged are files, else by two renames. Throws Failure with the old
  // item at the destination again and NewItem in the staging folder.
  //
  // Only between those two renames is nothing at the destination. No signal but SIGKILL can end the process there, and
  // whoever finds the staging folder after that or after a power cut puts the old item back.
  void in();

 private:
  enum class Way { placed, exchanged, renamedOver, renamed };

  Way bringIn();
  [[nodiscard]] bool canRenameOver() const;
  bool renameOver();
  void renameTwice();
  void bringBack(Way way);
  bool exchange();
  bool renameTo(const char* staged, bool intoStaging);

  Staging& _staging;
  const Location& _destination;
  posix::Descriptor _folder;
  std::optional<struct stat> _old;
};

}  // namespace AssistantTool
