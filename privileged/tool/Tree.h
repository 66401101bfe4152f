#pragma once
// Whole trees: what is in them, whose they are, and bringing them to the disk.
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "privileged/tool/TreeWalk.h"

namespace AssistantTool {

struct Owner {
  uid_t user = 0;
  gid_t group = 0;
  bool operator==(const Owner&) const = default;
};

struct TreeSurvey {
  TreeBounds bounds;  // that the tree is within
  std::size_t entries = 0;
  // An entry belongs to someone other than the wanted owner, or carries a set-id bit.
  bool needsAdoption = false;
  // Adopting this tree could not be undone. A file has a name outside it too, or several names and would have to be
  // adopted; or it would lose set-id bits; or an ordinary user would gain an entry, and could change it at once.
  bool mustBeCopied = false;
  bool hasSpecialFiles = false;  // a device, socket or pipe
};

// Looks at every entry of the tree `name` in `parent`; changes nothing. Throws Failure when something cannot be read, and
// when the tree is beyond the bounds.
TreeSurvey survey(int parent, const std::string& name, std::optional<Owner> owner, const TreeBounds& bounds);

// Gives every entry of a tree to one owner (when there is one) and drops its set-id bits; contents come before their
// folder, so that nobody gains a folder in which others still have something. A file with several names is left alone:
// one of them may be outside the tree, and counting those inside does not protect against someone who moves them about.
class Adoption {
 public:
  explicit Adoption(std::optional<Owner> owner) : _owner(owner) {}

  // Throws Failure; only root can fail for not being allowed to, others keep what they may not give away.
  void apply(int parent, const std::string& name);
  // Gives back what apply() gave, also after it has thrown; but never what an ordinary user could have changed meanwhile,
  // nor set-id bits to a file, which somebody may hold open.
  void undo(int parent, const std::string& name) const;

 private:
  struct Was {
    ino_t inode;
    Owner owner;
    mode_t mode;
  };
  void applyToEntry(int parent, const std::string& name);
  void give(int item, const std::string& name) const;

  std::optional<Owner> _owner;
  std::vector<Was> _changed;
};

// Brings the tree to the disk, its contents included. `entries` is the survey's count. Throws Failure.
void syncTree(int parent, const std::string& name, std::size_t entries);
// Brings everything on the folder's file system to the disk. Throws Failure.
void syncFileSystem(int folder);

}  // namespace AssistantTool
