#pragma once
// The policy of this machine's administrators, as the tool reads it.
#include <sys/types.h>

#include <string>

#include "protocol/PolicyFile.h"

namespace AssistantTool {

// The policy in the file at `path`: the defaults without the file or its folder, the strictest policy, with `cause`, when
// the file cannot be believed or is wrong. `owner` is root but in tests.
protocol::Policy administratorPolicy(std::string& cause, const std::string& path = protocol::policyFilePath,
                                     uid_t owner = 0);

}  // namespace AssistantTool
