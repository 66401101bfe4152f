#pragma once
// The kernel's number of the calling thread, remembered per thread: the kernel is asked once. Any thread.
#include <cstdint>

namespace CallingThread {

std::uint32_t identifier();

}  // namespace CallingThread
