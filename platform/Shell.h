#pragma once
// Command lines, run as this user. Main thread; a call blocks until the command has ended.
#include <string>

namespace platform {

class Shell {
 public:
  virtual ~Shell() = default;
  // Runs the line through the C library's `system` as this user and waits for it; returns its status. The bundle's
  // resources are searched first for commands.
  virtual int system(const std::string& commandLine) = 0;
};

}  // namespace platform
