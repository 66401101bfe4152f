#pragma once
// The folder for this user's temporary files, which nobody else can list or enter. Any thread.
#include <cstddef>
#include <string>

#include "posix/Descriptor.h"

namespace platform::Linux {

// "$XDG_RUNTIME_DIR/kelto", or where the user has no runtime folder one named after the user in TMPDIR, else in "/tmp".
// A missing folder is made, with mode 0700. A folder that someone else made, can enter or can exchange is passed over.
// Empty when no private folder can be made.
std::string privateTemporaryFolder();

// A program's claim to that folder, for as long as the object lives. Programs that have claims leave each other's files
// alone; the first and the last one delete what programs that were killed have left: documents with a name of `prefix` and
// `suffixLength` further characters. The last one deletes the folder, too.
class TemporaryFolderClaim {
 public:
  TemporaryFolderClaim(std::string prefix, std::size_t suffixLength);
  ~TemporaryFolderClaim();
  TemporaryFolderClaim(const TemporaryFolderClaim&) = delete;
  TemporaryFolderClaim& operator=(const TemporaryFolderClaim&) = delete;

 private:
  bool clearIfAlone() const;

  const std::string _prefix;
  const std::size_t _suffixLength;
  const std::string _path;
  const posix::Descriptor _folder;
};

}  // namespace platform::Linux
