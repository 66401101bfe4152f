#pragma once
// The processes whose program lies in an application bundle, as /proc shows them. Any thread.
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/Descriptor.h"

namespace platform::Linux {

// One process. `handle` stays bound to it when its number is used again.
struct RunningProcess {
  pid_t number;
  Descriptor handle;
  std::string bundlePath;
};

// Every running process of a bundle's program but this one. Those that this user may not look into are left out.
std::vector<RunningProcess> processesOfBundles();

// False from the end of the process on, even before its parent has taken notice.
bool isRunning(const RunningProcess& process);

// The bundle that the program at `path` belongs to: the innermost folder "*.app" above it with an information list, when
// the program is below its Contents/Linux or Contents/MacOS. The program itself need not exist any more.
std::optional<std::string> bundleOfProgram(std::string_view path);

}  // namespace platform::Linux
