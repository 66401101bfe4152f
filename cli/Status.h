#pragma once
// "status": what is installed, how the last run of the installer ended, and what this machine's administrators allow. Main
// thread.
#include <string>
#include <vector>

#include "cli/Results.h"
#include "platform/Platform.h"
#include "protocol/PolicyFile.h"

namespace cli {

// Identity and version of the bundle at `path`, and how many copies of it run; empty if no bundle is there.
Dictionary statusOfBundle(const std::string& path, const platform::Platform& platform);
// The versions of these bundles, in the same order; one that cannot be read is left out.
foundation::PropertyList::Array versionsOf(const std::vector<std::string>& paths, const platform::Bundles& bundles);
// The record of the last run; empty without one.
Dictionary statusOfLastRun(const platform::FileManager& files);
// `cause` says why the policy is the strictest one; empty if it is the administrators' own.
Dictionary statusOfPolicy(const protocol::Policy& policy, const std::string& cause);

}  // namespace cli
