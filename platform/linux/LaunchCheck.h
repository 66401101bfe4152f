#pragma once
// Checks before anybody is asked to quit: whether the paths that the program was started with are ones that the assistant
// tool will work on. Any thread.
#include <optional>
#include <string>

#include "platform/RunReport.h"
#include "platform/UserDefaults.h"

namespace platform::Linux {

// The path of the installed bundle; empty if none is given.
std::string installedBundle(const platform::UserDefaults& arguments);

// Why the run that these launch arguments describe cannot succeed; nullopt if nothing speaks against it. Looks with the
// rights of this user: whatever only root can see is left to the tool.
std::optional<Failure> reasonToRefuse(const platform::UserDefaults& arguments);

// The failure of a run that is never handed any rights.
Failure failureWithoutRights(const platform::UserDefaults& arguments);

}  // namespace platform::Linux
