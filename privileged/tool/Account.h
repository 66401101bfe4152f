#pragma once
// The account of the invoking user.
#include <sys/types.h>

#include <optional>
#include <string>

namespace AssistantTool {

struct Account {
  uid_t user = 0;
  gid_t group = 0;
  std::string home;        // empty when there is none
  std::string dataFolder;  // in which the user's Trash lies; empty when there is none
};

// nullopt without such an account. The first answer is kept: the accounts of a network are asked for over a socket, which a
// file job cannot make any more once it works.
const std::optional<Account>& accountOf(uid_t user);

}  // namespace AssistantTool
