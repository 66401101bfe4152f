#pragma once
// "history": the jobs of this machine, one line or one JSON object each. Pure; any thread.
#include <string>
#include <vector>

#include "cli/Results.h"
#include "platform/linux/terminal/JobHistory.h"

namespace cli {

using platform::Linux::RecordedJob;

// The jobs in which a path is that of the bundle; all without one.
std::vector<RecordedJob> jobsOf(const std::string& bundle, std::vector<RecordedJob> jobs);

foundation::PropertyList::Array listOf(const std::vector<RecordedJob>& jobs);

// "2026-11-22T10:20:30Z done replace item "/Applications/App.app" 1.0 -> 2.0, alice", with the cause at the end.
std::string lineOf(const RecordedJob& job);

}  // namespace cli
