#include "privileged/tool/DesktopEntries.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "privileged/tool/Account.h"
#include "privileged/tool/ActingAs.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/Items.h"
#include "privileged/tool/Journal.h"
#include "privileged/tool/SignOfLife.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

constexpr const char* notesFolder = "entries";
// The notes of a job: symbolic links, as in the journal.
constexpr const char* userNote = "user";
constexpr const char* appearsNote = "appears";
constexpr const char* vanishesNote = "vanishes";
constexpr const char* settledNote = "settled";  // in the system's place

std::optional<Owner> ownerFor(uid_t user) {
  const auto& account = accountOf(user);
  if (!account) return std::nullopt;
  return Owner{account->user, account->group};
}

// The places that a job for this user can change.
std::vector<DesktopPlace> placesFor(uid_t user) {
  std::vector<DesktopPlace> places;
  if (::geteuid() == 0) places.emplace_back(systemDataFolder, std::nullopt);
  if (::geteuid() == 0 && user == 0) return places;
  const auto& account = accountOf(::geteuid() == 0 ? user : ::geteuid());
  if (account && !account->dataFolder.empty())
    places.emplace_back(account->dataFolder, ::geteuid() == 0 ? ownerFor(user) : std::nullopt);
  return places;
}

// In a folder with the sticky bit nobody can exchange what belongs to somebody else.
bool isExchangedByNobodyBut(uid_t user, const Location& bundle) {
  auto above = foldersAbove(bundle);
  for (auto& folder : above) {
    if ((folder.st_mode & S_ISVTX) != 0) folder.st_mode &= ~static_cast<mode_t>(S_IWGRP | S_IWOTH);
  }
  above.push_back(*bundle.status());
  return std::ranges::none_of(above, [&](const struct stat& item) { return canBeWrittenByOthers(item, user); });
}

// Nobody but root can change the bundle or the folders above it.
bool isSystems(const Location& bundle) {
  return ::geteuid() == 0 && bundle.exists() && isRoots(bundle.folder.get()) && isExchangedByNobodyBut(0, bundle);
}

// For the system's place, or for the user's own. Throws Failure with the cause when the entry is refused.
std::optional<BroughtEntry> broughtFor(bool isSystem, uid_t user, const Location& bundle,
                                       const SignaturePolicy& signatures) {
  const auto keys = trustedKeys();
  if (!isSystem && !isExchangedByNobodyBut(user, bundle) && bringsEntry(bundle))
    throw Failure("others can exchange the bundle");
  const ActingAs acting(isSystem ? std::nullopt : ownerFor(user));
  return entryBroughtBy(bundle, isSystem ? 0 : user, keys, signatures);
}

bool isGone(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

void writeNote(int folder, const char* name, const std::string& text) {
  if (!text.empty() && ::symlinkat(text.c_str(), folder, name) != 0) failWithSystemError("cannot note " + text);
}

uid_t userIn(const std::string& text) { return static_cast<uid_t>(std::strtoul(text.c_str(), nullptr, 10)); }

// While it lives, no other job notes or settles anything. Throws Failure when another one takes too long over that.
class Hold {
 public:
  explicit Hold(int folder) : _folder(folder) {
    for (int tries = 0; ::flock(_folder, LOCK_EX | LOCK_NB) != 0; ++tries) {
      if (tries == maximumTries) failWithSystemError("another job changes entries");
      ::nanosleep(&pause, nullptr);
    }
  }
  ~Hold() { ::flock(_folder, LOCK_UN); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  static constexpr timespec pause{.tv_sec = 0, .tv_nsec = 50'000'000};
  static constexpr int maximumTries = 200;
  int _folder;
};

}  // namespace

DesktopEntries::DesktopEntries(const Command& command, const Request& request) : _request(request) {
  if (!command.isFileJob) return;
  try {
    note(command);
  } catch (const Failure& failure) {
    _cause = failure.what();
  }
}

void DesktopEntries::note(const Command& command) {
  Change change{
      .note = std::to_string(::getpid()), .folder = {}, .user = _request.walk.user(), .appears = {}, .vanishes = {}};
  bool hasEntry = false;
  for (const char* key : command.paths) {
    if (key == nullptr) continue;
    const auto item = _request.locate(key);
    hasEntry = bringsEntry(item) || hasEntry;
    (std::string_view(key) == protocol::destinationPathKey ? change.appears : change.vanishes) = item.path;
  }
  _notes = folderOfNotes(notesFolder, S_IRWXU, hasEntry);
  if (!_notes) return;
  const Hold hold(_notes.get());
  takeOver();
  if (hasEntry) begin(std::move(change));
}

// Takes the notes of killed jobs over.
void DesktopEntries::takeOver() {
  for (const auto& entry : entriesOf(_notes.get())) {
    auto folder = openFolderIn(_notes.get(), entry.name);
    if (!folder || ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) continue;
    const int notes = folder.get();
    const uid_t user = userIn(linkTargetOf(notes, userNote));
    const bool isOthers = user != _request.walk.user();
    if (isOthers && !linkTargetOf(notes, settledNote).empty()) continue;
    _changes.push_back({.note = entry.name,
                        .folder = std::move(folder),
                        .user = user,
                        .isOthers = isOthers,
                        .appears = linkTargetOf(notes, appearsNote),
                        .vanishes = linkTargetOf(notes, vanishesNote)});
  }
}

void DesktopEntries::begin(Change change) {
  // A killed job can have had the same number.
  while (::mkdirat(_notes.get(), change.note.c_str(), S_IRWXU) != 0) {
    if (errno != EEXIST) failWithSystemError("cannot keep notes");
    change.note += "+";
  }
  change.folder = openFolderIn(_notes.get(), change.note);
  if (!change.folder || ::flock(change.folder.get(), LOCK_EX | LOCK_NB) != 0) failWithSystemError("cannot keep notes");
  writeNote(change.folder.get(), userNote, std::to_string(change.user));
  writeNote(change.folder.get(), appearsNote, change.appears);
  writeNote(change.folder.get(), vanishesNote, change.vanishes);
  syncFolder(change.folder.get());
  syncFolder(_notes.get());
  _changes.push_back(std::move(change));
}

std::vector<DesktopPlace> DesktopEntries::placesOf(const Change& change) {
  return placesFor(change.isOthers ? 0 : change.user);
}

std::vector<posix::Descriptor> DesktopEntries::folders() const {
  std::vector<posix::Descriptor> folders;
  if (hasWork()) folders.emplace_back(::fcntl(_notes.get(), F_DUPFD_CLOEXEC, 0));
  for (const auto& change : _changes) {
    for (const auto& place : placesOf(change))
      for (auto& folder : place.folders()) folders.push_back(std::move(folder));
    if (change.appears.empty()) continue;
    try {
      auto bundle = PathWalk(change.user).locate(change.appears);
      if (!change.isOthers || isSystems(bundle)) folders.push_back(std::move(bundle.folder));
    } catch (const Failure&) {
      // Its folder is gone, and so is the bundle.
    }
  }
  return folders;
}

std::string DesktopEntries::dataFolder() {
  const auto places = placesFor(::geteuid());
  return places.empty() ? "" : places.front().path();
}

std::string DesktopEntries::settle() {
  try {
    if (hasWork()) settleAll();
  } catch (const Failure& failure) {
    addCause(failure.what());  // the notes stay for the next job
  }
  _changes.clear();
  return _cause.empty() ? "" : "the desktop entry was left out: " + _cause;
}

void DesktopEntries::settleAll() {
  const Hold hold(_notes.get());
  for (const auto& change : _changes) {
    try {
      addCause(settle(change));
      forget(change);
    } catch (const Failure& failure) {
      addCause(failure.what());
    }
  }
}

void DesktopEntries::addCause(const std::string& cause) { _cause += (_cause.empty() || cause.empty() ? "" : "; ") + cause; }

std::string DesktopEntries::settle(const Change& change) {
  for (const auto& path : {change.vanishes, change.appears}) {
    if (path.empty() || !isGone(path)) continue;
    for (auto& place : placesOf(change)) {
      place.clear(path);
      _hasChanged = _hasChanged || place.hasChanged();
    }
  }
  return change.appears.empty() || isGone(change.appears) ? "" : show(change);
}

// Returns the cause when the entry is refused.
std::string DesktopEntries::show(const Change& change) {
  const auto& path = change.appears;
  std::optional<BroughtEntry> brought;
  std::string cause;
  bool isSystem = false;
  try {
    const auto bundle = PathWalk(change.user).locate(path);
    isSystem = isSystems(bundle);
    if (isSystem || !change.isOthers) brought = broughtFor(isSystem, change.user, bundle, _request.rules.signatures());
  } catch (const Failure& failure) {
    cause = failure.what();
  }
  for (auto& place : placesOf(change)) {
    const bool isPlace = isSystem == (place.path() == systemDataFolder);
    if (isPlace && brought) cause = place.bring(*brought, path);
    if (!isPlace || !brought || !cause.empty()) place.clear(path);
    _hasChanged = _hasChanged || place.hasChanged();
  }
  return cause;
}

void DesktopEntries::forget(const Change& change) const {
  // The other user's own place is still to come.
  if (change.isOthers && change.user != 0) return writeNote(change.folder.get(), settledNote, systemDataFolder);
  for (const char* each : {userNote, appearsNote, vanishesNote, settledNote}) {
    if (::unlinkat(change.folder.get(), each, 0) != 0 && errno != ENOENT) failWithSystemError("cannot keep notes");
  }
  if (::unlinkat(_notes.get(), change.note.c_str(), AT_REMOVEDIR) != 0) failWithSystemError("cannot keep notes");
}

}  // namespace AssistantTool
