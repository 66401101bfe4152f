#pragma once
// Threads of the framework's own: the watch, the onlooker, those of the pool and of the clock. Any thread.
#include <functional>
#include <thread>

namespace foundation::Threads {

// Throws std::system_error when there is no thread to be had.
std::thread start(std::function<void()> work);

// The operating system's way to start a thread that takes no signal of the program's and has the ordinary scheduling,
// whatever its maker has. Without one a thread is as its maker is.
using Starter = std::thread (*)(std::function<void()> work);
void setStarter(Starter starter);

}  // namespace foundation::Threads
