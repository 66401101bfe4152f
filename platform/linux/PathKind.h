#pragma once
// Whether something, or a folder, lies at a path; links are followed. False also where nobody may look. Any thread.
#include <sys/stat.h>

#include <string>

namespace platform::Linux {

inline bool exists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

inline bool isFolder(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace platform::Linux
