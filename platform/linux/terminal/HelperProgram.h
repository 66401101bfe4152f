#pragma once
// Runs another program of this system to its end. Main thread.
#include <string>
#include <vector>

namespace platform::Linux {

struct HelperOutcome {
  int status = -1;     // the exit status; -1 when the program could not be run or was killed
  std::string output;  // standard output and standard error
};

// `path` is absolute; `arguments` follow the program's own name. The program reads nothing.
HelperOutcome runHelper(const std::string& path, std::vector<std::string> arguments);

}  // namespace platform::Linux
