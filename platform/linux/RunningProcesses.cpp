#include "platform/linux/RunningProcesses.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform::Linux {

// By number: the C library's own declaration of this call cannot be linked from C++ (its header forgets extern "C").
RunningProcess processWithNumber(pid_t number) {
  return {number, posix::Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, number, 0)))};
}

bool isRunning(const RunningProcess& process) {
  pollfd ended{process.handle.get(), POLLIN, 0};
  return process.handle && ::poll(&ended, 1, 0) == 0;
}

}  // namespace platform::Linux
