#pragma once
// Log files on Linux. Any thread.
//
// An open log file holds a shared advisory lock; removal needs the exclusive one, so no process deletes what another still
// writes. Marks are extended attributes in the "user." name space. Where the file system has none, a mark is an empty
// hidden file beside the log file whose name holds the file's number and birth time, so that it follows the file through
// renaming and cannot be taken for the mark of a later file.
#include "platform/LoggingHost.h"

namespace platform::Linux {

class LogStorage final : public platform::LogStorage {
 public:
  [[nodiscard]] bool fileExists(const std::string& path) const override;
  bool createDirectory(const std::string& path, Error& error) override;
  [[nodiscard]] std::vector<std::string> namesInDirectory(const std::string& path) const override;
  // Without birth times in the file system, the creation date is that of the last change of content or name.
  [[nodiscard]] std::optional<LogFileAttributes> attributesOfFile(const std::string& path) const override;
  bool createFile(const std::string& path) override;
  std::unique_ptr<LogFile> openFile(const std::string& path) override;
  bool removeFile(const std::string& path) override;
  bool moveFile(const std::string& path, const std::string& newPath, Error& error) override;
  [[nodiscard]] bool hasMark(const std::string& path, const std::string& name) const override;
  int setMark(const std::string& path, const std::string& name) override;
  int removeMark(const std::string& path, const std::string& name, bool& wasMissing) override;
};

}  // namespace platform::Linux
