// The interfaces that speak over a message bus on this system, held to the contracts.
#include <poll.h>
#include <sys/stat.h>

#include <deque>

#include "platform/linux/AuthorizationServices.h"
#include "platform/linux/DistributedNotificationCenter.h"
#include "platform/linux/ServiceManagement.h"
#include "protocol/Broker.h"
#include "tests/platform/contracts/AuthorizationContract.h"
#include "tests/platform/contracts/DistributedNotificationCenterContract.h"
#include "tests/platform/contracts/ServiceManagementContract.h"
#include "tests/platform/linux/Applications.h"
#include "tests/support/TemporaryFolder.h"

using namespace tests::contracts;
using tests::TestProgram;

namespace {

// Two programs of one session; the observer's calls wait for a turn of its run loop.
class RealNotifications {
 public:
  platform::DistributedNotificationCenter& observer() { return _observer; }
  platform::DistributedNotificationCenter& poster() { return _poster; }
  template <class Condition>
  bool waitFor(Condition condition) {
    return tests::eventually([&] {
      turn();
      return condition();
    });
  }
  // A notification that arrives was sent after all that was posted before.
  bool settle() {
    bool hasArrived = false;
    _observer.addObserver("settled", [&](const foundation::Notification&) { hasArrived = true; });
    return _poster.post({"settled", {}, {}}) && waitFor([&] { return hasArrived; });
  }
  void disconnect() { _bus.stop(); }

 private:
  void turn() {
    for (auto calls = std::exchange(_calls, {}); const auto& call : calls) call();
    pollfd readable{_observer.fileDescriptor(), POLLIN, 0};
    if (readable.fd >= 0 && ::poll(&readable, 1, 0) > 0) _observer.process();
  }

  tests::PrivateBus _bus;
  platform::fake::FakeSystemLog _log;
  std::deque<std::function<void()>> _calls;
  platform::Linux::DistributedNotificationCenter _observer{
      "com.kelto.Observer", _log, [this](std::function<void()> call) { _calls.push_back(std::move(call)); }};
  platform::Linux::DistributedNotificationCenter _poster{"com.kelto.Poster", _log, [](const std::function<void()>&) {}};
};

class RealServices {
 public:
  platform::ServiceManagement& services() { return _services; }
  void start(const std::string& /*label*/) { run("4711"); }
  void stop(const std::string& /*label*/) { run("0"); }
  void disconnect() { _bus.stop(); }

 private:
  void run(const std::string& mainProcess) {
    _manager = std::make_unique<TestProgram>(
        std::vector<std::string>{KELTO_BIN_DIR "/test_application", "manager", "loaded", mainProcess});
    EXPECT_TRUE(_manager->isReady());
  }

  tests::PrivateBus _bus;
  tests::ScopedEnvironment _system{"DBUS_SYSTEM_BUS_ADDRESS", _bus.address()};
  platform::fake::FakeSystemLog _log;
  platform::Linux::ServiceManagement _services{_log};
  std::unique_ptr<TestProgram> _manager;
};

class RealAuthorization {
 public:
  RealAuthorization() {
    std::filesystem::copy_file(KELTO_BIN_DIR "/authorization_probe", _tool);
    EXPECT_EQ(::chmod(_tool.c_str(), 0755), 0);
  }
  platform::AuthorizationServices& services() { return _services; }
  platform::AuthorizationServices& other() { return _other; }
  [[nodiscard]] std::string tool() const { return _tool; }

 private:
  tests::TemporaryFolder _tools;
  tests::PrivateBus _bus{{{protocol::brokerBusName, KELTO_BIN_DIR "/authorizationd --session --tools " + _tools.path()}}};
  const std::string _tool = _tools.path("probe");
  platform::Linux::DirectCall _direct;
  platform::fake::FakeSystemLog _log;
  platform::Linux::AuthorizationServices _services{_direct, _log};
  platform::Linux::AuthorizationServices _other{_direct, _log};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, DistributedNotificationCenterContract, RealNotifications);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, ServiceManagementContract, RealServices);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, AuthorizationContract, RealAuthorization);
