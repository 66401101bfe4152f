#include "privileged/tool/AdministratorPolicy.h"

#include "privileged/tool/Failure.h"
#include "privileged/tool/TrustedFile.h"

namespace AssistantTool {

protocol::Policy administratorPolicy(std::string& cause, const std::string& path, uid_t owner) {
  const auto slash = path.rfind('/');
  try {
    const TrustedFolder folder(path.substr(0, slash), owner);
    if (!folder.exists()) return {};
    const auto text = folder.contents(path.substr(slash + 1), protocol::maximumPolicyFileBytes);
    if (!text) return {};
    if (const auto policy = protocol::parsePolicy(*text, &cause)) return *policy;
  } catch (const Failure& failure) {
    cause = failure.what();
  }
  cause = path + " is refused: " + cause;
  return protocol::strictestPolicy();
}

}  // namespace AssistantTool
