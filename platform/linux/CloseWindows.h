#pragma once
// The windows of other processes on the X display: closing them in the ordinary way, and having them in front. Any thread.
//
// A window belongs to the process that made it, as the display server tells; where it does not tell, to the one that the
// window names. Windows that do not offer to be closed are left alone.
#include <sys/types.h>

#include <vector>

namespace platform::Linux {

// Asks every top-level window of the process to close, as a click on its close button does. False when it has none, or
// there is no display.
bool closeWindows(pid_t process);

// Raises the windows of the process and activates the topmost, so that what it is going to ask appears in front.
void bringForward(pid_t process);

// Raises the windows that the processes show, in the order that they are in. The keyboard stays where it is.
void raiseWindows(const std::vector<pid_t>& processes);

// The same, but only if a window of this process hides one of them.
void keepInFront(const std::vector<pid_t>& processes);

}  // namespace platform::Linux
