#pragma once
// The kernel's number of the calling thread, remembered per thread: the kernel is asked once. Any thread.
#include <cstdint>

#include "platform/LoggingHost.h"

namespace CallingThread {

// `process` knows the kernel; without it (nullptr) the number is one of the C++ library's.
std::uint32_t identifier(const platform::ProcessInfo* process);

}  // namespace CallingThread
