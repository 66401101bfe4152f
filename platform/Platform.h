#pragma once
// All interfaces to the operating system in one place.
//
// Each process has one Platform. The framework's main function makes and installs it before anything else runs; each test
// installs one made of fakes. The references stay valid as long as the Platform.
#include "foundation/dispatch/RunLoop.h"
#include "foundation/views/ViewEnvironment.h"
#include "platform/Authorization.h"
#include "platform/DistributedNotificationCenter.h"
#include "platform/LoggingPlatform.h"
#include "platform/RunReport.h"
#include "platform/ServiceManagement.h"
#include "platform/Shell.h"
#include "platform/UserInterface.h"
#include "platform/Workspace.h"

namespace platform {

struct Platform : LoggingPlatform {
  // The singletons of the process go before the parts they use.
  ~Platform() { process.end(); }

  Application& application;
  foundation::RunLoop& runLoop;
  DistributedNotificationCenter& distributedNotificationCenter;
  AuthorizationServices& authorizationServices;
  Workspace& workspace;
  ServiceManagement& serviceManagement;
  Shell& shell;
  // How the run ends, and why.
  RunReport report{systemLog};
  // The part of this platform that views use.
  foundation::ViewEnvironment views{.runLoop = runLoop,
                                    .log = [&log = systemLog](std::string_view line) { log.log(line); }};
};

// The installed platform. Aborts with a message if none is installed.
Platform& current();

// Installs `platform` for the life of this object. Installations do not nest; make them before other threads start.
class Installation {
 public:
  explicit Installation(Platform& platform);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

 private:
  LoggingInstallation _logging;
  foundation::ViewEnvironment::Installation _views;
};

}  // namespace platform
