#pragma once
// Which volume holds a path, and whether it is local, by the kernel's table of mounts.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform::Linux {

// The number of the mount that holds what `path` names (links followed); nothing when it does not exist. Any thread.
std::optional<std::uint64_t> mountOfPath(const std::string& path);

// The URL of the mount with this number in `mountInfo`, text in the form of /proc/self/mountinfo: "file://<mount point>/"
// for a local file system, "<scheme>://<server and share>" for one of the network. Pure.
std::optional<std::string> volumeURL(std::string_view mountInfo, std::uint64_t mount);

}  // namespace platform::Linux
