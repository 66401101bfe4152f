#pragma once
// SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT. The action that they had before still comes afterwards. Any thread.

namespace platform::Linux {

// See platform::LoggingHost.
void callBeforeCrash(void (*action)());

}  // namespace platform::Linux
