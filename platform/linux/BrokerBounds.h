#pragma once
// The bounds of root's tool, which lives in those of the broker's unit: what the service manager says of that unit, with
// what the administrator added to it.
#include <filesystem>
#include <string>

namespace platform::Linux {

// The folder around `path`, or `path` itself, in which the tool cannot write; empty if there is none. Empty as well when it
// cannot be known: where no service manager has the unit, or where it cannot be asked. `path` is canonical. Any thread;
// answers within a few seconds even when the manager does not.
std::string readOnlyFolderAround(const std::filesystem::path& path);

}  // namespace platform::Linux
