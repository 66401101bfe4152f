#pragma once
// The system's log, for causes of failure that no caller receives. Any thread.
#include <string_view>

namespace platform {

class SystemLog {
 public:
  virtual ~SystemLog() = default;
  // Writes one line; control characters are written as "\xHH".
  virtual void log(std::string_view line) = 0;
};

}  // namespace platform
