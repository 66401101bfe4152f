#pragma once
// The facts about the terminal and the machine that a command needs. Main thread.
#include <string>

#include "protocol/PolicyFile.h"

namespace platform::Linux {

[[nodiscard]] bool isInputTerminal();
[[nodiscard]] bool isErrorOutputTerminal();

// Whether the process with this number runs as this user.
[[nodiscard]] bool belongsToThisUser(int process);

// The policy as the broker and the tool believe it; `cause` says why it is the strictest one when the file is refused.
[[nodiscard]] protocol::Policy policyOfThisMachine(std::string& cause);

}  // namespace platform::Linux
