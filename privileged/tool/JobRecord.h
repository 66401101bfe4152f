#pragma once
// The record of one job for the system log.
#include <string>
#include <utility>
#include <vector>

#include "privileged/tool/Request.h"
#include "protocol/LogRecord.h"

namespace AssistantTool {

struct JobRecord {
  // "incomplete": the job is done, but not all of what it replaced could be deleted.
  enum class Verdict { done, refused, incomplete };

  std::string command;  // empty when no instruction was read
  std::vector<std::string> paths;
  Bundles bundles;
  Verdict verdict = Verdict::refused;
  bool isWarning = false;  // also when the job is done
  std::string line;        // what was done, or the cause of a refusal
};

protocol::LogPriority priorityOf(const JobRecord& record);
// `job` is the number under which the broker's records name this run, and `tool` the digest of this program.
protocol::LogFields fieldsOf(const JobRecord& record, uid_t user, const std::string& job, const std::string& tool);

}  // namespace AssistantTool
