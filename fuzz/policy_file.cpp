// The reader of the policy file either refuses a text with a cause or gives a policy within its bounds.
#include <algorithm>
#include <string>

#include "fuzz/Target.h"
#include "protocol/PolicyFile.h"

namespace {

void requirePlain(const std::vector<std::string>& folders) {
  fuzz::require(!folders.empty() && folders.size() <= protocol::maximumListedFolders, "a list of bounded length");
  for (const auto& folder : folders) {
    fuzz::require(folder.size() > 1 && folder.front() == '/' && folder.back() != '/', "an absolute path");
    fuzz::require((folder + "/").find("/../") == std::string::npos, "a path that does not climb");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string cause;
  const auto policy = protocol::parsePolicy(fuzz::text(data, size), &cause);
  fuzz::require(policy.has_value() == cause.empty(), "a policy or a cause");
  if (!policy) return 0;
  requirePlain(policy->tools);
  requirePlain(policy->sessionTools);
  if (policy->locations) requirePlain(*policy->locations);
  fuzz::require(policy->keptVersions <= protocol::maximumKeptVersions, "a bounded number of versions");
  fuzz::require(policy->maximumEntries >= 1 && policy->maximumEntries <= protocol::maximumEntriesEver, "bounded entries");
  return 0;
}
