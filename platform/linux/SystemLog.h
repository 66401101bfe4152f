#pragma once
// The system log, and standard error.
#include <string>

#include "platform/SystemLog.h"

namespace platform::Linux {

// One line to the C library's log, as a user's program, at one of its levels. Also in a child that was forked while other
// threads were writing theirs. Any thread.
void writeToSyslog(int level, std::string_view text);

// One in a process, as the C library keeps one name for its log. Any thread.
class SystemLog final : public platform::SystemLog {
 public:
  // `ident` is the program's name at the head of every line.
  explicit SystemLog(std::string ident);
  ~SystemLog() override;
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;

  // Writes one line, whatever `line` holds: control characters and bytes that are not UTF-8 are written as "\xHH". A
  // standard error that nobody reads any more does no harm.
  void log(std::string_view line) override;

 private:
  const std::string _ident;
};

}  // namespace platform::Linux
