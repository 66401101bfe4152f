#include "platform/linux/authorizationd/Policy.h"

#include <unistd.h>

namespace platform::Linux::authorizationd {

bool OwnRightsPolicy::serves(uid_t uid) const { return uid == ::geteuid(); }

std::unique_ptr<Question> OwnRightsPolicy::ask(const Caller& /*caller*/, Right right, bool /*interaction*/, Answer answer) {
  answer(right == Right::admin ? errAuthorizationSuccess : errAuthorizationDenied);
  return nullptr;
}

}  // namespace platform::Linux::authorizationd
