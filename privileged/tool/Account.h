#pragma once
// The account of the invoking user.
#include <sys/types.h>

#include <optional>
#include <string>

namespace AssistantTool {

struct Account {
  uid_t user = 0;
  gid_t group = 0;
  std::string name;
  std::string home;        // empty when there is none
  std::string dataFolder;  // in which the user's Trash lies; empty when there is none
};

// nullopt without such an account. The first answer is kept: the accounts of a network are asked for over a socket, which a
// file job cannot make any more once it works.
const std::optional<Account>& accountOf(uid_t user);

// True when nobody but the user is in the group, as on a machine that makes a group for each account: it has the name of
// the account and no other member, and is not the first group of another account that the machine lists.
bool isPrivateGroupOf(uid_t user, gid_t group);

}  // namespace AssistantTool
