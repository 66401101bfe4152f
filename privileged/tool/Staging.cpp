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

#include "posix/RemoveTree.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/FileSystemNumber.h"
#include "privileged/tool/Folder.h"
#include "privileged/tool/SignOfLife.h"

namespace AssistantTool {
namespace {

constexpr const char* prefix = ".kelto-staging-";
constexpr std::size_t randomCharacters = 16;
constexpr std::string_view hexDigits = "0123456789abcdef";
// The two notes of each staging folder, and what may have to be done for it. The first is written before the folder is made
// and tells the folder above; the second tells it from every other folder.
constexpr const char* placeNote = "place";
constexpr const char* identityNote = "identity";
constexpr const char* sourceNote = "source";
constexpr const char* sourceInodeNote = "source-inode";
constexpr const char* destinationNote = "destination";
constexpr const char* trashNote = "trashed";  // "<inode>/<name>"
constexpr const char* undoNote = "undo";      // "old/<name>" or "nothing/<name>"
constexpr std::array workNotes{sourceInodeNote, sourceNote, destinationNote, trashNote, undoNote};
constexpr std::string_view undoToOld = "old";
constexpr std::string_view undoToNothing = "nothing";

std::string newNumber() {
  std::array<unsigned char, randomCharacters> random{};
  if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size()))
    failWithSystemError("no random numbers");
  std::string number;
  for (const unsigned char byte : random) number.push_back(hexDigits[byte % hexDigits.size()]);
  return number;
}

bool isOurs(int folder) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) return false;
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

struct TwoWords {
  std::string first;
  std::string second;
};
// Both empty when there are not two.
TwoWords wordsOf(const std::string& text) {
  const auto slash = text.find('/');
  if (slash == std::string::npos || text.find('/', slash + 1) != std::string::npos) return {};
  return {.first = text.substr(0, slash), .second = text.substr(slash + 1)};
}

struct Identity {
  std::string device;
  std::string fileSystem;  // its own number; see numberOfFileSystem
  std::string item;        // inode and time of birth

  [[nodiscard]] std::string text() const { return device + " " + fileSystem + " " + item; }
  [[nodiscard]] bool isSame(const Identity& other) const {
    const bool isSameDevice = device == other.device || (!fileSystem.empty() && fileSystem == other.fileSystem);
    return isSameDevice && !item.empty() && item == other.item;
  }
};

Identity identityOf(int folder) {
  struct statx status {};
  if (::statx(folder, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0)
    failWithSystemError("cannot look at a folder");
  const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
  return {.device = std::to_string(status.stx_dev_major) + ":" + std::to_string(status.stx_dev_minor),
          .fileSystem = numberOfFileSystem(folder),
          .item = std::to_string(status.stx_ino) + ":" + (hasBirth ? std::to_string(status.stx_btime.tv_sec) : "") + "." +
                  (hasBirth ? std::to_string(status.stx_btime.tv_nsec) : "")};
}

Identity identityIn(const std::string& text) {
  const auto first = text.find(' ');
  const auto second = first == std::string::npos ? first : text.find(' ', first + 1);
  if (second == std::string::npos) return {};
  return {.device = text.substr(0, first),
          .fileSystem = text.substr(first + 1, second - first - 1),
          .item = text.substr(second + 1)};
}

bool isThere(int folder, const std::string& name) {
  struct stat status {};
  return ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// One staging folder: the folder, the one above, and its notes.
struct Leftover {
  const Journal& journal;
  std::string number;
  int parent;
  int folder;

  [[nodiscard]] std::string noted(const char* note) const { return journal.read(number, note); }
  // Notes of work and what they speak of may lie on two disks: what was done is on the disk before its note goes, and the
  // notes are gone before the contents go, because half a tree must never be put back. True when there is no note any more.
  [[nodiscard]] bool forgetWork() const {
    try {
      const bool hasWork = std::ranges::any_of(workNotes, [&](const char* note) { return !noted(note).empty(); });
      if (!hasWork) return true;
      if (syncDescriptor(folder) != 0 || syncDescriptor(parent) != 0) return false;
      for (const char* note : workNotes) {
        if (!journal.remove(number, note)) return false;
      }
      journal.sync();
    } catch (const Failure&) {
      return false;
    }
    return true;
  }
  [[nodiscard]] bool clear() const {
    if (!forgetWork() || !posix::emptyFolder(folder, posix::LockedFolders::areOpened, giveSignOfLife)) return false;
    if (::unlinkat(parent, (prefix + number).c_str(), AT_REMOVEDIR) != 0) return false;
    return forget();
  }
  [[nodiscard]] bool forget() const { return journal.remove(number, identityNote) && journal.remove(number, placeNote); }
};

// A job without an atomic exchange was killed between its two renames: the old item is the destination again.
void putOldItemBack(const Leftover& left) {
  const auto name = left.noted(destinationNote);
  if (name.empty() || name.find('/') != std::string::npos || !isThere(left.folder, Staging::oldItem)) return;
  if (isThere(left.parent, name)) return;
  if (::renameat(left.folder, Staging::oldItem, left.parent, name.c_str()) != 0)
    failWithSystemError("cannot put back " + name);
}

// A job was killed after it took the new item and before the exchange: then NewItem still is the file that was noted. False
// when the item is back and that cannot be brought to the disk.
bool putSourceBack(const Leftover& left, const PathWalk& walk) {
  struct stat status {};
  if (::fstatat(left.folder, Staging::newItem, &status, AT_SYMLINK_NOFOLLOW) != 0) return true;
  if (left.noted(sourceInodeNote) != std::to_string(status.st_ino)) return true;
  // No file with several names is ever taken: this one was on its way from one name to another, which it has already.
  if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) return true;
  try {
    const auto source = walk.locate(left.noted(sourceNote));
    if (renameWithoutReplacing(left.folder, Staging::newItem, source.folder.get(), source.name) != 0) return true;
    return syncDescriptor(source.openFolder().get()) == 0;
  } catch (const Failure&) {
    return true;  // its folder is gone: nobody will ask for it again
  }
}

void undo(const Leftover& left) {
  const auto [to, name] = wordsOf(left.noted(undoNote));
  if (to == undoToNothing && ::unlinkat(left.parent, name.c_str(), 0) != 0 && errno != ENOENT)
    failWithSystemError("cannot remove " + name);
  if (to == undoToOld && isThere(left.folder, Staging::oldItem) &&
      ::renameat(left.folder, Staging::oldItem, left.parent, name.c_str()) != 0)
    failWithSystemError("cannot put back " + name);
  syncFolder(left.parent);
}

// The job ended before it had made the folder, or after it had removed it; there is nothing in it.
void dropEmpty(const Leftover& left) {
  if (!left.journal.hold()) return;
  const bool isFolderGone =
      ::unlinkat(left.parent, (prefix + left.number).c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT || errno == ENOTDIR;
  if (isFolderGone) static_cast<void>(left.forget());
  left.journal.release();
}

// Every staging folder in the folder that holds `destination` which its job left behind, held for the time of the visit.
void visitLeftovers(const Location& destination, const std::function<void(const Leftover&)>& visit) {
  const auto journal = Journal::existing();
  if (!journal) return;
  const posix::Descriptor parent(::openat(destination.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!parent) return;  // we cannot have worked in a folder that we cannot read
  const auto place = identityOf(parent.get());
  for (const auto& number : journal->numbersWith(placeNote)) {
    const auto folder = openFolderIn(parent.get(), prefix + number);
    const bool isHere = folder || identityIn(journal->read(number, placeNote)).isSame(place);
    const Leftover left{.journal = *journal, .number = number, .parent = parent.get(), .folder = folder.get()};
    const auto noted = identityIn(left.noted(identityNote));
    if (isHere && (!folder || noted.item.empty())) dropEmpty(left);
    if (!folder || !noted.isSame(identityOf(folder.get())) || !isOurs(folder.get())) continue;
    if (::flock(folder.get(), LOCK_EX | LOCK_NB) == 0) visit(left);
  }
}

}  // namespace

Staging::Staging(const Location& destination)
    : _journal(Journal::made()),
      _folderPath(destination.folderPath()),
      _parent(destination.openFolder()),
      _number(newNumber()) {
  _journal.share();
  try {
    begin();
  } catch (const Failure&) {
    const Leftover begun{.journal = _journal, .number = _number, .parent = _parent.get(), .folder = _folder.get()};
    ::unlinkat(_parent.get(), (prefix + _number).c_str(), AT_REMOVEDIR);
    static_cast<void>(begun.forget());
    throw;
  }
  _journal.release();
}

void Staging::begin() {
  const auto name = prefix + _number;
  note(placeNote, identityOf(_parent.get()).text());
  if (::mkdirat(_parent.get(), name.c_str(), S_IRWXU) != 0) failWithSystemError("cannot write in " + _folderPath);
  _folder = openFolderIn(_parent.get(), name);
  const bool isLocked = _folder && isOurs(_folder.get()) && ::flock(_folder.get(), LOCK_EX | LOCK_NB) == 0;
  if (!isLocked) throw Failure("cannot use a staging folder in " + _folderPath);
  // Access lists that the folder hands down are not the new item's.
  ::fremovexattr(_folder.get(), "system.posix_acl_default");
  note(identityNote, identityOf(_folder.get()).text());
}

Staging::~Staging() {
  if (!_kept) discard();
}

int Staging::folder() const {
  if (!_isNoted) _journal.sync();
  _isNoted = true;
  return _folder.get();
}

void Staging::note(const char* name, const std::string& text) {
  _journal.write(_number, name, text);
  _isNoted = false;
}

void Staging::noteSource(const Location& source, const struct stat& status) {
  note(sourceNote, source.path);
  note(sourceInodeNote, std::to_string(status.st_ino));
}

void Staging::noteDestination(const std::string& name) { note(destinationNote, name); }

void Staging::forgetSource() {
  static_cast<void>(_journal.remove(_number, sourceInodeNote));
  static_cast<void>(_journal.remove(_number, sourceNote));
}

std::string Staging::discard() {
  _kept = true;
  const Leftover rest{.journal = _journal, .number = _number, .parent = _parent.get(), .folder = _folder.get()};
  return rest.clear() ? "" : "could not delete all of " + _folderPath + "/" + prefix + _number;
}

void Staging::noteTrashName(const std::string& name, const struct stat& status) {
  note(trashNote, std::to_string(status.st_ino) + "/" + name);
  static_cast<void>(folder());
}

void Staging::forgetTrashName() {
  if (!_journal.remove(_number, trashNote)) failWithSystemError("cannot keep notes");
}

void Staging::noteUndo(const std::string& name) {
  const auto to = isThere(_folder.get(), oldItem) ? undoToOld : undoToNothing;
  syncFolder(_folder.get());
  syncFolder(_parent.get());
  note(undoNote, std::string(to) + "/" + name);
  static_cast<void>(folder());
}

void Staging::forgetUndo() {
  if (!_journal.remove(_number, undoNote)) failWithSystemError("cannot keep notes");
  _journal.sync();
}

void Staging::clearLeftovers(const Location& destination, const PathWalk& walk, const Finish& finish) {
  visitLeftovers(destination, [&](const Leftover& left) {
    if (!left.noted(undoNote).empty()) return;
    const auto [inode, trashName] = wordsOf(left.noted(trashNote));
    if (!trashName.empty() && (!finish || !finish({.name = trashName, .inode = inode}))) return;
    putOldItemBack(left);
    if (putSourceBack(left, walk)) static_cast<void>(left.clear());
  });
}

bool Staging::hasUndo(const Location& destination) {
  bool found = false;
  visitLeftovers(destination, [&](const Leftover& left) { found = !left.noted(undoNote).empty() || found; });
  return found;
}

void Staging::settleUndo(const Location& destination, bool undoes) {
  visitLeftovers(destination, [&](const Leftover& left) {
    if (left.noted(undoNote).empty()) return;
    if (undoes) undo(left);
    if (!left.forgetWork()) throw Failure("cannot remove the note of an upgrade that was killed");
    static_cast<void>(left.clear());
  });
}

}  // namespace AssistantTool
