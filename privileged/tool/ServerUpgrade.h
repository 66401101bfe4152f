#pragma once
// "upgrade server": the Library Server of the application at "file path" in place of the installed one.
#include "privileged/tool/Request.h"

namespace AssistantTool {

// Program, daemon definition and unit are replaced while the service is stopped. Succeeds when the new server runs; else
// the old files are back and the old server was started again before Failure is thrown.
Outcome upgradeServer(const Request& request);

}  // namespace AssistantTool
