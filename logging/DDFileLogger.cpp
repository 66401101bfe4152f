#include "logging/DDFileLogger.h"

#include <algorithm>
#include <utility>

#include "foundation/dispatch/Clock.h"
#include "logging/DDLog.h"
#include "logging/LogAttempt.h"
#include "logging/LogCore.h"

namespace {

// The file is looked after this often while records come; before that a line may have gone into a deleted file, and is
// brought back.
constexpr std::chrono::milliseconds verifyingInterval{1};
// The clock may be set, and it goes on while the machine sleeps; timers do not notice. So the age is looked at again after
// this long.
constexpr foundation::Seconds longestWait{3600.0};

std::shared_ptr<LogJournal> journalOfCore() {
  LogCore* core = LogCore::current();
  return core == nullptr ? nullptr : core->journal();
}

}  // namespace

std::optional<std::string_view> DDLogFileFormatterDefault::formatLogMessage(const DDLogMessage& message,
                                                                            std::string& buffer) {
  buffer.clear();
  _dateFormatter.appendString(message.timestamp(), buffer);
  buffer.append("  ");
  std::string_view text = message.logMsg();
  for (auto end = text.find('\n'); end < text.size() - 1; end = text.find('\n')) {
    buffer.append(text.substr(0, end + 1)).push_back('\t');
    text.remove_prefix(end + 1);
  }
  return buffer.append(text);
}

DDFileLogger::DDFileLogger(platform::LoggingPlatform& platform)
    : DDFileLogger(platform, std::make_shared<DDLogFileManagerDefault>(platform)) {}

DDFileLogger::DDFileLogger(platform::LoggingPlatform& platform, std::shared_ptr<DDLogFileManager> logFileManager)
    : DDAbstractLogger("cocoa.plamaiskre.fileLogger"),
      _host(platform.loggingHost),
      _systemLog(platform.systemLog),
      _journal(journalOfCore()),
      _logFileManager(std::move(logFileManager)),
      _writer(_journal, _systemLog) {
  formatter = std::make_shared<DDLogFileFormatterDefault>();
}

DDFileLogger::~DDFileLogger() {
  if (_rollingTimer) _rollingTimer->cancel();
  _finisher.finish(_writer.close(), _currentLogFileInfo ? _currentLogFileInfo->filePath() : std::string());
}

// Settings.

template <class T>
T DDFileLogger::onLoggingQueue(const T& field) {
  if (loggerQueue()->isCurrent()) return field;
  T value{};
  DDLog::loggingQueue().sync([&] { value = field; });
  return value;
}

// In order with the records, and not while the timer's handler runs.
void DDFileLogger::onOwnQueue(std::function<void()> change) {
  if (loggerQueue()->isCurrent()) {
    change();
    return;
  }
  submitSetting([this, change = std::move(change)] { loggerQueue()->sync(change); });
}

std::uint64_t DDFileLogger::maximumFileSize() { return onLoggingQueue(_maximumFileSize); }

void DDFileLogger::setMaximumFileSize(std::uint64_t size) {
  onOwnQueue([this, size] {
    _maximumFileSize = size;
    maybeRollLogFileDueToSize();
  });
}

double DDFileLogger::rollingFrequency() { return onLoggingQueue(_rollingFrequency); }

void DDFileLogger::setRollingFrequency(double frequency) {
  onOwnQueue([this, frequency] {
    _rollingFrequency = frequency;
    maybeRollLogFileDueToAge();
  });
}

void DDFileLogger::rollLogFile() {
  submitSetting([this] { loggerQueue()->sync([this] { rollLogFileNow(); }); });
}

// Writing.

void DDFileLogger::logMessage(const DDLogMessage& message) {
  _writer.beginRecord();
  if (const auto text = textOf(message)) {
    const auto sinceLook = message.timestamp() - _lastVerified;
    if (sinceLook >= verifyingInterval || sinceLook < std::chrono::nanoseconds(0)) {
      verifyPlace();
      _lastVerified = message.timestamp();
    }
    if (openCurrentLogFile()) {
      _writer.append(*text);
      maybeRollLogFileDueToSize();
    } else {
      _writer.drop();
    }
  }
  _writer.endRecord();
}

// Lines that a file did not take before it was rolled are waiting for the next one.
void DDFileLogger::writePending() {
  if (_writer.hasLines()) openCurrentLogFile();
  _writer.write();
}

void DDFileLogger::flush() {
  verifyPlace();
  writePending();
  _writer.reportDropped();
}

void DDFileLogger::willRemoveLogger() { _writer.reportDropped(); }

// A file that was deleted or replaced is given up at once, and what went into it since the last look goes into the next.
void DDFileLogger::verifyPlace() {
  if (!_writer.isOpen()) return;
  if (_writer.verify(_currentLogFileInfo->filePath()) == LogFileWriter::Whereabouts::there) return;
  _currentLogFileInfo.reset();
  if (openCurrentLogFile()) _writer.write();
}

// The current file.

std::shared_ptr<DDLogFileInfo> DDFileLogger::currentLogFileInfo() {
  if (_currentLogFileInfo) return _currentLogFileInfo;
  const auto infos = _logFileManager->sortedLogFileInfos();
  const auto newest = infos.empty() ? nullptr : infos.front();
  if (newest && !_finisher.isFinishing(newest->filePath()) && !newest->isArchived()) {
    if (newest->fileSize() < _maximumFileSize && newest->age().count() < _rollingFrequency) {
      _currentLogFileInfo = newest;
    } else {
      newest->setIsArchived(true);
      _logFileManager->didArchiveLogFile(newest->filePath());
    }
  }
  if (!_currentLogFileInfo)
    _currentLogFileInfo = std::make_shared<DDLogFileInfo>(_logFileManager->createNewLogFile(), _host, _systemLog);
  return _currentLogFileInfo;
}

std::unique_ptr<platform::LogFile> DDFileLogger::openedFile() {
  const std::string path = currentLogFileInfo()->filePath();
  auto file = _host->storage.openFile(path);
  if (file || _host->storage.fileExists(path)) return file;
  // Somebody removed it between the choice and the opening.
  _currentLogFileInfo.reset();
  return _host->storage.openFile(currentLogFileInfo()->filePath());
}

bool DDFileLogger::openCurrentLogFile() {
  if (_writer.isOpen()) return true;
  if (_host == nullptr) return false;
  auto file = openedFile();
  if (!file) return false;
  _writer.open(std::move(file), _currentLogFileInfo->filePath());
  scheduleTimerToRollLogFileDueToAge();
  return true;
}

// Rolling.

void DDFileLogger::scheduleTimerToRollLogFileDueToAge() {
  if (_rollingTimer) _rollingTimer->cancel();
  _rollingTimer.reset();
  if (!_currentLogFileInfo) return;
  // Read first: should the machine fall asleep in between, the timer is early, and set again.
  const foundation::Uptime start = foundation::Clock::current().uptime();
  const foundation::Seconds rest = foundation::Seconds(_rollingFrequency) - _currentLogFileInfo->age();
  const foundation::Seconds wait = std::clamp(rest, foundation::Seconds(0), longestWait);
  _rollingTimer = foundation::Dispatch::TimerSource::make(loggerQueue(), [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self) logging::attempt([&] { static_cast<DDFileLogger&>(*self).maybeRollLogFileDueToAge(); });
  });
  _rollingTimer->set(start + std::chrono::ceil<std::chrono::nanoseconds>(wait), foundation::Seconds(0));
  _rollingTimer->resume();
}

void DDFileLogger::maybeRollLogFileDueToAge() {
  if (!_currentLogFileInfo) return;
  if (_currentLogFileInfo->age().count() >= _rollingFrequency)
    rollLogFileNow();
  else
    scheduleTimerToRollLogFileDueToAge();
}

// Lines that the file has not taken do not count: on a full disk nothing is rolled, and so nothing is pruned.
void DDFileLogger::maybeRollLogFileDueToSize() {
  if (!_writer.isOpen() || _writer.offset() < _maximumFileSize) return;
  _writer.write();
  if (_writer.fileSize() >= _maximumFileSize) rollLogFileNow();
}

// The mark and the manager's notice promise that the file is complete and on the medium, so they come after that.
void DDFileLogger::rollLogFileNow() {
  if (!_currentLogFileInfo) return;
  auto file = _writer.close();
  const auto info = std::exchange(_currentLogFileInfo, nullptr);
  if (!file) {
    didFinish(*info, true);
    return;
  }
  _finisher.finish(std::move(file), info->filePath(), [this, info](bool isThere) { didFinish(*info, isThere); });
}

void DDFileLogger::didFinish(DDLogFileInfo& info, bool isThere) {
  if (isThere) info.setIsArchived(true);
  _logFileManager->didRollAndArchiveLogFile(info.filePath());
}

void DDFileLogger::didFork() {
  _writer.forget();
  _currentLogFileInfo.reset();
  _rollingTimer.reset();
  _finisher.didFork();
}

// The remains of former processes.

void DDFileLogger::didAddLogger() {
  if (!_journal) return;
  for (const auto& remains : _journal->takeRemains())
    if (adopt(remains)) remains.discard();
}

// False when not all of it could be written; the rest is left where it is.
bool DDFileLogger::adopt(const LogRemains& remains) {
  if (!adoptLines(remains)) return false;
  remains.didWriteLines();
  for (const auto& record : remains.records) {
    const auto text = textOf(record.message);
    if (text && !(openCurrentLogFile() && _writer.writeAtOnce(*text))) return false;
    remains.didWrite(record);
  }
  return true;
}

// The process may have died after the write and before it took note, or while it wrote.
bool DDFileLogger::adoptLines(const LogRemains& remains) {
  if (remains.lines.empty()) return true;
  if (_host == nullptr) return false;
  const auto file = _host->storage.openFile(remains.path);
  if (!file) return openCurrentLogFile() && _writer.writeAtOnce(remains.lines);
  const std::string end = file->contentsFrom(remains.fileSize);
  if (end.find(remains.lines) != std::string::npos) return true;
  const bool isBegun = remains.lines.starts_with(end);
  const bool isTorn = !isBegun && !end.ends_with('\n');
  const std::string missing = (isTorn ? "\n" : "") + remains.lines.substr(isBegun ? end.size() : 0);
  int error = 0;
  return file->append(missing, error) == missing.size();
}
