#pragma once
// Shell command lines. Main thread; a call blocks until the command has ended.
#include <string>

namespace platform {

class Shell {
 public:
  virtual ~Shell() = default;
  // Runs the line as this user through the C library's `system` and returns its wait status. Commands are looked up in the
  // bundle's resources first.
  virtual int system(const std::string& commandLine) = 0;
};

}  // namespace platform
