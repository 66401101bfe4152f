#pragma once
// The names in a folder. Any thread.
#include <string>
#include <vector>

namespace platform::Linux {

// Of all entries, in no order; empty if the folder cannot be read. Throws when memory is short, which the standard
// library's iterator turns into the end of the process.
std::vector<std::string> namesIn(const std::string& folder);

}  // namespace platform::Linux
