#pragma once
// Writes records to the standard error stream when that is a terminal. Add the shared instance to the core.
#include <array>
#include <initializer_list>
#include <memory>

#include "foundation/Api.h"
#include "foundation/text/DateFormatter.h"
#include "logging/DDAbstractLogger.h"
#include "platform/LoggingHost.h"

class KELTO_API DDTTYLogger : public DDAbstractLogger {
  struct SingletonKey {};

 public:
  // The one instance; nullptr without an installed platform. Any thread.
  static std::shared_ptr<DDTTYLogger> sharedInstance();
  DDTTYLogger(SingletonKey key, platform::LoggingHost* host);

  // Errors in red and warnings in yellow; off at first. Any thread; in order with the records.
  void setColorsEnabled(bool enabled);

  // The time, the process, the thread and the text, and a line feed in any case. Text that a formatter made stands alone.
  void logMessage(const DDLogMessage& message) override;

 private:
  void writeStandardLine(const DDLogMessage& message, std::string_view text);
  void write(const DDLogMessage& message, std::initializer_list<std::string_view> pieces);

  platform::Terminal* _terminal = nullptr;  // nullptr when there is none
  const foundation::DateFormatter dateFormatter{"yyyy-MM-dd HH:mm:ss:SSS"};
  std::string app;
  std::string pid;
  std::string _timestamp;
  bool _hasColors = false;
};
