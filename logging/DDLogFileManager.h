#pragma once
// Where the log files of a file logger are, how they are named, listed and pruned.
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Api.h"
#include "logging/DDLogFileInfo.h"

// A file logger asks this of its manager, on the logger's queue, or on the logging queue while that waits for the logger.
class KELTO_API DDLogFileManager {
 public:
  using Infos = std::vector<std::shared_ptr<DDLogFileInfo>>;
  virtual ~DDLogFileManager() = default;

  [[nodiscard]] virtual std::size_t maximumNumberOfLogFiles() const = 0;
  virtual void setMaximumNumberOfLogFiles(std::size_t number) = 0;
  virtual std::string logsDirectory() = 0;
  virtual std::vector<std::string> unsortedLogFilePaths() = 0;
  virtual std::vector<std::string> unsortedLogFileNames() = 0;
  virtual Infos unsortedLogFileInfos() = 0;
  // Newest first.
  virtual std::vector<std::string> sortedLogFilePaths() = 0;
  virtual std::vector<std::string> sortedLogFileNames() = 0;
  virtual Infos sortedLogFileInfos() = 0;
  // The path of a new, empty file, which nobody else is given.
  virtual std::string createNewLogFile() = 0;

  // Optional: the logger found a file too old or too large when it began.
  virtual void didArchiveLogFile(const std::string& /*path*/) {}
  // Optional: the logger has rolled a file. It is on the medium and marked, unless somebody deleted it meanwhile. Called on
  // a queue of the logger's own beside its records, one file at a time; must not wait for the logger.
  virtual void didRollAndArchiveLogFile(const std::string& /*path*/) {}
};

// Any thread. Make it shared: pruning after a change of the maximum happens later, on the logging queue.
class KELTO_API DDLogFileManagerDefault : public DDLogFileManager,
                                          public std::enable_shared_from_this<DDLogFileManagerDefault> {
 public:
  // In the user's Library, "Logs", the name of the process.
  explicit DDLogFileManagerDefault(platform::LoggingPlatform& platform);
  DDLogFileManagerDefault(platform::LoggingPlatform& platform, std::string logsDirectory);

  [[nodiscard]] std::size_t maximumNumberOfLogFiles() const override { return _maximumNumberOfLogFiles; }
  // Another number than before prunes, on the logging queue.
  void setMaximumNumberOfLogFiles(std::size_t number) override;

  static std::string defaultLogsDirectory(platform::LoggingPlatform& platform);
  // Makes the folder when it is not there. The path is answered even when that failed, which goes to the system log.
  std::string logsDirectory() override;
  // "log-", six upper-case hexadecimal digits, and anything after them.
  static bool isLogFile(std::string_view fileName);
  // Six random upper-case hexadecimal digits.
  static std::string generateShortUUID();

  std::vector<std::string> unsortedLogFilePaths() override;
  std::vector<std::string> unsortedLogFileNames() override;
  Infos unsortedLogFileInfos() override;
  std::vector<std::string> sortedLogFilePaths() override;
  std::vector<std::string> sortedLogFileNames() override;
  Infos sortedLogFileInfos() override;
  std::string createNewLogFile() override;

  // Deletes what exceeds the maximum. Never the newest file unless it is archived, and no file that any process writes to.
  void deleteOldLogFiles();

 private:
  // `inUse` is the path of the file in use; when it is empty, the newest file is, unless it is archived.
  void deleteOldLogFiles(const std::string& inUse);

  platform::LoggingHost* const _host;
  platform::SystemLog& _systemLog;
  const std::string _logsDirectory;
  std::atomic<std::size_t> _maximumNumberOfLogFiles{5};
};
