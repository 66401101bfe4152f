#include "platform/linux/DistributedNotificationCenter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <deque>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/BusCall.h"
#include "platform/linux/BusValues.h"
#include "posix/Descriptor.h"
#include "protocol/Credentials.h"
#include "protocol/Notifications.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

using foundation::PropertyList::Array;
using foundation::PropertyList::Data;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* credentials = protocol::credentialsNotification;

Data bytes(std::size_t count) {
  Data data(count);
  for (std::size_t i = 0; i < count; ++i) data[i] = static_cast<std::byte>(i * 7);
  return data;
}

// A program in the session: a centre with a run loop that does what the real one does with it, and no more. It calls
// `process` only when the descriptor is readable.
class Program {
 public:
  explicit Program(std::string identifier)
      : center(std::move(identifier), log, [this](std::function<void()> call) { _calls.push_back(std::move(call)); }) {}

  void observe(const std::string& name) {
    center.addObserver(name, [this](const foundation::Notification& notification) { received.push_back(notification); });
  }

  // One turn of the run loop.
  void turn() {
    for (auto calls = std::exchange(_calls, {}); const auto& call : calls) call();
    pollfd readable{center.fileDescriptor(), POLLIN, 0};
    if (readable.fd >= 0 && ::poll(&readable, 1, 0) > 0) center.process();
  }

  bool receives(std::size_t count) {
    return tests::eventually([&] {
      turn();
      return received.size() >= count;
    });
  }

  // Turns until another program, which posts now, has been heard: what was sent to this one before has then arrived too.
  bool receivesMarkerFrom(Program& other) {
    bool isMarked = false;
    center.addObserver("marker", [&](const foundation::Notification&) { isMarked = true; });
    return other.center.post({"marker", {}, {}}) && tests::eventually([&] {
             turn();
             return isMarked;
           });
  }

  std::size_t pendingCalls() const { return _calls.size(); }

  fake::FakeSystemLog log;
  std::vector<foundation::Notification> received;

 private:
  std::deque<std::function<void()>> _calls;

 public:
  platform::Linux::DistributedNotificationCenter center;
};

class DistributedNotifications : public testing::Test {
 protected:
  tests::PrivateBus bus;
  Program installer{"com.kelto.Installer"};
  Program controller{"com.kelto.Controller"};
};

TEST_F(DistributedNotifications, ABroadcastReachesAnObserverInAnotherProgram) {
  installer.observe(credentials);
  ASSERT_TRUE(controller.center.post({credentials, "com.kelto.Controller", {{protocol::credentialsKey, bytes(32)}}}));
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].name, credentials);
  EXPECT_EQ(installer.received[0].object, "com.kelto.Controller");
  EXPECT_EQ(installer.received[0].userInfo, (Dictionary{{protocol::credentialsKey, bytes(32)}}));
}

TEST_F(DistributedNotifications, AnySenderObjectIsAccepted) {
  installer.observe(credentials);
  for (const auto* object : {"", "a", "an object with blanks/ä"}) controller.center.post({credentials, object, {}});
  ASSERT_TRUE(installer.receives(3));
  EXPECT_EQ(installer.received[0].object, "");
  EXPECT_EQ(installer.received[2].object, "an object with blanks/ä");
}

TEST_F(DistributedNotifications, APostBeforeTheObserverIsLost) {
  controller.center.post({credentials, "early", {}});
  installer.observe(credentials);
  controller.center.post({credentials, "late", {}});
  ASSERT_TRUE(installer.receives(1));
  ASSERT_TRUE(installer.receivesMarkerFrom(controller));
  ASSERT_EQ(installer.received.size(), 1U);
  EXPECT_EQ(installer.received[0].object, "late");
}

TEST_F(DistributedNotifications, APostRightAfterAddObserverIsDelivered) {
  for (int round = 0; round < 50; ++round) {
    Program fresh("com.kelto.Installer" + std::to_string(round));
    fresh.observe(credentials);
    ASSERT_TRUE(controller.center.post({credentials, {}, {}}));
    ASSERT_TRUE(fresh.receives(1)) << round;
  }
}

TEST_F(DistributedNotifications, OneSentToAReceiverReachesItAlone) {
  Program third("com.kelto.Third");
  installer.observe(credentials);
  third.observe(credentials);
  ASSERT_TRUE(controller.center.postTo({credentials, "private", {}}, "com.kelto.Installer"));
  ASSERT_TRUE(installer.receives(1));
  ASSERT_TRUE(third.receivesMarkerFrom(controller));
  EXPECT_TRUE(third.received.empty());
}

TEST_F(DistributedNotifications, SendingToANameThatNobodyOwnsFails) {
  EXPECT_FALSE(controller.center.postTo({credentials, {}, {}}, "com.kelto.Installer"));
  EXPECT_FALSE(controller.center.postTo({credentials, {}, {}}, "not a name"));
}

TEST_F(DistributedNotifications, TheNameIsTakenWithTheFirstObserver) {
  const auto connection = Bus::openUser();
  ASSERT_TRUE(connection);
  EXPECT_EQ(ownerOfName(connection->get(), "com.kelto.Installer"), std::nullopt);
  installer.observe(credentials);
  const auto owner = ownerOfName(connection->get(), "com.kelto.Installer");
  ASSERT_TRUE(owner);
  EXPECT_EQ(processOfConnection(connection->get(), *owner), ::getpid());
}

TEST_F(DistributedNotifications, ASecondProcessOfAnApplicationIsReachedByTheNameOfItsProcess) {
  installer.observe(credentials);
  const auto name = nameOfProcess("com.kelto.Installer", ::getpid());
  EXPECT_EQ(name, std::string("com.kelto.Installer") + protocol::processNameInfix + std::to_string(::getpid()));
  ASSERT_TRUE(controller.center.postTo({credentials, {}, {}}, name));
  EXPECT_TRUE(installer.receives(1));
}

TEST_F(DistributedNotifications, NamesThatWereGivenUpAreFreeForAnother) {
  installer.observe(credentials);
  installer.center.giveUpNames();
  ASSERT_TRUE(tests::eventually([&] {
    installer.turn();
    return !controller.center.postTo({credentials, {}, {}}, "com.kelto.Installer") &&
           !controller.center.postTo({credentials, {}, {}}, nameOfProcess("com.kelto.Installer", ::getpid()));
  }));
  Program second("com.kelto.Installer");
  second.observe(credentials);
  ASSERT_TRUE(controller.center.postTo({credentials, {}, {}}, "com.kelto.Installer"));
  EXPECT_TRUE(second.receives(1));
}

TEST_F(DistributedNotifications, AnotherOwnerOfTheNameIsFine) {
  installer.observe(credentials);
  Program second("com.kelto.Installer");
  second.observe(credentials);
  controller.center.post({credentials, {}, {}});
  EXPECT_TRUE(installer.receives(1));
  EXPECT_TRUE(second.receives(1));
  EXPECT_TRUE(second.log.lines.empty());
}

TEST_F(DistributedNotifications, AnIdentifierThatIsNotABusNameIsLoggedAndBroadcastsStillArrive) {
  Program odd("installer");
  odd.observe(credentials);
  controller.center.post({credentials, {}, {}});
  EXPECT_TRUE(odd.receives(1));
  EXPECT_THAT(odd.log.lines, ElementsAre(HasSubstr("installer")));
}

TEST_F(DistributedNotifications, OtherNamesAreNotHeard) {
  installer.observe(credentials);
  controller.center.post({"another", {}, {}});
  controller.center.post({std::string(credentials) + "2", {}, {}});
  ASSERT_TRUE(installer.receivesMarkerFrom(controller));
  EXPECT_TRUE(installer.received.empty());
}

TEST_F(DistributedNotifications, ANameMayHoldQuotes) {
  installer.observe("it's, \"quoted\"");
  controller.center.post({"it's, \"quoted\"", {}, {}});
  EXPECT_TRUE(installer.receives(1));
}

TEST_F(DistributedNotifications, EveryObserverOfANameIsCalledInOrder) {
  std::string order;
  installer.center.addObserver(credentials, [&](const foundation::Notification&) { order += "1"; });
  installer.center.addObserver(credentials, [&](const foundation::Notification&) { order += "2"; });
  installer.observe(credentials);
  controller.center.post({credentials, {}, {}});
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(order, "12");
}

TEST_F(DistributedNotifications, ManyArriveInOrder) {
  installer.observe(credentials);
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(controller.center.post({credentials, std::to_string(i), {}}));
  ASSERT_TRUE(installer.receives(2000));
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(installer.received[i].object, std::to_string(i));
}

TEST_F(DistributedNotifications, AFloodLeavesTheRunLoopItsTurn) {
  installer.observe(credentials);
  installer.turn();
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(controller.center.post({credentials, {}, {}}));
  // The bus's answers, first to the one who sent them, then to the one who hears them, come after them all, so that every
  // one has been read now.
  ASSERT_FALSE(controller.center.postTo({credentials, {}, {}}, "com.kelto.Nobody"));
  ASSERT_FALSE(installer.center.postTo({credentials, {}, {}}, "com.kelto.Nobody"));
  installer.center.process();
  EXPECT_GT(installer.pendingCalls(), 100U);
  EXPECT_LT(installer.pendingCalls(), 300U);
  EXPECT_TRUE(installer.receives(1000));
}

TEST_F(DistributedNotifications, LargeDataArrivesWhole) {
  installer.observe(credentials);
  const Data large = bytes(8U << 20U);
  ASSERT_TRUE(controller.center.post({credentials, {}, {{"data", large}}}));
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].userInfo, (Dictionary{{"data", large}}));
}

TEST_F(DistributedNotifications, HugeDataIsRefusedAndTheNextOneArrives) {
  installer.observe(credentials);
  ASSERT_TRUE(controller.center.post({credentials, "huge", {{"data", bytes(maximumBusBytes + 1)}}}));
  ASSERT_TRUE(controller.center.post({credentials, "next", {}}));
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].object, "next");
  EXPECT_THAT(installer.log.lines, ElementsAre(HasSubstr("refused")));
}

TEST_F(DistributedNotifications, EveryKindOfValueArrivesButDates) {
  installer.observe(credentials);
  const Dictionary inner{{"empty", Array{}}, {"data", Data{}}, {"text", "ä"}};
  Dictionary userInfo{{"text", "hello"}, {"yes", true},      {"no", false},    {"number", std::int64_t{-1} << 62},
                      {"real", 0.1},     {"data", bytes(3)}, {"inner", inner}, {"list", Array{"a", 1, Array{true}, inner}}};
  Dictionary posted = userInfo;
  posted.insert_or_assign("date", foundation::Date{});
  posted.insert_or_assign("dates", Array{foundation::Date{}, "b"});
  userInfo.insert_or_assign("dates", Array{"b"});
  ASSERT_TRUE(controller.center.post({credentials, {}, posted}));
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].userInfo, userInfo);
}

TEST_F(DistributedNotifications, TextThatTheBusCannotCarryIsNotPosted) {
  const std::string zero("a\0b", 3);
  EXPECT_FALSE(controller.center.post({zero, {}, {}}));
  EXPECT_FALSE(controller.center.post({credentials, zero, {}}));
  EXPECT_FALSE(controller.center.post({credentials, {}, {{"key", zero}}}));
  EXPECT_FALSE(controller.center.post({credentials, {}, {{zero, 1}}}));
  EXPECT_FALSE(controller.center.post({credentials, "\xFF", {}}));
  EXPECT_TRUE(controller.center.post({credentials, {}, {}}));
}

TEST_F(DistributedNotifications, AHandlerNeverRunsInsideACall) {
  bool isCalled = false;
  installer.center.addObserver(credentials, [&](const foundation::Notification&) { isCalled = true; });
  for (int i = 0; i < 20; ++i) {
    controller.center.post({credentials, {}, {}});
    installer.center.addObserver("another " + std::to_string(i), [](const foundation::Notification&) {});
    installer.center.post({credentials, {}, {}});
    installer.center.postTo({credentials, {}, {}}, "com.kelto.Installer");
  }
  installer.center.process();
  EXPECT_FALSE(isCalled);
  EXPECT_TRUE(tests::eventually([&] {
    installer.turn();
    return isCalled;
  }));
}

// Waiting for the bus's answer reads whatever comes before it; the descriptor is silent about that afterwards.
TEST_F(DistributedNotifications, APostThatArrivesDuringAQuestionToTheBusIsDelivered) {
  installer.observe(credentials);
  installer.turn();
  ASSERT_TRUE(controller.center.post({credentials, {}, {}}));
  pollfd readable{installer.center.fileDescriptor(), POLLIN, 0};
  ASSERT_EQ(::poll(&readable, 1, 20'000), 1);
  installer.center.postTo({"question", {}, {}}, "com.kelto.Nobody");
  EXPECT_EQ(::poll(&readable, 1, 0), 0);
  EXPECT_TRUE(installer.receives(1));
}

TEST_F(DistributedNotifications, AProgramHearsItself) {
  installer.observe(credentials);
  installer.center.post({credentials, "self", {}});
  EXPECT_TRUE(installer.receives(1));
}

TEST_F(DistributedNotifications, ABrokenConnectionIsLoggedOnceAndLeavesNoDescriptor) {
  installer.observe(credentials);
  installer.turn();
  bus.stop();
  EXPECT_TRUE(tests::eventually([&] {
    installer.turn();
    return installer.center.fileDescriptor() == -1;
  }));
  installer.center.process();
  EXPECT_EQ(installer.log.lines.size(), 1U);
  EXPECT_FALSE(installer.center.post({credentials, {}, {}}));
  EXPECT_FALSE(installer.center.postTo({credentials, {}, {}}, "com.kelto.Controller"));
}

TEST_F(DistributedNotifications, CallsThatOutliveTheCentreDoNothing) {
  std::deque<std::function<void()>> calls;
  fake::FakeSystemLog log;
  bool isCalled = false;
  {
    platform::Linux::DistributedNotificationCenter center("com.kelto.Short", log,
                                                          [&](auto call) { calls.push_back(std::move(call)); });
    center.addObserver(credentials, [&](const foundation::Notification&) { isCalled = true; });
    controller.center.post({credentials, {}, {}});
    ASSERT_TRUE(tests::eventually([&] {
      center.process();
      return calls.size() > 1;
    }));
  }
  for (const auto& call : calls) call();
  EXPECT_FALSE(isCalled);
}

// A signal with these contents, as no program with this centre would send it.
class ForeignSignals : public DistributedNotifications {
 protected:
  ForeignSignals() : connection(*Bus::openUser()) { installer.observe(credentials); }

  template <class... Arguments>
  void send(const char* types, Arguments... arguments) {
    ASSERT_GE(sd_bus_emit_signal(connection.get(), protocol::notificationsPath, protocol::notificationsInterface,
                                 protocol::notificationSignal, types, arguments...),
              0);
    sd_bus_flush(connection.get());
  }

  Bus connection;
};

TEST_F(ForeignSignals, OtherIntegersAndListsOfStringsAreRead) {
  send("ssa{sv}", credentials, "", 4, "i", "i", -5, "u", "u", 4'000'000'000U, "t", "t", std::uint64_t{7}, "as", "as", 2,
       "a", "b");
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].userInfo,
            (Dictionary{{"i", -5}, {"u", std::int64_t{4'000'000'000}}, {"t", std::int64_t{7}}, {"as", Array{"a", "b"}}}));
}

TEST_F(ForeignSignals, ValuesOfOtherTypesAreLeftOut) {
  send("ssa{sv}", credentials, "", 6, "o", "o", "/path", "n", "n", 3, "struct", "(si)", "a", 1, "map", "a{is}", 1, 1, "x",
       "large", "t", UINT64_MAX, "text", "s", "kept");
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].userInfo, (Dictionary{{"text", "kept"}}));
}

TEST_F(ForeignSignals, AnotherSignatureIsRefused) {
  send("ss", credentials, "");
  send("sss", credentials, "", "");
  send("ssa{ss}", credentials, "", 0);
  send("ssa{sv}", credentials, "good", 0);
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].object, "good");
  EXPECT_EQ(installer.log.lines.size(), 3U);
}

TEST_F(ForeignSignals, ValuesNestedTooDeeplyAreLeftOut) {
  Value deep = Array{"bottom"};
  for (int i = 0; i < 18; ++i) deep = Array{deep};
  ASSERT_TRUE(controller.center.post({credentials, {}, {{"deep", deep}, {"text", "kept"}}}));
  ASSERT_TRUE(installer.receives(1));
  const auto& userInfo = installer.received[0].userInfo;
  EXPECT_EQ(userInfo.at("text"), Value("kept"));
  int depth = 0;
  for (const Value* value = &userInfo.at("deep"); value != nullptr; ++depth) {
    const auto* array = value->as<Array>();
    ASSERT_NE(array, nullptr);
    value = array->empty() ? nullptr : &array->front();
  }
  EXPECT_EQ(depth, maximumBusDepth - 1);
}

TEST_F(ForeignSignals, TooManyValuesAreRefused) {
  ASSERT_TRUE(controller.center.post({credentials, "many", {{"list", Array(maximumBusValues, Value(true))}}}));
  ASSERT_TRUE(controller.center.post({credentials, "next", {}}));
  ASSERT_TRUE(installer.receives(1));
  EXPECT_EQ(installer.received[0].object, "next");
}

TEST(DistributedNotificationsWithoutABus, AreLoggedOnceAndNotPosted) {
  const tests::ScopedEnvironment none("DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus");
  Program installer("com.kelto.Installer");
  EXPECT_EQ(installer.center.fileDescriptor(), -1);
  EXPECT_TRUE(installer.log.lines.empty());
  installer.observe(credentials);
  installer.observe("another");
  installer.turn();
  EXPECT_THAT(installer.log.lines, ElementsAre(HasSubstr("No such file or directory")));
  EXPECT_FALSE(installer.center.post({credentials, {}, {}}));
  EXPECT_FALSE(installer.center.postTo({credentials, {}, {}}, "com.kelto.Installer"));
}

// A socket that takes connections and never says a word.
TEST(DistributedNotificationsWithoutABus, ABusThatDoesNotAnswerIsGivenUp) {
  const tests::TemporaryFolder folder;
  const posix::Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, folder.path("bus").c_str());
  ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener.get(), 5), 0);
  const tests::ScopedEnvironment bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.path("bus"));
  const auto start = std::chrono::steady_clock::now();
  std::string cause;
  EXPECT_FALSE(Bus::openUser(&cause));
  EXPECT_EQ(cause, "Connection timed out");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

}  // namespace
}  // namespace platform::Linux
