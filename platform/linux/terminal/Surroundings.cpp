#include "platform/linux/terminal/Surroundings.h"

#include <unistd.h>

#include "platform/linux/ProcessFacts.h"
#include "platform/linux/authorizationd/ToolFolders.h"

namespace platform::Linux {

bool isInputTerminal() { return ::isatty(STDIN_FILENO) != 0; }

bool isErrorOutputTerminal() { return ::isatty(STDERR_FILENO) != 0; }

bool belongsToThisUser(int process) { return ownerOf(process) == ::getuid(); }

protocol::Policy policyOfThisMachine(std::string& cause) {
  return authorizationd::readPolicy(protocol::policyFilePath, 0, cause);
}

}  // namespace platform::Linux
