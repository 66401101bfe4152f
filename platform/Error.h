#pragma once
// The cause of a failure in the operating system's terms. A value type; any thread.
#include <string>

namespace platform {

// An errno value and the operating system's text for it.
struct Error {
  int code = 0;
  std::string description;
  bool operator==(const Error&) const = default;
};

}  // namespace platform
