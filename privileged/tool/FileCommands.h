#pragma once
// "remove file", "copy file", "move file" and "replace item". Each returns when its effect is on the disk, and throws
// Failure with everything as it was. At every moment each path holds either the whole old item or the whole new one.
#include "privileged/tool/Request.h"

namespace AssistantTool {

Outcome removeFile(const Request& request);
// Neither of the two ever overwrites.
Outcome copyFile(const Request& request);
Outcome moveFile(const Request& request);
// "source path" is the new item, "destination path" what it replaces.
Outcome replaceItem(const Request& request);

}  // namespace AssistantTool
