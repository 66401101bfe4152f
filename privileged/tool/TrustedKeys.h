#pragma once
// The keys whose signatures this machine's administrators trust: /etc/kelto/trust.d/NAME.pub, each a public key as minisign
// writes it. A key may sign every bundle, unless NAME.identifiers lies beside it: then only the bundles whose identifiers
// it lists, one on each line; empty lines and lines that begin with "#" do not count.
//
// Other files in the folder are left alone. Everything that could be a mistake is refused with its cause, because a key
// that is silently left out could turn the check off: a key or list that cannot be read, a list without a key or without an
// identifier, and a folder or file that is not the owner's or that others can write.
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "privileged/tool/Minisign.h"

namespace AssistantTool {

inline constexpr const char* trustFolderPath = "/etc/kelto/trust.d";

struct TrustedKey {
  std::string name;  // the file's, without ".pub"
  Minisign::PublicKey key;
  std::vector<std::string> identifiers;  // empty: every bundle

  [[nodiscard]] bool maySign(std::string_view identifier) const;
};

// Sorted by name; empty without the folder. `owner` is root but in tests. Throws Failure.
std::vector<TrustedKey> trustedKeys(const std::string& folder = trustFolderPath, uid_t owner = 0);

}  // namespace AssistantTool
