#include "privileged/tool/ActingAs.h"

#include <sys/fsuid.h>
#include <unistd.h>

namespace AssistantTool {

ActingAs::ActingAs(const std::optional<Owner>& user) : _acts(user && ::geteuid() == 0) {
  if (!_acts) return;
  ::setfsgid(user->group);
  ::setfsuid(user->user);
}

ActingAs::~ActingAs() {
  if (!_acts) return;
  ::setfsuid(::geteuid());
  ::setfsgid(::getegid());
}

}  // namespace AssistantTool
