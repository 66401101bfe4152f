// The broker of the machine with a policy service that hangs, is late, talks nonsense or dies: a bus of the test's own is
// the system bus, and the test is the policy service.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include "protocol/Broker.h"
#include "tests/platform/linux/AuthorizationClient.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using tests::BrokerClient;
using tests::eventually;
using Clock = std::chrono::steady_clock;

constexpr const char* brokerName = protocol::brokerBusName;

enum class Behaviour { Hangs, GrantsWhenTold, AnswersNonsense, Leaves };

// A policy service of that behaviour, in a thread of its own.
class PolicyService {
 public:
  explicit PolicyService(Behaviour behaviour) : _behaviour(behaviour), _thread([this] { serve(); }) {
    EXPECT_TRUE(eventually([this] { return _ready.load(); }));
  }
  ~PolicyService() {
    _done = true;
    _thread.join();
  }
  PolicyService(const PolicyService&) = delete;
  PolicyService& operator=(const PolicyService&) = delete;

  void answerNow() { _told = true; }

  std::atomic<int> asked = 0;
  std::atomic<int> withdrawn = 0;
  std::atomic<int> answered = 0;

 private:
  static int check(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    auto* service = static_cast<PolicyService*>(self);
    service->_open.push_back(sd_bus_message_ref(call));
    ++service->asked;
    return 1;
  }
  static int cancel(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    ++static_cast<PolicyService*>(self)->withdrawn;
    return sd_bus_reply_method_return(call, "");
  }

  void serve() {
    const char* answer = _behaviour == Behaviour::AnswersNonsense ? "s" : "(bba{ss})";
    const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("CheckAuthorization", "(sa{sv})sa{ss}us", answer, check, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("CancelCheckAuthorization", "s", "", cancel, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_open_user(&bus), 0);
    EXPECT_GE(sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/PolicyKit1/Authority",
                                       "org.freedesktop.PolicyKit1.Authority", methods, this),
              0);
    EXPECT_GE(sd_bus_request_name(bus, "org.freedesktop.PolicyKit1", 0), 0);
    _ready = true;
    while (!_done && !(_behaviour == Behaviour::Leaves && asked > 0)) {
      if (sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, 5000);
      answerOpen();
    }
    for (sd_bus_message* call : _open) sd_bus_message_unref(call);
    sd_bus_flush_close_unref(bus);
  }
  void answerOpen() {
    if (_behaviour != Behaviour::AnswersNonsense && !_told) return;
    for (sd_bus_message* call : _open) {
      if (_behaviour == Behaviour::AnswersNonsense) sd_bus_reply_method_return(call, "s", "perhaps");
      if (_behaviour == Behaviour::GrantsWhenTold) sd_bus_reply_method_return(call, "(bba{ss})", 1, 0, 0);
      sd_bus_message_unref(call);
      ++answered;
    }
    _open.clear();
  }

  Behaviour _behaviour;
  std::atomic<bool> _ready = false;
  std::atomic<bool> _done = false;
  std::atomic<bool> _told = false;
  std::vector<sd_bus_message*> _open;
  std::thread _thread;
};

// A call for the right that is waited for in a thread of its own.
class Asking {
 public:
  explicit Asking(AuthorizationFlags flags) : _thread([this, flags] { ask(flags); }) {}
  ~Asking() { finish(); }
  Asking(const Asking&) = delete;
  Asking& operator=(const Asking&) = delete;

  AuthorizationStatus finish() {
    if (_thread.joinable()) _thread.join();
    return _status;
  }
  // Only after the end.
  [[nodiscard]] std::chrono::milliseconds time() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(_time);
  }
  // Whether the session holds the right, which nobody is asked for; only after the end.
  AuthorizationStatus held() { return client.copyRight(_authorization, 0); }

  BrokerClient client;

 private:
  void ask(AuthorizationFlags flags) {
    client.services.longestWait = 200ms;
    _authorization = client.create();
    const auto start = Clock::now();
    _status = client.copyRight(_authorization, flags);
    _time = Clock::now() - start;
  }
  AuthorizationRef _authorization = 0;
  AuthorizationStatus _status = errAuthorizationSuccess;
  Clock::duration _time{};
  std::thread _thread;
};

class PolicyThat : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "the broker of the machine runs as root only";
    systemBus.emplace("DBUS_SYSTEM_BUS_ADDRESS", bus.address());
    const pid_t test = ::getpid();
    broker = ::fork();
    if (broker == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::getppid() == test)
        ::execl(KELTO_BIN_DIR "/authorizationd", "authorizationd", "--system", "--service-seconds", "1", "--person-seconds",
                "3", nullptr);
      ::_exit(127);
    }
    ASSERT_TRUE(eventually([] { return tests::isOwnedOnSessionBus(brokerName); }));
  }
  void TearDown() override {
    if (broker <= 0) return;
    ::kill(broker, SIGTERM);
    ::waitpid(broker, nullptr, 0);
  }
  static void expectServed() { EXPECT_LT(tests::medianTimeOfACall(), tests::fairTime); }

  // The bus must know the name to tell that its owner is there.
  tests::PrivateBus bus{{{brokerName, "/bin/false"}}};
  std::optional<tests::ScopedEnvironment> systemBus;
  pid_t broker = -1;
};

TEST_F(PolicyThat, HangsDelaysNobodyElse) {
  PolicyService policy(Behaviour::Hangs);
  Asking one(19);
  Asking other(19);
  ASSERT_TRUE(eventually([&] { return policy.asked == 2; }));
  expectServed();
  EXPECT_EQ(policy.answered, 0);
}

TEST_F(PolicyThat, HangsIsGivenUpAfterTheTimeForAService) {
  PolicyService policy(Behaviour::Hangs);
  Asking asking(18);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
  EXPECT_GE(asking.time(), 900ms);
  EXPECT_LT(asking.time(), 2500ms) << "a service needs no time of a person";
  EXPECT_TRUE(eventually([&] { return policy.withdrawn == 1; })) << "the question is withdrawn";
  EXPECT_EQ(asking.held(), errAuthorizationDenied);
}

TEST_F(PolicyThat, HangsIsGivenUpAfterTheTimeForAPersonWhenOneIsAsked) {
  PolicyService policy(Behaviour::Hangs);
  Asking asking(19);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
  EXPECT_GE(asking.time(), 2900ms);
  EXPECT_TRUE(eventually([&] { return policy.withdrawn == 1; }));
}

TEST_F(PolicyThat, HangsIsToldToTheOneWhoAskedOnly) {
  PolicyService policy(Behaviour::Hangs);
  tests::RawCaller asking;
  tests::RawCaller other;
  EXPECT_FALSE(asking.isAsked());
  asking.send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, asking.create(),
              kAuthorizationRightExecute, 18U);
  ASSERT_TRUE(eventually([&] { return policy.asked == 1; }));
  EXPECT_TRUE(asking.isAsked());
  EXPECT_FALSE(other.isAsked());
  EXPECT_TRUE(eventually([&] { return !asking.isAsked(); }));
}

TEST_F(PolicyThat, GrantsInTimeAlthoughSlowlyGivesTheRight) {
  PolicyService policy(Behaviour::GrantsWhenTold);
  Asking asking(19);
  ASSERT_TRUE(eventually([&] { return policy.asked == 1; }));
  expectServed();
  policy.answerNow();
  EXPECT_EQ(asking.finish(), errAuthorizationSuccess);
  EXPECT_EQ(asking.held(), errAuthorizationSuccess);
  EXPECT_EQ(policy.withdrawn, 0) << "what was answered is not withdrawn";
}

TEST_F(PolicyThat, GrantsTooLateGivesNothing) {
  PolicyService policy(Behaviour::GrantsWhenTold);
  Asking asking(18);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
  policy.answerNow();
  ASSERT_TRUE(eventually([&] { return policy.answered == 1; }));
  expectServed();
  EXPECT_EQ(asking.held(), errAuthorizationDenied);
}

TEST_F(PolicyThat, GrantsToACallerWhoIsGoneGivesNothingToAnybody) {
  PolicyService policy(Behaviour::GrantsWhenTold);
  {
    tests::RawCaller gone;
    gone.send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, gone.create(),
              kAuthorizationRightExecute, 19U);
    ASSERT_TRUE(eventually([&] { return policy.asked == 1; }));
  }
  EXPECT_TRUE(eventually([&] { return policy.withdrawn == 1; }));
  policy.answerNow();
  ASSERT_TRUE(eventually([&] { return policy.answered == 1; }));
  expectServed();
}

TEST_F(PolicyThat, AnswersNonsenseGivesAnError) {
  PolicyService policy(Behaviour::AnswersNonsense);
  Asking asking(18);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
  EXPECT_LT(asking.time(), 900ms);
}

TEST_F(PolicyThat, LeavesInTheMiddleOfAQuestionGivesAnErrorAtOnce) {
  PolicyService policy(Behaviour::Leaves);
  Asking asking(19);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
  EXPECT_LT(asking.time(), 2500ms);
}

TEST_F(PolicyThat, IsMissingGivesAnError) {
  Asking asking(18);
  EXPECT_EQ(asking.finish(), errAuthorizationInternal);
}

TEST_F(PolicyThat, HangsLeavesOneUserABoundedNumberOfOpenQuestions) {
  PolicyService policy(Behaviour::Hangs);
  tests::RawCaller caller;
  const auto handle = caller.create();
  for (int i = 0; i < 50; ++i)
    caller.send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, handle,
                kAuthorizationRightExecute, 19U);
  expectServed();
  EXPECT_TRUE(eventually([&] { return policy.asked >= 8; }));
  expectServed();
  EXPECT_EQ(policy.asked, 8);
}

}  // namespace
