#pragma once
// A record of the broker or the tool in the forms that the system's log takes. Both name a job by the same number, so that
// their records can be read together. Pure; any thread; the standard library only.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace protocol {

// Names in capitals, as the journal wants them; values are made printable.
using LogFields = std::vector<std::pair<std::string, std::string>>;

// As in syslog.
enum class LogPriority { warning = 4, notice = 5 };

struct LogRecord {
  std::string program;
  int process = 0;
  LogPriority priority = LogPriority::notice;
  std::string line;
  LogFields fields;
};

// For the journal's socket: the line and every field.
std::string journalDatagram(const LogRecord& record);
// For the log daemon's: the line, with the local time.
std::string logDatagram(const LogRecord& record);

// Text of a caller, made fit for a log: printable, one line, at most 200 characters.
std::string printable(std::string_view text);

}  // namespace protocol
