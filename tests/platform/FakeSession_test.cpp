// The fakes of the session and the machine, held to the contracts.
#include "platform/fake/FakePlatform.h"
#include "tests/platform/contracts/AuthorizationContract.h"
#include "tests/platform/contracts/BundlesContract.h"
#include "tests/platform/contracts/DistributedNotificationCenterContract.h"
#include "tests/platform/contracts/ServiceManagementContract.h"
#include "tests/platform/contracts/ShellContract.h"
#include "tests/platform/contracts/SystemLogContract.h"
#include "tests/platform/contracts/UserDefaultsContract.h"
#include "tests/platform/contracts/WorkspaceContract.h"

using namespace tests::contracts;

namespace {

class FakeDefaults {
 public:
  FakeDefaults() { _unstorable.refusesToStore = true; }
  platform::UserDefaults& defaults() { return _defaults; }
  platform::UserDefaults& unstorable() { return _unstorable; }

 private:
  platform::fake::FakeUserDefaults _defaults;
  platform::fake::FakeUserDefaults _unstorable;
};

class FakeBundleWorld {
 public:
  FakeBundleWorld() {
    auto bundle = std::make_shared<platform::fake::FakeBundle>();
    bundle->path = path();
    bundle->info = {{"CFBundleIdentifier", "com.kelto.test"}, {"CFBundleName", "Test"}, {"Number", 7}};
    bundle->resources = {{"thing.txt", path() + "/thing.txt"}, {"tool", path() + "/tool"}};
    bundle->strings["hello"] = "Hello";
    bundle->tables["More"]["hello"] = "Other";
    _bundles.others[path()] = bundle;
  }
  platform::Bundles& bundles() { return _bundles; }
  [[nodiscard]] static std::string path() { return "/Test.app"; }

 private:
  platform::fake::FakeBundles _bundles;
};

class FakeNotifications {
 public:
  platform::DistributedNotificationCenter& observer() { return _parts.distributedNotificationCenter; }
  platform::DistributedNotificationCenter& poster() { return _parts.distributedNotificationCenter; }
  template <class Condition>
  bool waitFor(Condition condition) {
    settle();
    return condition();
  }
  bool settle() {
    _parts.runLoop.runPending();
    return true;
  }
  void disconnect() { _parts.distributedNotificationCenter.isConnected = false; }

 private:
  platform::fake::FakeParts _parts;
};

class FakeServices {
 public:
  platform::ServiceManagement& services() { return _services; }
  void start(const std::string& label) { _services.jobs[label] = {{"Label", label}, {"PID", 42}}; }
  void stop(const std::string& label) { _services.jobs[label] = {{"Label", label}}; }
  void disconnect() { _services.isReachable = false; }

 private:
  platform::fake::FakeServiceManagement _services;
};

class FakeShellWorld {
 public:
  FakeShellWorld() {
    _shell.whileRunning = [this](const std::string& line) { _shell.status = line == "exit 3" ? 3 << 8 : 0; };
  }
  platform::Shell& shell() { return _shell; }

 private:
  platform::fake::FakeShell _shell;
};

class FakeLog {
 public:
  platform::SystemLog& log() { return _log; }
  [[nodiscard]] std::vector<std::string> lines() const { return _log.lines; }

 private:
  platform::fake::FakeSystemLog _log;
};

class FakeApplications {
 public:
  FakeApplications() { _workspace.applications[launchedPath()] = identifier(); }

  platform::Workspace& workspace() { return _workspace; }
  [[nodiscard]] static std::string identifier() { return "com.kelto.test"; }
  [[nodiscard]] static std::string launchedPath() { return "/Test.app"; }
  [[nodiscard]] static std::string missingPath() { return "/Missing.app"; }
  void start(bool quits) {
    _copy = std::make_shared<platform::fake::FakeRunningApplication>();
    _copy->quitsWhenAsked = quits;
    _workspace.running[identifier()].push_back(_copy);
  }
  void crash() { _copy->isRunning = false; }
  bool hasBeenLaunched() { return _workspace.runningApplications(identifier()).size() == 1; }
  template <class Condition>
  bool waitFor(Condition condition) {
    return condition();
  }

 private:
  platform::fake::FakeWorkspace _workspace;
  std::shared_ptr<platform::fake::FakeRunningApplication> _copy;
};

class FakeAuthorizationWorld {
 public:
  FakeAuthorizationWorld() {
    _services.tool = [] {
      auto stream = std::make_unique<platform::fake::FakeByteStream>();
      stream->chunks = {"xxxxxx"};
      return stream;
    };
  }
  platform::AuthorizationServices& services() { return _services; }
  platform::AuthorizationServices& other() { return _services; }
  [[nodiscard]] static std::string tool() { return "/tool"; }

 private:
  platform::fake::FakeAuthorizationServices _services;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, UserDefaultsContract, FakeDefaults);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, BundlesContract, FakeBundleWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, DistributedNotificationCenterContract, FakeNotifications);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ServiceManagementContract, FakeServices);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ShellContract, FakeShellWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, SystemLogContract, FakeLog);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, WorkspaceContract, FakeApplications);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, AuthorizationContract, FakeAuthorizationWorld);

TEST(FakeUserDefaults, AChangeOfAnotherProgramIsSeenButDoesNotCount) {
  platform::fake::FakeUserDefaults defaults;
  const std::uint64_t before = *defaults.generation();
  defaults.values.insert_or_assign("key", 1);
  EXPECT_EQ(defaults.integerForKey("key"), 1);
  EXPECT_EQ(*defaults.generation(), before);
}
