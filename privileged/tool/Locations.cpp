#include "privileged/tool/Locations.h"

#include <unistd.h>

#include <algorithm>
#include <vector>

#include "privileged/tool/Account.h"
#include "privileged/tool/ActingAs.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

std::optional<struct stat> statusAt(const std::string& path, const PathWalk& walk) {
  try {
    return walk.locate(path).status();
  } catch (const Failure&) {
    return std::nullopt;  // a folder that is missing holds nothing
  }
}

bool isAllowed(const Location& item, const Request& request) {
  const auto above = foldersAbove(item);
  const auto isOpenToOthers = [](const struct stat& folder) { return canBeWrittenByOthers(folder, 0); };
  return std::ranges::any_of(*request.rules.policy.locations, [&](const std::string& path) {
    const auto listed = statusAt(path, request.walk);
    const auto found =
        std::ranges::find_if(above, [&](const struct stat& folder) { return listed && isSameItem(folder, *listed); });
    return found != above.end() && std::none_of(above.begin(), found + 1, isOpenToOthers);
  });
}

Owner userOf(const Request& request) {
  const auto& account = accountOf(request.walk.user());
  if (!account) throw Failure("the invoking user has no account");
  return {.user = account->user, .group = account->group};
}

}  // namespace

bool isBoundToLocations(const Request& request) {
  return request.rules.policy.locations && !request.rules.hasAnyProgramRight && ::geteuid() == 0 &&
         request.walk.user() != 0;
}

Location locateChanged(const Request& request, const char* key) {
  auto item = request.locate(key);
  if (isBoundToLocations(request) && !isAllowed(item, request))
    throw Failure(item.path + " lies below no folder of the key \"locations\" that only root can write");
  return item;
}

Source locateSource(const Request& request) {
  auto item = request.locate(protocol::sourcePathKey);
  if (!isBoundToLocations(request) || isAllowed(item, request)) return {.item = std::move(item), .reader = {}};
  const auto reader = userOf(request);
  // Anew, because the user may not go wherever root may.
  const ActingAs acting(reader);
  return {.item = request.locate(protocol::sourcePathKey), .reader = reader};
}

bool mayBeTakenAway(const Location& source, const std::optional<Owner>& reader) {
  if (!reader) return true;
  const auto status = source.status();
  const auto folder = statusOf(source.folder.get());
  const bool isForAll = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
  return status && status->st_uid == reader->user && (folder.st_uid == reader->user || isForAll);
}

}  // namespace AssistantTool
