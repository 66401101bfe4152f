#include "platform/linux/program/ProgramPlatform.h"

#include <poll.h>

#include <algorithm>
#include <string>

#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/DistributedNotificationCenter.h"
#include "platform/linux/FileManager.h"
#include "platform/linux/LoggingHost.h"
#include "platform/linux/PreferredLanguages.h"
#include "platform/linux/RunLoop.h"
#include "platform/linux/ServiceManagement.h"
#include "platform/linux/Shell.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"
#include "platform/linux/Workspace.h"

namespace platform::Linux {
namespace {

class ProgramApplication final : public Application {
 public:
  ProgramApplication(RunLoop& runLoop, foundation::NotificationCenter& center, platform::SystemLog& log)
      : _runLoop(runLoop), _center(center), _log(log) {}

  void runModal(const Alert& alert) override {
    if (!_isTerminated) _log.log(alert.messageText + " " + alert.informativeText);
  }
  void terminate(const void* /*sender*/) override {
    if (std::exchange(_isTerminated, true)) return;
    _center.post({std::string(foundation::applicationWillTerminateNotification), {}, {}});
    _runLoop.stop();
  }

 private:
  RunLoop& _runLoop;
  foundation::NotificationCenter& _center;
  platform::SystemLog& _log;
  bool _isTerminated = false;
};

std::string nameOf(const char* path) {
  const std::string text = path == nullptr ? "" : path;
  return text.substr(text.find_last_of('/') + 1);
}

}  // namespace

// Members are made in this order and go in the other.
struct ProgramPlatform::Parts {
  Parts(int argc, char** argv)
      : log(nameOf(argv[0])), defaults(argc, argv, bundles.mainBundle().bundleIdentifier().value_or(""), log) {}

  SystemLog log;
  Bundles bundles{log, [this] { return preferredLanguages(defaults); }};
  UserDefaults defaults;
  foundation::NotificationCenter center;
  RunLoop runLoop;
  DirectCall directCall;
  ProgramApplication application{runLoop, center, log};
  DistributedNotificationCenter distributedCenter{
      bundles.mainBundle().bundleIdentifier().value_or(""), log,
      [this](std::function<void()> action) { runLoop.deliver(std::move(action)); }};
  FileManager fileManager;
  AuthorizationServices authorizationServices{directCall, log};
  Workspace workspace{bundles, log, directCall};
  ServiceManagement serviceManagement{log};
  Shell shell{directCall};
  LoggingHost loggingHost;
  Platform platform{{defaults, center, bundles, fileManager, log, &loggingHost.host},
                    application,
                    runLoop,
                    distributedCenter,
                    authorizationServices,
                    workspace,
                    serviceManagement,
                    shell};
  Installation installation{platform};
};

ProgramPlatform::ProgramPlatform(int argc, char** argv) : _parts(std::make_unique<Parts>(argc, argv)) {}

ProgramPlatform::~ProgramPlatform() = default;

void ProgramPlatform::run() {
  constexpr std::chrono::milliseconds longestSleep = std::chrono::hours(24);
  while (const auto due = _parts->runLoop.nextDue()) {
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*due - RunLoop::Clock::now());
    pollfd bus{.fd = _parts->distributedCenter.fileDescriptor(), .events = POLLIN, .revents = 0};
    ::poll(&bus, 1, static_cast<int>(std::clamp(remaining, std::chrono::milliseconds(0), longestSleep).count()));
    if (bus.revents != 0) _parts->distributedCenter.process();
    _parts->runLoop.fireWhatIsDue();
  }
}

}  // namespace platform::Linux
