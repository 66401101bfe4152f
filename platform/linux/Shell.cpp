#include "platform/linux/Shell.h"

#include <cstdlib>

namespace platform::Linux {

int Shell::system(const std::string& commandLine) {
  int status = -1;
  _blockingCall.run([&] { status = std::system(commandLine.c_str()); });
  return status;
}

}  // namespace platform::Linux
