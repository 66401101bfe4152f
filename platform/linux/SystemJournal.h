#pragma once
// The journal of systemd, through libsystemd if the machine has it. Any thread.
#include <span>
#include <string>

namespace platform::Linux {

// See platform::LoggingHost.
bool sendToJournal(std::span<const std::string> fields);

}  // namespace platform::Linux
