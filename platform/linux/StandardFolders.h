#pragma once
// Where the standard folders are, by the XDG base directory rules. Any thread.
#include <string>
#include <vector>

#include "platform/FileManager.h"

namespace platform::Linux {

// As FileManager::searchPathForDirectories; the user's folder comes before the machine's. The machine has a folder for
// applications only.
std::vector<std::string> standardFolders(SearchPathDirectory kind, SearchPathDomainMask domain, bool expandTilde);

}  // namespace platform::Linux
