#pragma once
// One place of the menus: a data folder with "applications" and "icons". The system's is changed with root's rights, a
// user's own with that user's, whatever rights the tool has.
//
// An entry is a file of ours only if it names its bundle. An icon is a link into its bundle, so that it changes with the
// bundle and root never reads a picture. Nothing that belongs to somebody else is changed or hidden.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/DesktopBundle.h"
#include "privileged/tool/Tree.h"

namespace AssistantTool {

inline constexpr const char* systemDataFolder = "/usr/local/share";

class DesktopPlace {
 public:
  // With the rights of `user`, or of this process.
  DesktopPlace(std::string dataFolder, std::optional<Owner> user) : _dataFolder(std::move(dataFolder)), _user(user) {}

  [[nodiscard]] const std::string& path() const { return _dataFolder; }
  // Those in which the next two work: the two folders, or the ones that they are to be made in.
  [[nodiscard]] std::vector<posix::Descriptor> folders() const;

  // Makes `brought` the one entry here that names the bundle at this path, with its icons. Nothing is changed when somebody
  // else has an entry or icon of that name, here or for all users: the cause is returned, else nothing. Throws Failure when
  // something cannot be written; the next call mends that.
  [[nodiscard]] std::string bring(const BroughtEntry& brought, const std::string& bundle);
  // Takes away what is here for the bundle at this path, if anything is. Throws Failure when it cannot.
  void clear(const std::string& bundle);
  // Whether one of them has changed something.
  [[nodiscard]] bool hasChanged() const { return _hasChanged; }

 private:
  void removeEntriesOfNobody(const std::string& name, const std::string& bundle);
  [[nodiscard]] std::string whatSomebodyElseHas(const BroughtEntry& brought, const std::string& bundle) const;
  [[nodiscard]] std::string folderOfIcon(const BroughtIcon& icon) const;
  void removeIcons(const std::string& bundle, const std::vector<BroughtIcon>& kept);
  void linkIcons(const BroughtEntry& brought, const std::string& bundle);
  void removeEntries(const std::string& bundle, const std::string& kept);
  void writeEntry(const BroughtEntry& brought, const std::string& name);

  std::string _dataFolder;
  std::optional<Owner> _user;
  bool _hasChanged = false;
};

}  // namespace AssistantTool
