#pragma once
// The entries of the menus follow their bundles: whatever a file job did to one that brings an entry, at the end of the job
// the menus show what is there then.
//
// A bundle that only root can change has its entry in the system's place; one that the user can change too, in that user's
// own. Before the job begins, its paths are noted in a folder beside the journal, one folder for each job, locked while its
// job runs: a job that finds one unlocked settles it too, as the killed job would have. It does for another user only what
// concerns the place of all users: the rest waits for a job of that user, whose folders this one does not reach.
//
// An entry never fails a job.
#include <sys/types.h>

#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/Commands.h"
#include "privileged/tool/DesktopPlace.h"

namespace AssistantTool {

class DesktopEntries {
 public:
  // Before the job, which has these.
  DesktopEntries(const Command& command, const Request& request);

  // False for a job that has to do with no entry; then the rest of this does nothing.
  [[nodiscard]] bool hasWork() const { return !_changes.empty(); }
  // Those in which settle() works.
  [[nodiscard]] std::vector<posix::Descriptor> folders() const;
  // The data folder whose caches this process may write.
  [[nodiscard]] static std::string dataFolder();

  // After the job, also when it failed. Returns a warning when an entry was left out, else nothing.
  std::string settle();
  // Whether it changed something.
  [[nodiscard]] bool hasChanged() const { return _hasChanged; }

 private:
  struct Change {
    std::string note;  // the folder's name
    posix::Descriptor folder;
    uid_t user = 0;         // who asked
    bool isOthers = false;  // it was somebody else than who asks now
    std::string appears;
    std::string vanishes;
  };

  void note(const Command& command);
  void takeOver();
  void begin(Change change);
  void settleAll();
  void addCause(const std::string& cause);
  [[nodiscard]] std::string settle(const Change& change);
  [[nodiscard]] std::string show(const Change& change);
  [[nodiscard]] static std::vector<DesktopPlace> placesOf(const Change& change);
  void forget(const Change& change) const;

  const Request& _request;
  posix::Descriptor _notes;
  std::vector<Change> _changes;
  std::string _cause;  // of an entry that is left out
  bool _hasChanged = false;
};

}  // namespace AssistantTool
