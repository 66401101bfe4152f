#include "privileged/tool/Account.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

namespace AssistantTool {
namespace {

std::optional<Account> lookUp(uid_t user) {
  const auto* entry = ::getpwuid(user);
  if (entry == nullptr) return std::nullopt;
  Account account{.user = entry->pw_uid, .group = entry->pw_gid, .home = {}, .dataFolder = {}};
  const std::string home = entry->pw_dir == nullptr ? "" : entry->pw_dir;
  if (home.starts_with('/')) account.home = home;
  // The environment is that user's own only when we are no more than that user.
  const char* named = ::geteuid() == user ? std::getenv("XDG_DATA_HOME") : nullptr;
  if (named != nullptr && *named == '/') {
    account.dataFolder = named;
  } else if (!account.home.empty()) {
    account.dataFolder = account.home + "/.local/share";
  }
  return account;
}

}  // namespace

const std::optional<Account>& accountOf(uid_t user) {
  static std::map<uid_t, std::optional<Account>> known;
  const auto found = known.find(user);
  return found != known.end() ? found->second : known.emplace(user, lookUp(user)).first->second;
}

}  // namespace AssistantTool
