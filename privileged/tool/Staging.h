#pragma once
// A hidden folder next to a destination, on the destination's file system, in which everything slow is done before one
// rename brings the result to its place, and to which what is replaced or removed goes to be deleted.
//
// It belongs to this process's user, nobody else can enter it, and it is locked while its job runs. A job that was killed
// leaves it unlocked: the next job in the same folder puts back what was still needed, then removes it. The journal tells
// the jobs' folders from others and holds their notes: by device, inode and time of birth, because anybody who may rename
// can lay a folder of that name there. Notes are on the disk before anything lies in the folder, and go last.
#include <sys/stat.h>

#include <functional>
#include <string>

#include "posix/Descriptor.h"
#include "privileged/tool/Journal.h"
#include "privileged/tool/PathWalk.h"

namespace AssistantTool {

class Staging {
 public:
  // Names inside the staging folder.
  static constexpr const char* newItem = "new";      // what goes to the destination
  static constexpr const char* oldItem = "old";      // what was there, while it may have to go back
  static constexpr const char* doomed = "doomed";    // what is only waiting to be deleted
  static constexpr const char* hardLinks = "links";  // see copyTree

  // Makes the folder beside `destination`. Throws Failure.
  explicit Staging(const Location& destination);
  // Removes the folder and what it holds, unless it was kept.
  ~Staging();
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // To put something in or take it out. Throws Failure when the notes cannot be brought to the disk; not after it once
  // succeeded, until something is noted again.
  [[nodiscard]] int folder() const;

  // Notes where the item comes from that is about to be renamed to NewItem, so that it can go back.
  void noteSource(const Location& source, const struct stat& status);
  void forgetSource();
  // Notes where the item belongs that is about to be renamed to OldItem.
  void noteDestination(const std::string& name);
  // Notes, on the disk, the name under which the item with that status is going to the Trash.
  void noteTrashName(const std::string& name, const struct stat& status);
  void forgetTrashName();
  // Notes, on the disk, that `name` beside the folder has to become OldItem again, or nothing when there is no OldItem,
  // until forgetUndo() is reached. A folder with this note is left to settleUndo().
  void noteUndo(const std::string& name);
  void forgetUndo();
  // Nothing inside is needed any more: deletes the folder. Returns a warning when something is left, which the next job in
  // the same place tries to delete again. Once only.
  std::string discard();
  // Leaves the folder as it is, because it holds the only copy of something.
  void keep() { _kept = true; }
  [[nodiscard]] bool isKept() const { return _kept; }

  // A name in the Trash that a killed job had noted, and the item that was to get it.
  struct TrashName {
    std::string name;
    std::string inode;
  };
  // Does the remaining work of a killed job; returns false when that is not possible now.
  using Finish = std::function<bool(const TrashName&)>;

  // Clears what killed jobs left in the folder that holds `destination`. Throws Failure when something that has to go back
  // cannot.
  static void clearLeftovers(const Location& destination, const PathWalk& walk, const Finish& finish = {});
  // True when a killed job left a note of noteUndo() in the folder that holds `destination`.
  static bool hasUndo(const Location& destination);
  // Clears such folders; first does what the note says when `undoes`. Throws Failure when that cannot be done, or the note
  // stays: a later job would follow it.
  static void settleUndo(const Location& destination, bool undoes);

 private:
  void begin();
  void note(const char* name, const std::string& text);

  Journal _journal;
  std::string _folderPath;  // of the folder above
  posix::Descriptor _parent;
  std::string _number;
  posix::Descriptor _folder;
  mutable bool _isNoted = false;  // on the disk
  bool _kept = false;
};

}  // namespace AssistantTool
