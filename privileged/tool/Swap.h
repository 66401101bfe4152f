#pragma once
// The moment of replacement: the new item in a staging folder for the old one at the destination.
#include "privileged/tool/PathWalk.h"
#include "privileged/tool/Staging.h"

namespace AssistantTool {

class Swap {
 public:
  // Both outlive the swap. `replaces` tells whether something is at the destination now.
  Swap(Staging& staging, const Location& destination, bool replaces);

  // Brings NewItem to the destination, the old item into the staging folder, and both facts to the disk: in one step where
  // the file system has one, else by two renames. Throws Failure with the old item at the destination again and NewItem in
  // the staging folder.
  void in();

 private:
  enum class Way { placed, exchanged, renamed };

  Way bringIn();
  void renameTwice();
  void bringBack(Way way);
  bool renameTo(const char* staged, bool intoStaging);

  Staging& staging_;
  const Location& destination_;
  FileDescriptor folder_;
  bool replaces_;
};

}  // namespace AssistantTool
