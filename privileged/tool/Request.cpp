#include "privileged/tool/Request.h"

#include "privileged/tool/Instruction.h"

namespace AssistantTool {

Location Request::locate(const char* key) const { return walk.locate(requiredValue(instructions, key)); }

}  // namespace AssistantTool
