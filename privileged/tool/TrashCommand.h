#pragma once
// "trash file": into the Trash of the invoking user, restorable there, and theirs from then on.
#include "privileged/tool/Request.h"

namespace AssistantTool {

// The output is the item's path in the Trash.
Outcome trashFile(const Request& request);

}  // namespace AssistantTool
