#pragma once
// Closing the windows of another process in the ordinary way, through the window manager of the X display.
#include <sys/types.h>

namespace platform::Linux {

// Asks the window manager to close every top-level window of the process, as a click on its close button does. False when
// it has none, or there is no display or window manager to ask. Any thread.
bool closeWindows(pid_t process);

}  // namespace platform::Linux
