#pragma once
// A process that is held, so that its number cannot come to stand for another. Any thread.
#include <sys/types.h>

#include "posix/Descriptor.h"

namespace platform::Linux {

struct RunningProcess {
  pid_t number;
  posix::Descriptor handle;  // stays bound to the process when the number is used again
};

// The process that has this number now; its handle is empty when there is no such process.
RunningProcess processWithNumber(pid_t number);

// False from the end of the process on, even before its parent has taken notice.
bool isRunning(const RunningProcess& process);

}  // namespace platform::Linux
