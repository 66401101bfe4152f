#include "logging/DDAbstractLogger.h"

#include <utility>

#include "logging/DDLog.h"

DDAbstractLogger::DDAbstractLogger(std::string name)
    : _name(std::move(name)), _loggerQueue(foundation::Dispatch::SerialQueue::make(_name)) {}

void DDAbstractLogger::logMessage(const DDLogMessage& /*message*/) {}

std::shared_ptr<DDLogFormatter> DDAbstractLogger::logFormatter() {
  if (_loggerQueue->isCurrent()) return formatter;
  std::shared_ptr<DDLogFormatter> result;
  DDLog::loggingQueue().sync([&] { _loggerQueue->sync([&] { result = formatter; }); });
  return result;
}

void DDAbstractLogger::setLogFormatter(std::shared_ptr<DDLogFormatter> newFormatter) {
  if (_loggerQueue->isCurrent()) {
    formatter = std::move(newFormatter);
    return;
  }
  // The logger may be at work on its own queue, with what a former process left for example.
  submitSetting([this, newFormatter = std::move(newFormatter)] { _loggerQueue->sync([&] { formatter = newFormatter; }); });
}

void DDAbstractLogger::submitSetting(std::function<void()> setting) {
  auto& queue = DDLog::loggingQueue();
  // The logger must still be there when the setting's turn comes. One that nobody shares is waited for.
  if (auto self = weak_from_this().lock())
    queue.async([self = std::move(self), setting = std::move(setting)] { setting(); });
  else
    queue.sync(setting);
}

std::optional<std::string_view> DDAbstractLogger::textOf(const DDLogMessage& message) {
  if (!formatter) return message.logMsg();
  if (_buffer.capacity() > keptTextCapacity) std::string().swap(_buffer);
  return formatter->formatLogMessage(message, _buffer);
}
