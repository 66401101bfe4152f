#pragma once
// All interfaces to the operating system in one place.
//
// Each process has one Platform. The framework's main function makes and installs it before anything else runs; each test
// installs one made of fakes. The references stay valid as long as the Platform.
#include "foundation/dispatch/RunLoop.h"
#include "foundation/runtime/NotificationCenter.h"
#include "foundation/runtime/ProcessScope.h"
#include "foundation/views/ViewEnvironment.h"
#include "platform/Authorization.h"
#include "platform/Bundle.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/LoggingHost.h"
#include "platform/RunReport.h"
#include "platform/ServiceManagement.h"
#include "platform/Shell.h"
#include "platform/SystemLog.h"
#include "platform/UserDefaults.h"
#include "platform/UserInterface.h"
#include "platform/Workspace.h"

namespace platform {

struct Platform {
  Application& application;
  foundation::RunLoop& runLoop;
  UserDefaults& standardUserDefaults;
  foundation::NotificationCenter& defaultNotificationCenter;
  DistributedNotificationCenter& distributedNotificationCenter;
  Bundles& bundles;
  FileManager& fileManager;
  AuthorizationServices& authorizationServices;
  Workspace& workspace;
  ServiceManagement& serviceManagement;
  Shell& shell;
  SystemLog& systemLog;
  // Without a host, only the system log receives anything.
  LoggingHost* loggingHost = nullptr;
  // How the run ends, and why.
  RunReport report{systemLog};
  // The part of this platform that views use.
  foundation::ViewEnvironment views{.runLoop = runLoop,
                                    .log = [&log = systemLog](std::string_view line) { log.log(line); }};
  // The singletons of the process; the last member, so that they are destroyed before the parts they use.
  foundation::ProcessScope process{};
};

// The installed platform. Aborts with a message if none is installed.
Platform& current();
// The installed platform, or nullptr.
Platform* installed();

// Installs `platform` for the life of this object. Installations do not nest; make them before other threads start.
class Installation {
 public:
  explicit Installation(Platform& platform);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

 private:
  foundation::ViewEnvironment::Installation _views;
};

}  // namespace platform
