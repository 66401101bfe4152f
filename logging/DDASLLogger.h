#pragma once
// Hands records to the system's log, graded by their level. Add the shared instance to the core.
#include <memory>

#include "foundation/Api.h"
#include "logging/DDAbstractLogger.h"
#include "platform/LoggingHost.h"

class KELTO_API DDASLLogger : public DDAbstractLogger {
  struct SingletonKey {};

 public:
  // The one instance; nullptr without an installed platform. Any thread.
  static std::shared_ptr<DDASLLogger> sharedInstance();
  DDASLLogger(SingletonKey key, platform::LoggingHost* host);

  void logMessage(const DDLogMessage& message) override;

 private:
  platform::LeveledSystemLog* client = nullptr;  // nullptr when the platform has none
};
