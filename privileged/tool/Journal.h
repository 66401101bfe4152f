#pragma once
// Notes for the next job about the staging folders of this one, in case it is killed or the power fails, in a folder that
// only this process's user can enter. A staging folder without a note here is somebody else's, whatever it looks like.
//
// Root's journal is /var/lib/kelto/jobs, that of a user's own job "kelto/jobs" in the user's state folder. A note is a
// symbolic link called "<folder's number>.<note>", because making one is a single step; nobody follows it.
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "posix/Descriptor.h"

namespace AssistantTool {

// The folder above the journal's; empty when there is no home.
std::string stateFolder();

// The folder `name` beside the journal's; not open when it is missing and not to be made. Throws Failure when others can
// write it, or when it cannot be made.
posix::Descriptor folderOfNotes(const char* name, mode_t mode, bool isMade);

class Journal {
 public:
  // Opens it, and makes it when it is missing. Throws Failure when nothing can be noted there.
  static Journal made();
  // nullopt when there is none. Throws Failure when others can write it.
  static std::optional<Journal> existing();

  [[nodiscard]] int descriptor() const { return _folder.get(); }

  // Throws Failure.
  void write(const std::string& number, const char* note, const std::string& text) const;
  // The text of the note; empty when there is none.
  [[nodiscard]] std::string read(const std::string& number, const char* note) const;
  // True when the note is not there any more.
  [[nodiscard]] bool remove(const std::string& number, const char* note) const;
  // Brings all notes to the disk. Throws Failure.
  void sync() const;
  // The numbers that have this note.
  [[nodiscard]] std::vector<std::string> numbersWith(const char* note) const;

  // Jobs hold the journal shared while they begin a staging folder. Throws Failure.
  void share() const;
  // True when nobody begins one now: then a folder that was only begun is a killed job's.
  [[nodiscard]] bool hold() const;
  void release() const;

 private:
  explicit Journal(posix::Descriptor folder) : _folder(std::move(folder)) {}

  posix::Descriptor _folder;
};

}  // namespace AssistantTool
