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

// The fields of records about jobs and about what came of a call. The number of a job is protocol::jobVariable.
namespace recordField {

inline constexpr const char* user = "KELTO_USER";        // the number of the user that the work was done for
inline constexpr const char* command = "KELTO_COMMAND";  // of the tool; this and the next are those of a job
inline constexpr const char* path = "KELTO_PATH";        // one for each path of the instruction, the destination last
inline constexpr const char* bundle = "KELTO_BUNDLE";    // the new bundle's identifier
inline constexpr const char* oldVersion = "KELTO_OLD_VERSION";  // of the installed bundle before the job
inline constexpr const char* newVersion = "KELTO_NEW_VERSION";  // of the new bundle
inline constexpr const char* toolDigest = "KELTO_TOOL_SHA256";  // of the tool's program file
inline constexpr const char* verdict = "KELTO_VERDICT";         // of a job: "done", "refused" or "incomplete"
inline constexpr const char* cause = "KELTO_CAUSE";             // why it is not "done"

}  // namespace recordField

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
