#pragma once
// The tool's way to the system log: the journal's socket, else the log daemon's.
#include <string>

#include "posix/Descriptor.h"
#include "protocol/LogRecord.h"

namespace AssistantTool {

class Log {
 public:
  // Opens the socket now: a file job cannot make one.
  Log();

  // False when this machine keeps no log of this job.
  [[nodiscard]] bool isKept() const;
  // Only root's jobs are recorded. Waits for a second at most: when nobody reads the log the record is lost.
  void write(protocol::LogPriority priority, const std::string& line, const protocol::LogFields& fields = {}) const;

 private:
  posix::Descriptor _socket;
};

}  // namespace AssistantTool
