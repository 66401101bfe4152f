#include "privileged/tool/Operations.h"

#include <syslog.h>
#include <unistd.h>

#include "privileged/tool/AnswerFile.h"
#include "privileged/tool/FileCommands.h"
#include "privileged/tool/Rights.h"
#include "privileged/tool/ServerUpgrade.h"
#include "privileged/tool/TrashCommand.h"

namespace AssistantTool {
namespace {

// Only the service manager's jobs run another program.
Outcome alone(Outcome (*perform)(const Request&), const Request& request) {
  giveUpPrograms();
  return perform(request);
}

}  // namespace

std::unique_ptr<Answer> JobOperations::answerAt(const std::string& path, const PathWalk& walk) {
  return std::make_unique<AnswerFile>(path, walk);
}
Outcome JobOperations::trashFile(const Request& request) { return alone(AssistantTool::trashFile, request); }
Outcome JobOperations::removeFile(const Request& request) { return alone(AssistantTool::removeFile, request); }
Outcome JobOperations::copyFile(const Request& request) { return alone(AssistantTool::copyFile, request); }
Outcome JobOperations::moveFile(const Request& request) { return alone(AssistantTool::moveFile, request); }
Outcome JobOperations::replaceItem(const Request& request) { return alone(AssistantTool::replaceItem, request); }
Outcome JobOperations::upgradeServer(const Request& request) { return AssistantTool::upgradeServer(request); }

void JobOperations::log(int level, const std::string& line) {
  if (::geteuid() == 0) ::syslog(LOG_AUTHPRIV | level, "%s", line.c_str());
}

}  // namespace AssistantTool
