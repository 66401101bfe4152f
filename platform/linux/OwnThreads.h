#pragma once
// Threads of the framework's own, on Linux.
//
// All signals that are sent to the process are blocked there, so that handlers run on the program's threads only. The
// scheduling is the ordinary one, and the processors are those that the process was started on: a maker that runs in real
// time or is bound to one processor passes neither on.
#include <functional>
#include <thread>

namespace platform::Linux::OwnThreads {

std::thread start(std::function<void()> work);

}  // namespace platform::Linux::OwnThreads
