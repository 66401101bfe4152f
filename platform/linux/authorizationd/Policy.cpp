#include "platform/linux/authorizationd/Policy.h"

#include <unistd.h>

namespace platform::Linux::authorizationd {

bool OwnRightsPolicy::serves(uid_t uid) const { return uid == ::geteuid(); }

std::unique_ptr<Question> OwnRightsPolicy::ask(const Caller& /*caller*/, bool /*interaction*/, Answer answer) {
  answer(errAuthorizationSuccess);
  return nullptr;
}

}  // namespace platform::Linux::authorizationd
