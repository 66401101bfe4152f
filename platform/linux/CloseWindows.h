#pragma once
// The windows of another process on the X display: closing them in the ordinary way. Any thread.
//
// A window belongs to the process that made it, as the display server tells; where it does not tell, to the one that the
// window names. Windows that do not offer to be closed are left alone.
#include <sys/types.h>

namespace platform::Linux {

// Asks every top-level window of the process to close, as a click on its close button does. False when it has none, or
// there is no display.
bool closeWindows(pid_t process);

// Activates the topmost window of the process, so that what it is going to ask appears in front.
void bringForward(pid_t process);

}  // namespace platform::Linux
