#include "privileged/tool/FileCommands.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/KeptBundles.h"
#include "privileged/tool/Locations.h"
#include "privileged/tool/Swap.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

struct SourceAndDestination {
  Location source;
  Location destination;
  std::optional<Owner> reader;  // of the source, see Locations.h
};

SourceAndDestination bothItems(const Request& request) {
  auto [source, reader] = locateSource(request);
  SourceAndDestination items{std::move(source), locateChanged(request, protocol::destinationPathKey), reader};
  Staging::clearLeftovers(items.destination, request.walk);
  Staging::clearLeftovers(items.source, request.walk);
  requireItem(items.source);
  if (items.destination.exists()) requireBoundedItem(items.destination, request.bounds);
  refuseNesting(items.source, items.destination);
  return items;
}

// A link would be installed, or replaced, instead of what it leads to.
void refuseLink(const Location& item) {
  const auto status = item.status();
  if (status && S_ISLNK(status->st_mode)) throw Failure(item.path + " is a symbolic link");
}

// Renames the new item into the staging folder. False when it has to be copied: it is on another file system, cannot be
// taken from where it is, or its owners and modes could not be given back (see TreeSurvey).
bool takeIntoStaging(const Location& source, const TreeSurvey& found, Staging& staging) {
  if (found.mustBeCopied) return false;
  staging.noteSource(source, *source.status());
  if (renameWithoutReplacing(source.folder.get(), source.name, staging.folder(), Staging::newItem) == 0) return true;
  staging.forgetSource();
  return false;
}

// Root works for somebody else.
bool worksForAnother(const PathWalk& walk) { return ::geteuid() == 0 && walk.user() != 0; }

// The owners of what lies at the destination or, where nothing does, of the folder it goes into when that is root's; none
// when the new item keeps its own.
std::optional<Owner> ownerAt(const Location& destination, const std::optional<struct stat>& old, const PathWalk& walk) {
  if (old) {
    if (worksForAnother(walk) && old->st_uid != 0 && old->st_uid != walk.user())
      throw Failure("the installed item belongs to a third account: " + destination.path);
    return Owner{old->st_uid, old->st_gid};
  }
  struct stat folder {};
  if (::fstat(destination.folder.get(), &folder) != 0) failWithSystemError("cannot look at " + destination.folderPath());
  if (worksForAnother(walk) && folder.st_uid == 0) return Owner{0, 0};
  return std::nullopt;
}

// Programs of the user may hold files of the new item open, or keep second names of them. So nothing that was theirs is
// taken over where it becomes root's, or where it must stay as it was verified: it is copied.
bool mustBeFresh(const std::optional<Owner>& owner, const PathWalk& walk, const std::vector<TrustedKey>& keys) {
  return !keys.empty() || (worksForAnother(walk) && owner && owner->user == 0);
}

// A copy that a bounded job makes is root's: a folder that the user could fill must not lie below a listed one.
std::optional<Owner> ownerOfCopy(const std::optional<Owner>& reader) {
  return reader ? std::optional(Owner{0, 0}) : std::nullopt;
}

// Before the notes of an item go that is back at its place. The next job does it when the disk fails.
void syncLastStep(const Location& item, Staging& staging) {
  try {
    syncFolder(item.openFolder().get());
  } catch (const Failure&) {
    staging.keep();
  }
}

void giveBack(const Location& source, Staging& staging, const Adoption& adoption) {
  if (staging.isKept()) return;
  adoption.undo(staging.folder(), Staging::newItem);
  if (renameWithoutReplacing(staging.folder(), Staging::newItem, source.folder.get(), source.name) != 0)
    return staging.keep();
  syncLastStep(source, staging);
}

bool holds(int folder, const char* name) {
  struct stat status {};
  return ::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// Keeps the replaced bundle when the administrators want that and it belongs to this process's user. The replacement is
// done already, so it does not fail for this. Returns a warning when the bundle was not kept, else nothing.
std::string keepReplaced(const Request& request, const Staging& staging, const Location& destination,
                         const std::optional<struct stat>& old) {
  const auto& installed = request.bundles.installed;
  if (request.rules.policy.keptVersions == 0 || !old || !S_ISDIR(old->st_mode) || old->st_uid != ::geteuid()) return {};
  if (!installed || installed->identifier.empty()) return {};
  try {
    const char* name = holds(staging.folder(), Staging::oldItem) ? Staging::oldItem : Staging::newItem;
    KeptBundles::made().keep({staging.folder(), name}, destination, installed->identifier, request);
    return {};
  } catch (const Failure& failure) {
    return std::string("; the replaced version was not kept: ") + failure.what();
  }
}

// Whether the new item is a bundle that was kept when it was replaced at the destination. A store that cannot be believed
// holds none.
bool isReturn(const Location& source, const Location& destination, const std::optional<BundleIdentity>& installed) {
  if (!installed || installed->identifier.empty()) return false;
  try {
    const auto kept = KeptBundles::existing();
    return kept && kept->holds(source, destination, installed->identifier);
  } catch (const Failure&) {
    return false;
  }
}

// Takes a source away that was copied; nothing when it has to stay, as one on a read-only medium has.
std::function<std::string()> takeAwayIfPossible(const Location& source, bool withItsFolder) {
  try {
    if (const auto kept = withItsFolder ? KeptBundles::existing() : std::nullopt) return kept->takeAwayFolderOf(source);
    return takeAway(source);
  } catch (const Failure&) {
    return {};
  }
}

}  // namespace

Outcome removeFile(const Request& request) {
  const auto item = locateChanged(request, protocol::filePathKey);
  Staging::clearLeftovers(item, request.walk);
  requireBoundedItem(item, request.bounds);
  if (const auto warning = takeAway(item)(); !warning.empty()) throw Failure("removed " + item.path + ", but " + warning);
  return {.report = "removed " + item.path, .output = "removed " + item.path, .afterwards = {}};
}

Outcome copyFile(const Request& request) {
  const auto [source, destination, reader] = bothItems(request);
  requireNothing(destination);
  const auto found = surveyWithoutSpecialFiles(source, std::nullopt, request.bounds);
  const Staging staging(destination);
  stageCopy(source, staging, ownerOfCopy(reader), found, reader);
  placeNewItem(staging, destination);
  return {.report = "copied to " + destination.path, .output = "copied to " + destination.path, .afterwards = {}};
}

Outcome moveFile(const Request& request) {
  const auto [source, destination, reader] = bothItems(request);
  requireNothing(destination);
  if (!mayBeTakenAway(source, reader))
    throw Failure(source.path + " is not the user's, and lies below no folder of the key \"locations\"");
  const auto folder = destination.openFolder();
  const int error =
      reader ? EXDEV : renameWithoutReplacing(source.folder.get(), source.name, folder.get(), destination.name);
  Outcome outcome{.report = "moved to " + destination.path, .output = "moved to " + destination.path, .afterwards = {}};
  if (error == 0) {
    try {
      syncFolder(folder.get());
      syncFolder(source.openFolder().get());
    } catch (const Failure&) {
      renameWithoutReplacing(folder.get(), destination.name, source.folder.get(), source.name);
      throw;
    }
    return outcome;
  }
  if (error != EXDEV) failWithSystemError("cannot move " + source.path, error);
  const auto found = surveyWithoutSpecialFiles(source, std::nullopt, request.bounds);
  const Staging staging(destination);
  stageCopy(source, staging, ownerOfCopy(reader), found, reader);
  placeNewItem(staging, destination);
  try {
    outcome.afterwards = takeAway(source);
  } catch (const Failure&) {
    takeAway(destination)();
    throw;
  }
  return outcome;
}

Outcome replaceItem(const Request& request) {
  const auto [source, destination, reader] = bothItems(request);
  refuseLink(source);
  refuseLink(destination);
  const auto old = destination.status();
  const auto owner = ownerAt(destination, old, request.walk);
  const auto keys = trustedKeys();
  request.bundles.installed = (keys.empty() ? toldIdentityOf : identityOf)(destination.folder.get(), destination.name);
  const bool returns = isReturn(source, destination, request.bundles.installed);
  auto signatures = request.rules.signatures();
  // It was installed here before, and nobody could change it since.
  if (returns) signatures.areDowngradesAllowed = true;
  auto found = surveyWithoutSpecialFiles(source, owner, request.bounds);
  if (reader || mustBeFresh(owner, request.walk, keys)) found.mustBeCopied = true;
  const auto staging = std::make_shared<Staging>(destination);
  // From here to the try nothing may throw: the staging folder may hold the only copy of the new item.
  Swap swap(*staging, destination, old);
  Adoption adoption(owner);
  const bool moved = takeIntoStaging(source, found, *staging);
  try {
    if (!moved) {
      stageCopy(source, *staging, owner, found, returns ? std::nullopt : reader);
    } else {
      if (found.needsAdoption) adoption.apply(staging->folder(), Staging::newItem);
      syncFolder(staging->folder());
      syncTree(staging->folder(), Staging::newItem, found.entries);
    }
    request.bundles.replacement =
        verifyReplacement({staging->folder(), Staging::newItem}, request.bundles.installed, keys, signatures);
    swap.in();
  } catch (const Failure&) {
    if (moved) giveBack(source, *staging, adoption);
    throw;
  }
  Outcome outcome{.report = (old ? "replaced " : "installed ") + destination.path, .output = {}, .afterwards = {}};
  const bool isSourceLeft = (!moved && mayBeTakenAway(source, reader)) || returns;
  const auto deleteSource = isSourceLeft ? takeAwayIfPossible(source, returns) : std::function<std::string()>();
  if (!moved && !deleteSource) outcome.report += "; the new item was left at its old place";
  outcome.report += keepReplaced(request, *staging, destination, old);
  outcome.output = outcome.report;
  outcome.afterwards = [staging, deleteSource] {
    const auto ofSource = deleteSource ? deleteSource() : std::string();
    const auto ofOld = staging->discard();
    return ofSource + (ofSource.empty() || ofOld.empty() ? "" : "; ") + ofOld;
  };
  return outcome;
}

}  // namespace AssistantTool
