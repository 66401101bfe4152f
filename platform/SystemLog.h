#pragma once
// The system's log, for causes of failure that no caller receives. Any thread. It outlives every object that it is given
// to.
#include <string_view>

namespace platform {

class SystemLog {
 public:
  virtual ~SystemLog() = default;
  // Writes one line, an English text of any length without a line feed at its end, at a level that is on by default.
  // Control characters are written as "\xHH". Nobody is told when the log cannot be written: the line is lost, and the
  // caller goes on. May be called in a child that was forked beside threads.
  virtual void log(std::string_view line) = 0;
};

}  // namespace platform
