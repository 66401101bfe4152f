#pragma once
// A Trash folder of one user by the freedesktop.org rules: "files" holds the items, "info" one file for each that says
// where it was and when it went.
#include <sys/types.h>

#include <optional>
#include <string>

#include "privileged/tool/PathWalk.h"
#include "privileged/tool/Staging.h"
#include "privileged/tool/Tree.h"

namespace AssistantTool {

class TrashFolder {
 public:
  // The Trash in a user's data folder, made when missing; nothing when that cannot be.
  static std::optional<TrashFolder> inDataFolder(const std::string& dataFolder, Owner user, const PathWalk& walk);
  // The one on the volume whose top folder is `top`: ".Trash/<uid>" when the administrator made a proper ".Trash", else
  // ".Trash-<uid>".
  static std::optional<TrashFolder> onVolume(const std::string& top, Owner user, const PathWalk& walk);

  // Writes the info file for an item that is at `path`, under a name that is free, and returns that name. Throws Failure.
  // `staging`, in this Trash, remembers the name, so that it is not lost when this job is killed.
  std::string reserveName(const std::string& path, const struct stat& status, Staging& staging) const;
  // Removes the info file; when that fails `staging` is kept, so that the next job does it.
  void releaseName(const std::string& name, Staging& staging) const;
  // Where the item of that name goes.
  [[nodiscard]] Location itemLocation(const std::string& name) const;
  // Does for killed jobs what they had still to do: gives items to the user that they had brought here, and removes info
  // files without an item.
  void finishKilledJobs(const PathWalk& walk) const;
  // Brings the two folders' entries to the disk. Throws Failure.
  void sync() const;
  // Gives the item of that name to the user, and brings this to the disk. Throws Failure.
  void handOver(const std::string& name) const;

 private:
  TrashFolder() = default;
  static std::optional<TrashFolder> open(const Location& trash, Owner user);
  [[nodiscard]] bool removeInfo(const std::string& name) const;
  [[nodiscard]] bool writeInfo(const std::string& name, const std::string& text) const;

  Owner _user;
  posix::Descriptor _files;
  posix::Descriptor _info;
  std::string _path;
  std::string _top;  // empty for the one in the data folder, whose paths are absolute
};

// The `number`th name for an item called `name`: "App.app", "App 2.app"; short enough to carry ".trashinfo".
std::string trashName(const std::string& name, unsigned number);
// "/" and the unreserved characters stay, every other byte becomes %XX.
std::string percentEncoded(std::string_view path);

}  // namespace AssistantTool
