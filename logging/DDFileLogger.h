#pragma once
// Writes every record as a line into a log file, and begins a new file when the current one is too large or too old.
//
// Lines are put together and written at once; they are with the operating system when a synchronous statement or a flush
// returns, and otherwise when they are 200 microseconds old and more records come, or with the next look of the core's
// watch, after ten milliseconds at most. After the death of the process the next one of the same program completes the file
// of the first file logger it makes.
#include <memory>
#include <optional>

#include "foundation/Api.h"
#include "foundation/text/DateFormatter.h"
#include "logging/DDAbstractLogger.h"
#include "logging/DDLogFileManager.h"
#include "logging/LogFileFinisher.h"
#include "logging/LogFileWriter.h"

// "yyyy/MM/dd HH:mm:ss:SSS", two blanks, and the message. A line of the message that is not its first begins with a tab, so
// that it cannot pass for a record.
class KELTO_API DDLogFileFormatterDefault : public DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override;

 private:
  const foundation::DateFormatter _dateFormatter{"yyyy/MM/dd HH:mm:ss:SSS"};
};

class KELTO_API DDFileLogger : public DDAbstractLogger {
 public:
  // With the default manager and its default folder.
  explicit DDFileLogger(platform::LoggingPlatform& platform);
  DDFileLogger(platform::LoggingPlatform& platform, std::shared_ptr<DDLogFileManager> logFileManager);
  ~DDFileLogger() override;

  // Settings: from any thread, but the getters not from the logging queue nor another logger's. They take effect in order
  // with the records.
  // Bytes. A file that has reached them is rolled right after the write that did.
  std::uint64_t maximumFileSize();
  void setMaximumFileSize(std::uint64_t size);
  // Seconds from a file's creation until it is rolled.
  double rollingFrequency();
  void setRollingFrequency(double frequency);
  void rollLogFile();

  // On the logger's queue, or on the logging queue: the file ends here and now; the next record begins another. A moment
  // later the file is brought to the medium, then marked as archived, then the manager is told.
  void rollLogFileNow();

  [[nodiscard]] const std::shared_ptr<DDLogFileManager>& logFileManager() const { return _logFileManager; }

  void logMessage(const DDLogMessage& message) override;
  void didAddLogger() override;
  void willRemoveLogger() override;
  void flush() override;
  void writePending() override;
  void didBecomeIdle() override { verifyPlace(); }
  void willEnd() override { _finisher.finishNow(); }
  void didFork() override;

 private:
  template <class T>
  T onLoggingQueue(const T& field);
  void onOwnQueue(std::function<void()> change);
  std::shared_ptr<DDLogFileInfo> currentLogFileInfo();
  bool openCurrentLogFile();
  std::unique_ptr<platform::LogFile> openedFile();
  void scheduleTimerToRollLogFileDueToAge();
  void maybeRollLogFileDueToAge();
  void maybeRollLogFileDueToSize();
  void didFinish(DDLogFileInfo& info, bool isThere);
  void verifyPlace();
  bool adopt(const LogRemains& remains);
  bool adoptLines(const LogRemains& remains);

  platform::LoggingHost* const _host;
  platform::SystemLog& _systemLog;
  const std::shared_ptr<LogJournal> _journal;
  const std::shared_ptr<DDLogFileManager> _logFileManager;
  std::shared_ptr<DDLogFileInfo> _currentLogFileInfo;
  LogFileWriter _writer;
  std::shared_ptr<foundation::Dispatch::TimerSource> _rollingTimer;
  std::uint64_t _maximumFileSize = 1048576;
  double _rollingFrequency = 86400.0;
  foundation::Date _lastVerified;
  LogFileFinisher _finisher;
};
