#pragma once
// The system's log, for causes that no caller receives. Any thread.
#include <string_view>

namespace platform {

class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void log(std::string_view line) = 0;
};

}  // namespace platform
