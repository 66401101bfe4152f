#pragma once
// The one way in which the tool goes through trees: with a list of its own in place of the stack, a fixed number of
// descriptors, and an end. A tree is somebody else's, and may be as deep and as large as a disk allows.
#include <cstddef>
#include <limits>
#include <string>

#include "posix/Descriptor.h"
#include "privileged/tool/Folder.h"
#include "protocol/PolicyFile.h"

namespace AssistantTool {

struct TreeBounds {
  std::size_t levels = 4096;  // of folders; a file in the deepest one is fine
  std::size_t entries = protocol::Policy{}.maximumEntries;
};
// For a tree whose entries were counted before.
inline constexpr TreeBounds anyNumberOfEntries{.entries = std::numeric_limits<std::size_t>::max()};

class TreeVisitor {
 public:
  TreeVisitor() = default;
  virtual ~TreeVisitor() = default;
  TreeVisitor(const TreeVisitor&) = delete;
  TreeVisitor& operator=(const TreeVisitor&) = delete;

  // At each entry, a folder's before its contents'. Returns the open folder when the walk is to go into it.
  virtual posix::Descriptor arrive(int parent, const FolderEntry& entry) = 0;
  // At each folder that arrive() returned, when its contents are done.
  virtual void leave(int /*parent*/, const std::string& /*name*/, int /*folder*/) {}
  // Called while a Failure is handled, when the entries of a folder cannot be read: throws, or has the walk go on.
  virtual void cannotList() { throw; }
};

// Visits `name` in `parent` and, where it is a folder, all below it. Throws Failure when the tree is beyond the bounds,
// when its folders are moved meanwhile, and what the visitor throws.
void walkTree(int parent, const std::string& name, TreeVisitor& visitor, const TreeBounds& bounds);

// Opens a folder that is to be walked through; not open when the entry is not a folder. Throws Failure when it cannot be
// opened, or is a mount.
posix::Descriptor openIfFolder(int parent, const FolderEntry& entry);

// Looks whether the tree is within the bounds; folders that cannot be read are left out. Throws Failure.
void requireBounded(int parent, const std::string& name, const TreeBounds& bounds);

}  // namespace AssistantTool
