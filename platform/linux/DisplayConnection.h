#pragma once
// Whether a process shows windows, or may show them.
#include <sys/types.h>

namespace platform::Linux {

// True when the process, or one that descends from it, is connected to an X11 or Wayland display or holds a screen itself.
// Also true when that cannot be found out: who asks wants to know that nothing on a screen can be lost. Any thread.
bool mayShowWindows(pid_t process);

}  // namespace platform::Linux
