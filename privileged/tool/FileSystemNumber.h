#pragma once
// The number that a file system gives itself, which stays when the devices of the machine are counted anew.
#include <string>

namespace AssistantTool {

// Of the file system of the open folder; empty when it has none. Throws Failure when it cannot be asked.
std::string numberOfFileSystem(int folder);

}  // namespace AssistantTool
