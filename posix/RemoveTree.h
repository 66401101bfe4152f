#pragma once
// Removing trees. Every step is taken from an open folder, so that a link put in the way meanwhile is removed and never
// followed, and mounts are never entered; a fixed number of descriptors is enough for a tree of any depth. One thread for
// each removal.
#include <functional>
#include <string>

namespace posix {

// Folders of an ordinary user that lack the rights to be emptied.
enum class LockedFolders { areKept, areOpened };

// Removes `name` in the folder `parent` and all below it. Goes on after an item that cannot be removed, and leaves it and
// the folders above it; ends early when a folder is moved during the walk. True when nothing is left.
// `onEntry` is called for each entry, after a file was removed and before a folder is opened.
bool removeTree(
    int parent, const std::string& name, LockedFolders locked, const std::function<void()>& onEntry = [] {});

// Removes all that the folder holds, in the same way. True when nothing is left.
bool emptyFolder(
    int folder, LockedFolders locked, const std::function<void()>& onEntry = [] {});

}  // namespace posix
