#pragma once
// Hands records to the system's journal, with their parts as fields of their own. Add the shared instance to the core.
//
// MESSAGE, PRIORITY (3 error, 4 warning, 6 information, 5 any other kind), CODE_FILE, CODE_LINE, CODE_FUNC, TID (the
// thread), SYSLOG_IDENTIFIER (the process), KELTO_QUEUE, KELTO_CONTEXT if it is not 0, and the statement's own fields,
// whose keys are turned into upper case, with "_" for what a name in the journal cannot have. A key that would pass for one
// of the names here, or that does not begin with a letter, gets "FIELD_" in front of it.
#include <memory>

#include "foundation/Api.h"
#include "logging/DDAbstractLogger.h"
#include "platform/LoggingPlatform.h"

class KELTO_API DDJournalLogger : public DDAbstractLogger {
  struct SingletonKey {};

 public:
  // The one instance; nullptr without an installed platform. Any thread.
  static std::shared_ptr<DDJournalLogger> sharedInstance();
  DDJournalLogger(SingletonKey key, platform::LoggingPlatform& platform);

  void logMessage(const DDLogMessage& message) override;

 private:
  platform::LoggingHost* const _host;
  platform::SystemLog& _systemLog;
  const std::string _process;
  bool _isInTrouble = false;
};
