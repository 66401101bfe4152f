#pragma once
// Everything that the five subsystems may ask of the operating system, in one place.
//
// One Platform lives in a process. The framework's main function makes it and installs it before anything else runs; tests
// install one of fakes each. References stay valid for the life of the Platform.
#include "foundation/dispatch/RunLoop.h"
#include "foundation/runtime/NotificationCenter.h"
#include "foundation/runtime/ProcessScope.h"
#include "foundation/views/ViewEnvironment.h"
#include "platform/Authorization.h"
#include "platform/Bundle.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/FileManager.h"
#include "platform/LoggingHost.h"
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
  // Without one nothing is logged but to the system log.
  LoggingHost* loggingHost = nullptr;
  // The part of this platform that views use.
  foundation::ViewEnvironment views{.runLoop = runLoop,
                                    .log = [&log = systemLog](std::string_view line) { log.log(line); }};
  // The once-made objects of the process; last, so that they go before what they use.
  foundation::ProcessScope process{};
};

// The installed platform. Terminates the process with a message when none is installed.
Platform& current();
// The same, or nullptr when none is installed.
Platform* installed();

// Installs `platform` for the life of this object and takes it away again. Not nested; one thread, before others start.
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
