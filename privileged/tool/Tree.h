#pragma once
// Whole trees: what is in them, whose they are, and bringing them to the disk.
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

namespace AssistantTool {

struct Owner {
  uid_t user = 0;
  gid_t group = 0;
  bool operator==(const Owner&) const = default;
};

struct TreeSurvey {
  std::size_t entries = 0;
  // An entry belongs to someone other than the wanted owner, or carries a set-id bit.
  bool needsAdoption = false;
  // A file here is a hard link to one that is elsewhere too, or a special file (device, socket or pipe) was met.
  bool hasOutsideLinks = false;
  bool hasSpecialFiles = false;
};

// Looks at every entry of the tree `name` in `parent`; changes nothing. Throws Failure when something cannot be read.
TreeSurvey survey(int parent, const std::string& name, std::optional<Owner> owner);

// Gives every entry to `owner` (when there is one) and drops its set-id bits; contents come before their folder, so that
// nobody gains a folder in which others still have something. A file that has a name outside the tree is left alone.
// Throws Failure; only root can fail for not being allowed to, others keep what they may not give away.
void adopt(int parent, const std::string& name, std::optional<Owner> owner);

// Brings the tree to the disk, its contents included. `entries` is the survey's count. Throws Failure.
void syncTree(int parent, const std::string& name, std::size_t entries);

}  // namespace AssistantTool
