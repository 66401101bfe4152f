#pragma once
// Account names and numbers. Any thread.
#include <sys/types.h>

#include <optional>
#include <string>

namespace platform::Linux {

// Nothing when no such account is known.
std::optional<uid_t> userWithName(const std::string& name);
std::optional<gid_t> groupWithName(const std::string& name);

// HOME when it is absolute, else the home folder in the account of this process's user; empty when there is neither.
std::string homeFolder();

}  // namespace platform::Linux
