#include "privileged/tool/Staging.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/TreeRemoval.h"

namespace AssistantTool {
namespace {

constexpr std::string_view Prefix = ".kelto-staging-";
constexpr std::size_t RandomCharacters = 16;
constexpr std::string_view HexDigits = "0123456789abcdef";
// Notes are links, because making one is a single step; nobody follows them.
constexpr const char* SourceNote = "source";
constexpr const char* SourceInodeNote = "source-inode";
constexpr const char* DestinationNote = "destination";
constexpr const char* TrashNote = "trashed";  // "<inode>/<name>"
constexpr const char* UndoNote = "undo";      // "old/<name>" or "nothing/<name>"
constexpr std::string_view UndoToOld = "old";
constexpr std::string_view UndoToNothing = "nothing";

std::string newName() {
  std::array<unsigned char, RandomCharacters> random{};
  if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size()))
    failWithSystemError("no random numbers");
  std::string name(Prefix);
  for (const unsigned char byte : random) name.push_back(HexDigits[byte % HexDigits.size()]);
  return name;
}

bool isStagingName(std::string_view name) {
  if (!name.starts_with(Prefix) || name.size() != Prefix.size() + RandomCharacters) return false;
  return name.substr(Prefix.size()).find_first_not_of(HexDigits) == std::string_view::npos;
}

bool isOurs(int folder) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) return false;
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

void note(int folder, const char* name, const std::string& text) {
  if (::symlinkat(text.c_str(), folder, name) != 0) failWithSystemError("cannot write in the staging folder");
}

bool forget(int folder, const char* name) { return ::unlinkat(folder, name, 0) == 0 || errno == ENOENT; }

// True when none is left.
bool forgetNotes(int folder) {
  bool done = true;
  for (const char* name : {SourceInodeNote, SourceNote, DestinationNote, TrashNote, UndoNote})
    done = forget(folder, name) && done;
  return done;
}

struct TwoWords {
  std::string first;
  std::string second;
};
// The two words of a note; both empty when there is none.
TwoWords wordsOf(int folder, const char* name) {
  const auto text = linkTargetOf(folder, name);
  const auto slash = text.find('/');
  if (slash == std::string::npos || text.find('/', slash + 1) != std::string::npos) return {};
  return {.first = text.substr(0, slash), .second = text.substr(slash + 1)};
}

bool isThere(int folder, const std::string& name) {
  struct stat status {};
  return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// A job without an atomic exchange was killed between its two renames: the old item is the destination again.
void putOldItemBack(int staging, int folder) {
  const auto name = linkTargetOf(staging, DestinationNote);
  if (name.empty() || name.find('/') != std::string::npos || !isThere(staging, Staging::OldItem)) return;
  if (isThere(folder, name)) return;
  if (::renameat(staging, Staging::OldItem, folder, name.c_str()) != 0) failWithSystemError("cannot put back " + name);
}

// A job was killed after it took the new item and before the exchange: then NewItem still is the file that was noted.
void putSourceBack(int staging, const PathWalk& walk) {
  struct stat status {};
  if (::fstatat(staging, Staging::NewItem, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (linkTargetOf(staging, SourceInodeNote) != std::to_string(status.st_ino)) return;
  // No file with several names is ever taken: this one was on its way from one name to another, which it has already.
  if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) return;
  try {
    const auto source = walk.locate(linkTargetOf(staging, SourceNote));
    renameWithoutReplacing(staging, Staging::NewItem, source.folder.get(), source.name);
  } catch (const Failure&) {
    // Its folder is gone: nobody will ask for it again.
  }
}

// The notes go first: half a tree must never be put back.
bool clear(int parent, const std::string& name, int folder) {
  return forgetNotes(folder) && emptyFolder(folder) && ::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0;
}

void undo(int staging, int folder) {
  const auto [to, name] = wordsOf(staging, UndoNote);
  if (to == UndoToNothing && ::unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT)
    failWithSystemError("cannot remove " + name);
  if (to == UndoToOld && isThere(staging, Staging::OldItem) &&
      ::renameat(staging, Staging::OldItem, folder, name.c_str()) != 0)
    failWithSystemError("cannot put back " + name);
  syncFolder(folder);
}

// Every staging folder in the folder that holds `destination` which its job left behind, held for the time of the visit.
void visitLeftovers(const Location& destination, const std::function<void(int, const std::string&, int)>& visit) {
  const FileDescriptor parent(::openat(destination.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent) return;  // we cannot have worked in a folder that we cannot read
  for (const auto& entry : entriesOf(parent.get())) {
    if (!entry.isFolder || !isStagingName(entry.name)) continue;
    const auto folder = openFolderIn(parent.get(), entry.name);
    if (!folder || !isOurs(folder.get()) || ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) continue;
    visit(parent.get(), entry.name, folder.get());
  }
}

}  // namespace

Staging::Staging(const Location& destination) : _parent(destination.openFolder()), _name(newName()) {
  if (::mkdirat(_parent.get(), _name.c_str(), S_IRWXU) != 0)
    failWithSystemError("cannot write in " + destination.folderPath());
  _folder = openFolderIn(_parent.get(), _name);
  const bool locked = _folder && isOurs(_folder.get()) && ::flock(_folder.get(), LOCK_EX | LOCK_NB) == 0;
  if (!locked) {
    ::unlinkat(_parent.get(), _name.c_str(), AT_REMOVEDIR);
    throw Failure("cannot use a staging folder in " + destination.folderPath());
  }
  // Access lists that the folder hands down are not the new item's.
  ::fremovexattr(_folder.get(), "system.posix_acl_default");
}

Staging::~Staging() {
  if (!_kept) discard();
}

void Staging::noteSource(const Location& source, const struct stat& status) {
  note(_folder.get(), SourceNote, source.path);
  note(_folder.get(), SourceInodeNote, std::to_string(status.st_ino));
}

void Staging::noteDestination(const std::string& name) { note(_folder.get(), DestinationNote, name); }

void Staging::forgetSource() { forgetNotes(_folder.get()); }

bool Staging::discard() {
  _kept = true;
  return clear(_parent.get(), _name, _folder.get());
}

void Staging::noteTrashName(const std::string& name, const struct stat& status) {
  note(_folder.get(), TrashNote, std::to_string(status.st_ino) + "/" + name);
}

void Staging::forgetTrashName() {
  if (!forget(_folder.get(), TrashNote)) failWithSystemError("cannot write in the staging folder");
}

void Staging::noteUndo(const std::string& name) {
  const auto to = isThere(_folder.get(), OldItem) ? UndoToOld : UndoToNothing;
  note(_folder.get(), UndoNote, std::string(to) + "/" + name);
  syncFolder(_folder.get());
  syncFolder(_parent.get());
}

void Staging::forgetUndo() {
  if (!forget(_folder.get(), UndoNote)) failWithSystemError("cannot write in the staging folder");
  syncFolder(_folder.get());
}

void Staging::clearLeftovers(const Location& destination, const PathWalk& walk, const Finish& finish) {
  visitLeftovers(destination, [&](int parent, const std::string& name, int folder) {
    if (isThere(folder, UndoNote)) return;
    const auto [inode, trashName] = wordsOf(folder, TrashNote);
    if (!trashName.empty() && (!finish || !finish({.name = trashName, .inode = inode}))) return;
    putOldItemBack(folder, parent);
    putSourceBack(folder, walk);
    clear(parent, name, folder);
  });
}

bool Staging::hasUndo(const Location& destination) {
  bool found = false;
  visitLeftovers(destination, [&](int, const std::string&, int folder) { found = isThere(folder, UndoNote) || found; });
  return found;
}

void Staging::settleUndo(const Location& destination, bool undoes) {
  visitLeftovers(destination, [&](int parent, const std::string& name, int folder) {
    if (!isThere(folder, UndoNote)) return;
    if (undoes) undo(folder, parent);
    clear(parent, name, folder);
  });
}

}  // namespace AssistantTool
