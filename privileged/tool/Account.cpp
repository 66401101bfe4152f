#include "privileged/tool/Account.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

namespace AssistantTool {
namespace {

std::optional<Account> lookUp(uid_t user) {
  const auto* entry = ::getpwuid(user);
  if (entry == nullptr) return std::nullopt;
  Account account{.user = entry->pw_uid, .group = entry->pw_gid, .name = entry->pw_name, .home = {}, .dataFolder = {}};
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

bool hasMembersBesides(const group& entry, const std::string& name) {
  for (char** member = entry.gr_mem; *member != nullptr; ++member)
    if (name != *member) return true;
  return false;
}

bool isFirstGroupOfOthers(gid_t group, uid_t user) {
  bool isOthers = false;
  ::setpwent();
  while (const passwd* entry = ::getpwent()) isOthers = isOthers || (entry->pw_gid == group && entry->pw_uid != user);
  ::endpwent();
  return isOthers;
}

}  // namespace

const std::optional<Account>& accountOf(uid_t user) {
  static std::map<uid_t, std::optional<Account>> known;
  const auto found = known.find(user);
  return found != known.end() ? found->second : known.emplace(user, lookUp(user)).first->second;
}

bool isPrivateGroupOf(uid_t user, gid_t group) {
  const auto& account = accountOf(user);
  const auto* entry = ::getgrgid(group);
  return account && entry != nullptr && account->name == entry->gr_name && !hasMembersBesides(*entry, account->name) &&
         !isFirstGroupOfOthers(group, user);
}

}  // namespace AssistantTool
