#pragma once
// Checks before anybody is asked to quit: whether the paths that the program was started with are ones that the assistant
// tool will work on. Any thread.
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/RunReport.h"
#include "platform/UserDefaults.h"

namespace platform::Linux {

// The path of the installed bundle; empty if none is given.
std::string installedBundle(const platform::UserDefaults& arguments);

// Tells the folder around a path in which root's tool cannot write although this user's processes see it otherwise; empty
// if there is none.
using ReadOnlyFolder = std::function<std::string(const std::filesystem::path& path)>;

// Why the run that these launch arguments describe cannot succeed; nullopt if nothing speaks against it. Looks with the
// rights of this user: whatever only root can see is left to the tool. `readOnlyFolder` is asked last, for good paths only.
std::optional<Failure> reasonToRefuse(const platform::UserDefaults& arguments, const ReadOnlyFolder& readOnlyFolder);

// The failure of a run that is never handed any rights.
Failure failureWithoutRights(const platform::UserDefaults& arguments);

}  // namespace platform::Linux
