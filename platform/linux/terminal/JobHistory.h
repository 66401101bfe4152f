#pragma once
// The assistant tool's jobs on this machine, from its records in the system's journal.
#include <optional>
#include <string>
#include <vector>

#include "foundation/runtime/Time.h"

namespace platform::Linux {

// One job. A text that is not known is empty.
struct RecordedJob {
  foundation::Date time;
  std::string job;   // its number in the broker's records, too
  std::string user;  // that it was done for: the account's name, or the number without one
  std::string command;
  std::vector<std::string> paths;  // the destination last
  std::string bundle;              // identifier
  std::string oldVersion;
  std::string newVersion;
  std::string verdict;
  std::string cause;
};

// The jobs that ran as root, which nobody else can write records of, oldest first; nullopt with `cause` when the journal
// cannot be read. A user who may not read the journal of the system sees none. `folder` holds the journal's files; this
// machine's journal without one. Main thread.
std::optional<std::vector<RecordedJob>> recordedJobs(const std::string& folder, std::string& cause);

}  // namespace platform::Linux
