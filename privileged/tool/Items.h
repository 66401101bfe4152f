#pragma once
// Steps that several commands share: judging the items they are given, staging copies, taking things away.
#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "privileged/tool/PathWalk.h"
#include "privileged/tool/Staging.h"
#include "privileged/tool/Tree.h"

namespace AssistantTool {

bool isSameItem(const struct stat& one, const struct stat& other);
// The folder that holds the item and those above it, up to the root folder. Throws Failure.
std::vector<struct stat> foldersAbove(const Location& item);

// The status of the item. Throws Failure when it is missing, or when it is or holds the root of a mounted file system.
struct stat requireItem(const Location& item);
// The same for an item that is going to be deleted or handed over: Failure also when its tree is beyond the bounds.
struct stat requireBoundedItem(const Location& item, const TreeBounds& bounds);
// Throws Failure when something is at `item` already.
void requireNothing(const Location& item);
// Throws Failure when one of the two is the other or lies inside it.
void refuseNesting(const Location& one, const Location& other);
// Throws Failure when the tree is beyond the bounds, or holds devices, sockets or pipes: no bundle does, and a copy of them
// would be a danger.
TreeSurvey surveyWithoutSpecialFiles(const Location& item, std::optional<Owner> owner, const TreeBounds& bounds);

// Copies `source`, in which `found` was found, into `staging` as NewItem and brings the copy to the disk. Throws Failure;
// with a `reader` also when that user may not read all of it.
void stageCopy(const Location& source, const Staging& staging, std::optional<Owner> owner, const TreeSurvey& found,
               std::optional<Owner> reader = {});
// Renames NewItem to `destination`, where nothing may be, and syncs. Throws Failure.
void placeNewItem(const Staging& staging, const Location& destination);
// Takes `item` off its path at once; the function returned deletes it, and answers as Staging::discard(). Throws Failure
// when the item cannot be taken.
std::function<std::string()> takeAway(const Location& item);

}  // namespace AssistantTool
