#pragma once
// Reads the record that the installer leaves of its last run (see protocol/LastRun.h). Any thread.
#include <optional>
#include <string>

namespace sdk {

// One value of the record as text; nothing when there is no such value, or no record.
std::optional<std::string> lastRunValue(const std::string& key);

}  // namespace sdk
