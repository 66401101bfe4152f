#include "platform/linux/LinuxShell.h"

#include <cstdlib>

namespace platform::Linux {

int LinuxShell::system(const std::string& commandLine) {
  int status = -1;
  _blockingCall.run([&] { status = std::system(commandLine.c_str()); });
  return status;
}

}  // namespace platform::Linux
