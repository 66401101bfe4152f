#pragma once
// The rights of an ordinary user for a few steps of root's tool.
#include <optional>

#include "privileged/tool/Tree.h"

namespace AssistantTool {

// While it lives, files are opened and made with the rights of an ordinary user: what a user can redirect in folders of
// their own then harms nobody else, and what the user may not read is not read. Nothing changes without a user, and for
// a process that is not root.
class ActingAs {
 public:
  explicit ActingAs(const std::optional<Owner>& user);
  ~ActingAs();
  ActingAs(const ActingAs&) = delete;
  ActingAs& operator=(const ActingAs&) = delete;

 private:
  bool _acts;
};

}  // namespace AssistantTool
