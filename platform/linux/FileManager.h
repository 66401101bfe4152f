#pragma once
// Files and folders over the Linux system calls.
#include "platform/FileManager.h"

namespace platform::Linux {

class FileManager : public platform::FileManager {
 public:
  [[nodiscard]] bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr) const override;
  [[nodiscard]] bool isExecutableFileAtPath(const std::string& path) const override;
  // A document in the way is removed first, and the new one is always a fresh file: in a folder that others can write,
  // nobody's link or waiting file is ever opened. Anything else in the way (folder, link, pipe) makes this fail.
  bool createFileAtPath(const std::string& path, const FileAttributes& attributes) override;
  // The attributes are given to every folder made here, the deepest first. An existing folder is success, and left as it
  // is, when intermediate folders were asked for; otherwise it is an error.
  bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories, const FileAttributes& attributes,
                             Error* error) override;
  // Links are followed. An account name that is not known changes nothing.
  bool setAttributes(const FileAttributes& attributes, const std::string& path) override;
  // Stops at the first item that cannot be removed.
  bool removeItemAtPath(const std::string& path) override;
  [[nodiscard]] std::optional<std::string> contentsAtPath(const std::string& path) const override;

  // A folder of this user's that nobody else can list or enter.
  [[nodiscard]] std::string temporaryDirectory() const override;
  [[nodiscard]] std::string unusedName(const std::string& nameTemplate) const override;
  [[nodiscard]] std::vector<std::string> searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                                  bool expandTilde) const override;
  [[nodiscard]] std::optional<std::string> volumeURLForPath(const std::string& path) const override;
};

}  // namespace platform::Linux
