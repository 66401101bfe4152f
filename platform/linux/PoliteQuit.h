#pragma once
// Asking a process to quit, so that it may ask its user about unsaved work, or refuse. Nothing here forces.
#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/RunningProcesses.h"

namespace platform::Linux {

// Asks in the first of these ways that the process offers, and in no other:
//   - the application action "quit", when the process owns its bundle identifier on the session bus and has that action;
//   - closing its windows on the X display;
//   - SIGTERM, when it handles that signal, is connected to no display, and was not started by another of the `copies`: it
//     gets its end from that one.
// Its windows come to the front before, so that its question does. False when it offers none, or has ended. Does not wait
// for the effect, but up to a few seconds for bus and display. Any thread.
bool askToQuit(const RunningProcess& process, const std::string& bundleIdentifier, const std::vector<pid_t>& copies);

}  // namespace platform::Linux
