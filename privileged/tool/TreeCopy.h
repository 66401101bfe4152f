#pragma once
// A faithful copy of a tree: contents (shared blocks where the file system can, holes kept), modes without set-id bits,
// owners as far as this process may give them, times to the nanosecond, user extended attributes and access lists,
// symbolic links as links, hard links inside the tree as hard links. A file or folder that becomes root's by
// the copy loses its access lists, and only root may write it.
#include <sys/stat.h>

#include <optional>
#include <string>

#include "privileged/tool/Tree.h"

namespace AssistantTool {

// Copies `name` in `from` to `newName` in `to`, where nothing may be; `owner` replaces the owners of the source. `links` is
// a private folder beside the copy (both in the staging folder) that holds one name of each file with several meanwhile.
// The caller removes what is there after a Failure: disk full, something unreadable, a special file, a mount inside, the
// copy's own folder met inside the source, or a source that has grown beyond the bounds. With a `reader` only what that
// user may read is copied.
void copyTree(int from, const std::string& name, int to, const std::string& newName, int links, std::optional<Owner> owner,
              const TreeBounds& bounds, std::optional<Owner> reader = {});

}  // namespace AssistantTool
