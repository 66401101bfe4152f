#pragma once
// The command line of an application, before anything of it is started. Main thread.
#include <optional>

#include "platform/Bundle.h"
#include "platform/SystemLog.h"
#include "platform/UserInterface.h"

namespace platform::Linux {

// Answers "--help" and "--version" on standard output, and reports all arguments that `commandLine` does not know to
// `log`, in one line. The exit status then; nullopt if the application is to run. `name` is what the command line calls the
// program.
std::optional<int> answerToCommandLine(int argc, const char* const* argv, const CommandLine& commandLine,
                                       const std::string& name, const platform::Bundle& bundle, platform::SystemLog& log);

}  // namespace platform::Linux
