// When the broker leaves: its service and its timer in the test's own event loop, on a real bus, with short times.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <csignal>
#include <string>

#include "platform/linux/authorizationd/IdleExit.h"
#include "protocol/Broker.h"
#include "tests/platform/linux/AuthorizationClient.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace platform;
using namespace platform::Linux::authorizationd;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr Time idleTime = 10ms;

// Leaves every question open, until it is told the answer.
class OpenPolicy final : public Policy {
 public:
  [[nodiscard]] bool serves(uid_t /*uid*/) const override { return true; }
  std::unique_ptr<Question> ask(const Caller& /*caller*/, Right /*right*/, bool /*interaction*/, Answer answer) override {
    open = std::move(answer);
    return std::make_unique<Question>();
  }
  Answer open;
};

class IdleBroker : public testing::Test {
 protected:
  IdleBroker() {
    sigset_t waitedFor;
    sigemptyset(&waitedFor);
    sigaddset(&waitedFor, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &waitedFor, &signals);
    EXPECT_GE(sd_event_new(&loop), 0);
    EXPECT_GE(sd_bus_open_user(&broker), 0);
    // After the timer: a call that waits at the bus is seen only when the broker looks for it.
    EXPECT_GE(sd_bus_attach_event(broker, loop, SD_EVENT_PRIORITY_NORMAL + 1), 0);
    service = std::make_unique<Service>(
        broker, loop, Service::Parts{.policy = policy, .journal = journal, .checkTool = [](int) { return ""; }},
        Lifetimes{});
    EXPECT_GE(service->publish(), 0);
    EXPECT_GE(sd_bus_request_name(broker, protocol::brokerBusName, 0), 0);
    EXPECT_GE(
        sd_bus_add_match(watcher.bus(), nullptr,
                         (std::string("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
                          protocol::brokerBusName + "'")
                             .c_str(),
                         countChange, this),
        0);
    EXPECT_GE(sd_bus_attach_event(client.bus(), loop, SD_EVENT_PRIORITY_NORMAL + 2), 0);
    EXPECT_GE(sd_bus_attach_event(watcher.bus(), loop, SD_EVENT_PRIORITY_NORMAL + 2), 0);
    EXPECT_GE(sd_bus_set_close_on_exit(client.bus(), 0), 0);
  }
  ~IdleBroker() override {
    idle.reset();
    service.reset();
    sd_bus_detach_event(client.bus());
    sd_bus_detach_event(watcher.bus());
    sd_bus_flush_close_unref(broker);
    sd_event_unref(loop);
    ::sigprocmask(SIG_SETMASK, &signals, nullptr);
  }

  void startTimer() {
    idle = std::make_unique<IdleExit>(broker, loop, *service, idleTime);
    EXPECT_GE(idle->start(), 0);
  }
  [[nodiscard]] bool hasLeft() const { return sd_event_get_state(loop) == SD_EVENT_FINISHED; }
  // Turns the loop until `condition` holds; false when it never does. The last answers of a broker that has left may still
  // be on their way.
  bool runUntil(const std::function<bool()>& condition, std::chrono::milliseconds longest = 20s) {
    const auto deadline = Clock::now() + longest;
    while (!condition() && Clock::now() < deadline && !hasLeft()) sd_event_run(loop, 2000);
    if (hasLeft()) sd_bus_detach_event(client.bus());
    while (!condition() && Clock::now() < deadline && hasLeft())
      if (sd_bus_process(client.bus(), nullptr) == 0) sd_bus_wait(client.bus(), 2000);
    return condition();
  }
  // For many idle times the broker stays and never even gives up its name.
  void expectStays() {
    const int before = changes;
    EXPECT_FALSE(runUntil([this, before] { return changes != before; }, 700ms));
    EXPECT_FALSE(hasLeft());
  }
  void expectLeaves() {
    EXPECT_TRUE(runUntil([this] { return hasLeft(); }));
  }
  // Calls a method of the broker; its number in the answer.
  template <class... Values>
  std::uint64_t call(const char* method, const char* types, Values... values) {
    send(method, types, values...);
    answered = false;
    EXPECT_TRUE(runUntil([this] { return answered; })) << method;
    return number;
  }
  template <class... Values>
  void send(const char* method, const char* types, Values... values) {
    sd_bus_message* message = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(client.bus(), &message, brokerName(), protocol::brokerObjectPath,
                                             protocol::brokerInterface, method),
              0);
    EXPECT_GE(sd_bus_message_append(message, types, values...), 0);
    EXPECT_GE(sd_bus_call_async(client.bus(), nullptr, message, keepAnswer, this, 0), 0);
    sd_bus_message_unref(message);
    EXPECT_GE(sd_bus_flush(client.bus()), 0);
  }
  [[nodiscard]] const char* brokerName() const {
    const char* name = nullptr;
    sd_bus_get_unique_name(broker, &name);
    return name;
  }

  static int countChange(sd_bus_message* /*signal*/, void* self, sd_bus_error* /*error*/) {
    ++static_cast<IdleBroker*>(self)->changes;
    return 0;
  }
  static int keepAnswer(sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
    auto* test = static_cast<IdleBroker*>(self);
    test->answered = true;
    test->isError = sd_bus_message_is_method_error(reply, nullptr) != 0;
    std::uint32_t status = 0;
    int borrowed = -1;
    if (sd_bus_message_has_signature(reply, "t") != 0) sd_bus_message_read(reply, "t", &test->number);
    if (sd_bus_message_has_signature(reply, "u") != 0) {
      sd_bus_message_read(reply, "u", &status);
      test->number = status;
    }
    if (sd_bus_message_has_signature(reply, "h") != 0 && sd_bus_message_read(reply, "h", &borrowed) >= 0) {
      test->stream = posix::Descriptor(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3));
    }
    return 0;
  }

  sigset_t signals{};
  tests::PrivateBus bus;
  sd_event* loop = nullptr;
  sd_bus* broker = nullptr;
  // Nobody listens there.
  Journal journal{{.journal = "/nowhere/journal", .log = "/nowhere/log"}, -1, [] { return std::chrono::microseconds(0); }};
  OpenPolicy policy;
  std::unique_ptr<Service> service;
  std::unique_ptr<IdleExit> idle;
  tests::RawCaller client;
  tests::RawCaller watcher;
  int changes = 0;
  bool answered = false;
  bool isError = false;
  std::uint64_t number = 0;
  posix::Descriptor stream;
};

TEST_F(IdleBroker, LeavesWhenNothingIsHeld) {
  startTimer();
  expectLeaves();
}

TEST_F(IdleBroker, StaysWhileAHandleIsHeldAndLeavesAfterwards) {
  const auto handle = call(protocol::brokerMethod::create.name, "");
  startTimer();
  expectStays();
  EXPECT_EQ(call(protocol::brokerMethod::free.name, "tu", handle, 8U), 0U);
  expectLeaves();
}

TEST_F(IdleBroker, StaysWhileAQuestionIsOpenAlthoughItsHandleIsGone) {
  const auto handle = call(protocol::brokerMethod::create.name, "");
  startTimer();
  send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, handle,
       kAuthorizationRightExecute, 18U);
  EXPECT_TRUE(runUntil([this] { return static_cast<bool>(policy.open); }));
  EXPECT_EQ(call(protocol::brokerMethod::free.name, "tu", handle, 8U), 0U);
  expectStays();
  answered = false;
  policy.open(errAuthorizationSuccess);
  EXPECT_TRUE(runUntil([this] { return answered; }));
  EXPECT_EQ(static_cast<AuthorizationStatus>(number), errAuthorizationInvalidRef) << "who freed the handle gets nothing";
  expectLeaves();
}

TEST_F(IdleBroker, StaysWhileAToolRunsAlthoughItsHandleIsGone) {
  const auto handle = call(protocol::brokerMethod::create.name, "");
  startTimer();
  send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, handle,
       kAuthorizationRightExecute, 18U);
  EXPECT_TRUE(runUntil([this] { return static_cast<bool>(policy.open); }));
  answered = false;
  policy.open(errAuthorizationSuccess);
  EXPECT_TRUE(runUntil([this] { return answered; }));
  const posix::Descriptor tool(::open(KELTO_BIN_DIR "/authorization_probe", O_PATH | O_CLOEXEC));
  call(protocol::brokerMethod::executeWithPrivileges.name, protocol::brokerMethod::executeWithPrivileges.takes, handle,
       tool.get(), 0U);
  ASSERT_TRUE(stream);
  EXPECT_EQ(call(protocol::brokerMethod::free.name, "tu", handle, 8U), 0U);
  expectStays();
  stream.reset();
  expectLeaves();
}

// The call waits at the broker's end of the bus when the timer runs out, and is found before the broker goes.
TEST_F(IdleBroker, AnswersACallThatCameAtTheLastMomentAndStays) {
  send(protocol::brokerMethod::create.name, "");
  sd_bus_call_method(watcher.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                     nullptr, nullptr, "");
  startTimer();
  const auto deadline = Clock::now() + idleTime;
  while (Clock::now() < deadline) continue;
  ASSERT_TRUE(runUntil([this] { return answered; }));
  EXPECT_FALSE(isError);
  ASSERT_TRUE(runUntil([this] { return changes == 2; })) << "the name is given up and taken back";
  expectStays();
}

TEST_F(IdleBroker, ARefusedCallDoesNotKeepIt) {
  send(protocol::brokerMethod::free.name, "tu", std::uint64_t{7}, 8U);
  sd_bus_call_method(watcher.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                     nullptr, nullptr, "");
  startTimer();
  expectLeaves();
}

}  // namespace
