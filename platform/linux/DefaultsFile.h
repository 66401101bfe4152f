#pragma once
// The stored defaults of one domain: a property list in the user's configuration folder, shared by all programs.
//
// Every writer holds a lock on the file's neighbour ".lock" from reading to renaming, so that no change is lost; readers
// need none, since a change appears in one piece. Any thread, and any number of processes.
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"
#include "platform/linux/ReadDocument.h"

namespace platform::Linux {

// $XDG_CONFIG_HOME when it is absolute, else ~/.config; empty when there is no home folder either.
std::string configurationFolder();

class DefaultsFile {
 public:
  // The file of a domain ("com.kelto.macController") in the configuration folder. Nothing when the domain's name cannot be
  // that of a file, or there is no configuration folder.
  static std::optional<DefaultsFile> forDomain(std::string_view domain);
  // `path` need not exist yet, nor its folder.
  explicit DefaultsFile(std::string path) : _path(std::move(path)) {}

  // The stored values; empty when nothing is stored yet. Nothing when the file cannot be read, and `reason` says why. When
  // a file is there it is kept open in `source`, if given, without its bytes.
  std::optional<foundation::PropertyList::Dictionary> read(std::string& reason,
                                                           std::optional<ReadDocument>* source = nullptr) const;

  // Alters the stored values with `change`, under the lock. When it returns false nothing is stored. False when something
  // failed: then `reason` says what, and the file is as it was. A file that cannot be read is never replaced.
  bool update(const std::function<bool(foundation::PropertyList::Dictionary&)>& change, std::string& reason) const;

  // Removes the file, and with it all that is stored. As `update`.
  bool remove(std::string& reason) const;

  [[nodiscard]] const std::string& path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace platform::Linux
