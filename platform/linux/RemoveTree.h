#pragma once
// Removing a folder with all that it holds.
#include <string>

namespace platform::Linux {

// Removes the document, link or folder at `path`. Every step is taken from an open folder, so that a link put in the way
// meanwhile is removed and never followed; one descriptor is enough for a tree of any depth. False at the first item that
// cannot be removed. Any thread.
bool removeTree(const std::string& path);

}  // namespace platform::Linux
