#pragma once
// The platform for tests: a virtual clock, recorded windows and alerts, in-memory files and defaults. Nothing here touches
// the machine. One thread.
//
// Make a FakePlatform, set up its parts, and it is installed as the process's platform for as long as it lives. All parts
// share the clock, which only tests move, and the journal, which holds the calls in the order in which they came.
#include "platform/Platform.h"
#include "platform/fake/CallJournal.h"
#include "platform/fake/FakeAuthorization.h"
#include "platform/fake/FakeFileManager.h"
#include "platform/fake/FakeLogging.h"
#include "platform/fake/FakeRunLoop.h"
#include "platform/fake/FakeSession.h"
#include "platform/fake/FakeUserInterface.h"

namespace platform::fake {

struct FakeParts {
  FakeClock clock;
  CallJournal journal;
  FakeRunLoop runLoop{clock};
  FakeUserDefaults defaults;
  foundation::NotificationCenter notificationCenter;
  FakeDistributedNotificationCenter distributedNotificationCenter{runLoop, &journal};
  FakeApplication application{notificationCenter, runLoop, &journal};
  FakeBundles bundles;
  FakeFileManager files{&journal};
  FakeAuthorizationServices authorization{&journal};
  FakeWorkspace workspace{&journal};
  FakeServiceManagement services{&journal};
  FakeShell shell{&journal};
  FakeSystemLog systemLog;
  FakeLoggingHost logging;
};

// The parts of a platform that are not fakes; nullptr for those that are.
struct RealParts {
  UserDefaults* defaults = nullptr;
  Bundles* bundles = nullptr;
  FileManager* files = nullptr;
  Application* application = nullptr;
  foundation::RunLoop* runLoop = nullptr;
  LoggingHost* loggingHost = nullptr;
};

// A platform of fakes with some real parts. It is not installed; both kinds of parts have to outlive it.
Platform platformOf(FakeParts& fakes, const RealParts& real);

class FakePlatform : public FakeParts {
 public:
  // Threads that log meanwhile find `host`, or else the fake one, from the first moment on.
  explicit FakePlatform(LoggingHost* host = nullptr) : platform(platformOf(*this, {.loggingHost = host})) {}

  // Lets the debug diagnostics through to `systemLog`: a development build with logging level 7.
  void enableDebugLogging();

  Platform platform;

 private:
  Installation _installation{platform};
};

}  // namespace platform::fake
