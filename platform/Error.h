#pragma once
// The cause of a failure as the operating system names it. A value; any thread.
#include <string>

namespace platform {

// The operating system's error number and its words for it.
struct Error {
  int code = 0;
  std::string description;
  bool operator==(const Error&) const = default;
};

}  // namespace platform
