#pragma once
// Deleting trees.
#include <string>

namespace AssistantTool {

// Removes `name` and all below it, or all below `folder`. Mounts inside are left, and the folders above them, and what lies
// deeper than a tree may be. True when nothing is left.
bool removeTree(int parent, const std::string& name);
bool emptyFolder(int folder);

}  // namespace AssistantTool
