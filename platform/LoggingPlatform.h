#pragma once
// The part of a platform that logging uses, which a program may also have alone.
#include "foundation/Api.h"
#include "foundation/runtime/NotificationCenter.h"
#include "foundation/runtime/ProcessScope.h"
#include "foundation/runtime/Visit.h"
#include "platform/Bundle.h"
#include "platform/FileManager.h"
#include "platform/LoggingHost.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"

namespace platform {

struct LoggingPlatform {
  UserDefaults& standardUserDefaults;
  foundation::NotificationCenter& defaultNotificationCenter;
  Bundles& bundles;
  FileManager& fileManager;
  SystemLog& systemLog;
  // Without a host, only the system log receives anything.
  LoggingHost* loggingHost = nullptr;
  // The singletons of the process; the last member, so that they are destroyed before the parts they use.
  foundation::ProcessScope process{};
};

// The installed platform, or nullptr. A thread that cannot know whether the platform is about to end makes a Visit.
KELTO_API LoggingPlatform* installed();

// Installs `platform` for the life of this object. Installations do not nest; make them before other threads start.
class LoggingInstallation {
 public:
  explicit LoggingInstallation(LoggingPlatform& platform);
  // Waits until every visit is over: from then on no other thread uses the platform.
  ~LoggingInstallation();
  LoggingInstallation(const LoggingInstallation&) = delete;
  LoggingInstallation& operator=(const LoggingInstallation&) = delete;

 private:
  const bool _isFencing;
};

// The use of the installed platform for the duration of one call. Any thread; visits nest.
class Visit {
 public:
  // False if no platform is installed.
  explicit operator bool() const { return _hasPlatform; }

 private:
  const foundation::Visit _visit;
  const bool _hasPlatform = installed() != nullptr;
};

// Says on standard error, at the first call of the process, that a statement found no platform.
KELTO_API void reportLostStatement();

}  // namespace platform
