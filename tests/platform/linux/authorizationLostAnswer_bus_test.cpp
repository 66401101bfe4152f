// A broker that takes a call and does not answer: the test is the broker.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <chrono>
#include <string_view>
#include <thread>

#include "protocol/Broker.h"
#include "tests/platform/linux/AuthorizationClient.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace brokerMethod = protocol::brokerMethod;

// The broker's answer when it is asked whether it is asking somebody. It may have answered the call just before; one that
// is stuck says nothing at all from the first call for the right on, and an old one does not know the question.
enum class Says { AskingNobody, AskingSomebody, AskingNobodyAnyMore, Nothing, Unknown };

class SilentBroker {
 public:
  // Answers a call for the right when it has been asked about it so often.
  static constexpr int enough = 3;

  explicit SilentBroker(Says says) : _says(says), _thread([this] { serve(); }) {
    EXPECT_TRUE(tests::eventually([this] { return _ready.load(); }));
  }
  ~SilentBroker() {
    _done = true;
    _thread.join();
  }
  SilentBroker(const SilentBroker&) = delete;
  SilentBroker& operator=(const SilentBroker&) = delete;

  std::atomic<int> questions = 0;

 private:
  static int create(sd_bus_message* call, void* /*self*/, sd_bus_error* /*error*/) {
    return sd_bus_reply_method_return(call, "t", std::uint64_t{7});
  }
  static int take(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    auto* broker = static_cast<SilentBroker*>(self);
    broker->_taken.reset(sd_bus_message_ref(call));
    return 1;
  }
  static int isAsking(sd_bus_message* call, void* self, sd_bus_error* /*error*/) {
    const bool isAsking = static_cast<SilentBroker*>(self)->_says == Says::AskingSomebody;
    return sd_bus_reply_method_return(call, "b", static_cast<int>(isAsking));
  }
  static int count(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    auto* broker = static_cast<SilentBroker*>(self);
    const char* member = sd_bus_message_get_member(message);
    if (member == nullptr || std::string_view(member) != brokerMethod::isAsking.name) return 0;
    const int last = broker->_says == Says::AskingNobodyAnyMore ? 1 : enough;
    if (++broker->questions == last && broker->_says != Says::AskingNobody)
      sd_bus_reply_method_return(broker->_taken.get(), "u", 0U);
    return 0;
  }

  void serve() {
    const char* asking = _says == Says::Unknown ? "Another" : brokerMethod::isAsking.name;
    const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD(brokerMethod::create.name, "", "t", create, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD(brokerMethod::copyRights.name, brokerMethod::copyRights.takes, "u", take, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD(brokerMethod::executeWithPrivileges.name, brokerMethod::executeWithPrivileges.takes, "h", take,
                      SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD(asking, "", "b", isAsking, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    sd_bus* bus = nullptr;
    EXPECT_GE(sd_bus_open_user(&bus), 0);
    EXPECT_GE(sd_bus_add_object_vtable(bus, nullptr, protocol::brokerObjectPath, protocol::brokerInterface, methods, this),
              0);
    EXPECT_GE(sd_bus_add_filter(bus, nullptr, count, this), 0);
    EXPECT_GE(sd_bus_request_name(bus, protocol::brokerBusName, 0), 0);
    _ready = true;
    while (!_done) {
      const bool isStuck = _says == Says::Nothing && _taken;
      if (isStuck || sd_bus_process(bus, nullptr) == 0) sd_bus_wait(bus, 2000);
    }
    _taken.reset();
    sd_bus_flush_close_unref(bus);
  }

  const Says _says;
  platform::Linux::BusMessage _taken;
  std::atomic<bool> _ready = false;
  std::atomic<bool> _done = false;
  std::thread _thread;
};

class LostAnswer : public testing::Test {
 protected:
  LostAnswer() { client.services.longestWait = 100ms; }

  void expectGivenUp(AuthorizationStatus status, Clock::time_point begun) {
    EXPECT_EQ(status, errAuthorizationInternal);
    EXPECT_GE(Clock::now() - begun, 100ms);
    EXPECT_LT(Clock::now() - begun, 10s);
    EXPECT_THAT(client.services.cause(), testing::HasSubstr("the broker does not answer"));
  }

  // The bus must know the name to tell that its owner is there.
  tests::PrivateBus bus{{{protocol::brokerBusName, "/bin/false"}}};
  tests::BrokerClient client;
};

constexpr AuthorizationFlags withAPerson = 19;
constexpr AuthorizationFlags withoutAPerson = 18;

TEST_F(LostAnswer, OfACallForTheRightIsGivenUpWhenNobodyIsAsked) {
  for (const auto flags : {withAPerson, withoutAPerson}) {
    SilentBroker broker(Says::AskingNobody);
    const auto begun = Clock::now();
    expectGivenUp(client.copyRight(client.create(), flags), begun);
  }
}

TEST_F(LostAnswer, OfACallForAToolIsGivenUpWhenNobodyIsAsked) {
  SilentBroker broker(Says::AskingNobody);
  std::unique_ptr<ByteStream> stream;
  const auto begun = Clock::now();
  expectGivenUp(client.services.executeWithPrivileges(client.create(), "/bin/true", 0, stream), begun);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(LostAnswer, IsNotLostWhileSomebodyIsAsked) {
  SilentBroker broker(Says::AskingSomebody);
  EXPECT_EQ(client.copyRight(client.create(), withAPerson), errAuthorizationSuccess);
  EXPECT_EQ(broker.questions, SilentBroker::enough);
}

TEST_F(LostAnswer, IsNotLostWhenItComesRightBeforeTheBrokerAsksNobodyAnyMore) {
  SilentBroker broker(Says::AskingNobodyAnyMore);
  EXPECT_EQ(client.copyRight(client.create(), withAPerson), errAuthorizationSuccess);
}

TEST_F(LostAnswer, OfABrokerThatIsStuckIsGivenUp) {
  SilentBroker broker(Says::Nothing);
  const auto begun = Clock::now();
  expectGivenUp(client.copyRight(client.create(), withAPerson), begun);
}

TEST_F(LostAnswer, OfAnOldBrokerHasTheWholeTime) {
  SilentBroker broker(Says::Unknown);
  EXPECT_EQ(client.copyRight(client.create(), withAPerson), errAuthorizationSuccess);
  EXPECT_EQ(broker.questions, SilentBroker::enough);
}

}  // namespace
