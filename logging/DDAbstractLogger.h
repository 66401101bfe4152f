#pragma once
// The base of every logger: its queue and its formatter.
#include <functional>
#include <memory>

#include "foundation/Api.h"
#include "logging/DDLogger.h"

class KELTO_API DDAbstractLogger : public DDLogger, public std::enable_shared_from_this<DDAbstractLogger> {
 public:
  // `name` labels the queue and is the answer of `loggerName`. Subclasses of subclasses pass their own.
  explicit DDAbstractLogger(std::string name);
  DDAbstractLogger(const DDAbstractLogger&) = delete;
  DDAbstractLogger& operator=(const DDAbstractLogger&) = delete;

  void logMessage(const DDLogMessage& message) override;
  // Any thread but the logging queue itself and other loggers' queues; waits for all that was submitted to the core before,
  // so it answers with what the last `setLogFormatter` of this thread gave. On the logger's own queue it does not wait.
  std::shared_ptr<DDLogFormatter> logFormatter() override;
  // Any thread. Takes effect in order with the records: those submitted before still have the old formatter.
  void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) override;
  std::shared_ptr<foundation::Dispatch::SerialQueue> loggerQueue() override { return _loggerQueue; }
  [[nodiscard]] std::optional<std::string> loggerName() const override { return _name; }

 protected:
  // On the logger's queue, or on the logging queue while it waits for this logger. The text to write for a
  // record: its own, or the formatter's result; nothing when the formatter drops it.
  std::optional<std::string_view> textOf(const DDLogMessage& message);

  // Runs `setting` on the logging queue, after all that was submitted before.
  void submitSetting(std::function<void()> setting);

  std::shared_ptr<DDLogFormatter> formatter;

 private:
  const std::string _name;
  const std::shared_ptr<foundation::Dispatch::SerialQueue> _loggerQueue;
  std::string _buffer;
};
