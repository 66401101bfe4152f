#pragma once
// Where the file systems of this process's name space are mounted.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace posix {

inline constexpr const char* mountTablePath = "/proc/self/mountinfo";

struct Mount {
  std::uint64_t number = 0;  // as statx gives it
  std::string point;
  std::string fileSystem;  // its kind, "ext4"
  std::string source;
};

// The mounts of a table in the form of /proc/self/mountinfo; lines of another form are left out. Pure.
std::vector<Mount> mountsIn(std::string_view table);

}  // namespace posix
