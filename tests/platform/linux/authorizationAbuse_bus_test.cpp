// The broker on a bus of its own, while a program does what no program should: everybody else is served as before.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "protocol/Broker.h"
#include "tests/platform/linux/AuthorizationClient.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace platform;
using testing::Contains;
using testing::HasSubstr;
using tests::BrokerClient;
using tests::eventually;
using tests::fairTime;
using tests::isOwnedOnSessionBus;
using tests::medianTimeOfACall;
using tests::RawCaller;

const std::string brokerProgram = KELTO_BIN_DIR "/authorizationd";
constexpr const char* brokerName = protocol::brokerBusName;
constexpr const char* deniedError = protocol::brokerErrorForStatus(errAuthorizationDenied);

std::string bytesOf(const AuthorizationExternalForm& form) {
  return {reinterpret_cast<const char*>(form.bytes.data()), form.bytes.size()};
}

std::string randomBytes(std::size_t length) {
  std::string bytes(length, '\0');
  EXPECT_EQ(::getrandom(bytes.data(), length, 0), static_cast<ssize_t>(length));
  return bytes;
}

class AuthorizationAbuse : public testing::Test {
 protected:
  std::filesystem::path probe() {
    const std::filesystem::path path = tools.path("probe");
    std::filesystem::copy_file(KELTO_BIN_DIR "/authorization_probe", path);
    return path;
  }
  // Only the broker's answer to a program that comes later says that it has seen everything sent before.
  void expectServed() { EXPECT_LT(medianTimeOfACall(), fairTime); }
  // With nothing held any more the broker leaves, and the bus starts it when it is needed again.
  static void expectNothingKept() {
    EXPECT_TRUE(eventually([] { return !isOwnedOnSessionBus(brokerName); })) << "the broker keeps something";
  }

  tests::TemporaryFolder tools;
  tests::PrivateBus bus{{{brokerName, brokerProgram + " --session --idle-seconds 1 --tools " + tools.path()}}};
};

TEST_F(AuthorizationAbuse, AThousandRandomFormsAreRefusedAndOneGoodOneIsNot) {
  BrokerClient controller;
  const auto good = bytesOf(controller.exported(controller.create()));
  RawCaller stranger;
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(stranger.refusalOf(randomBytes(good.size())), deniedError);
  EXPECT_EQ(stranger.refusalOf(good), "");
}

TEST_F(AuthorizationAbuse, FormsOfEveryOtherLengthAreRefusedLikeWrongOnes) {
  BrokerClient controller;
  const auto good = bytesOf(controller.exported(controller.create()));
  RawCaller stranger;
  for (std::size_t length = 0; length < good.size(); ++length)
    ASSERT_EQ(stranger.refusalOf(good.substr(0, length)), deniedError);
  EXPECT_EQ(stranger.refusalOf(good + '\0'), deniedError);
  EXPECT_EQ(stranger.refusalOf(good + good), deniedError);
  EXPECT_EQ(stranger.refusalOf(good + std::string(1 << 20, 'x')), deniedError);
  expectServed();
}

TEST_F(AuthorizationAbuse, AFormThatIsReplayedAfterItsSessionEndedIsRefused) {
  BrokerClient controller;
  BrokerClient thief;
  const AuthorizationRef authorization = controller.create();
  const auto form = controller.exported(authorization);
  ASSERT_EQ(thief.imports(controller.exported(authorization)), errAuthorizationSuccess);
  ASSERT_EQ(controller.services.free(authorization, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  EXPECT_EQ(thief.imports(form), errAuthorizationDenied);
}

TEST_F(AuthorizationAbuse, AFormReplayedWhileItsSessionLivesIsRefused) {
  BrokerClient controller;
  BrokerClient thief;
  const AuthorizationRef kept = controller.create();
  const auto form = controller.exported(kept);
  ASSERT_EQ(controller.copyRight(kept, 18), errAuthorizationSuccess);
  AuthorizationRef installers = 0;
  BrokerClient installer;
  ASSERT_EQ(installer.services.createFromExternalForm(form, installers), errAuthorizationSuccess);
  ASSERT_EQ(installer.services.free(installers, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  AuthorizationRef stolen = 0;
  EXPECT_EQ(thief.services.createFromExternalForm(form, stolen), errAuthorizationDenied);
}

TEST_F(AuthorizationAbuse, AFormOfAnEarlierBrokerIsRefused) {
  AuthorizationExternalForm form;
  {
    BrokerClient controller;
    form = controller.exported(controller.create());
  }
  expectNothingKept();
  BrokerClient thief;
  EXPECT_EQ(thief.imports(form), errAuthorizationDenied);
}

TEST_F(AuthorizationAbuse, OfTenThousandSessionsOneCallerGetsSixteen) {
  RawCaller caller;
  int given = 0;
  for (int i = 0; i < 10000; ++i) {
    if (sd_bus_call_method(caller.bus(), brokerName, protocol::brokerObjectPath, brokerName,
                           protocol::brokerMethod::create.name, nullptr, nullptr, "") >= 0)
      ++given;
  }
  EXPECT_EQ(given, 16);
  expectServed();
}

class AFloodOfSessions : public AuthorizationAbuse, public testing::WithParamInterface<RawCaller::Answer> {};

// Ten thousand at least, and no end before the others were served.
TEST_P(AFloodOfSessions, DelaysNobody) {
  BrokerClient().create();
  std::atomic<bool> served = false;
  std::atomic<int> sent = 0;
  std::thread flood([&] {
    RawCaller caller;
    while (sent < 10000 || !served) {
      caller.sendCreate(GetParam());
      if (++sent % 100 == 0) sd_bus_flush(caller.bus());
      while (sd_bus_process(caller.bus(), nullptr) > 0) continue;
    }
  });
  EXPECT_TRUE(eventually([&] { return sent > 1000; }));
  expectServed();
  served = true;
  flood.join();
  std::cout << sent << " sessions were asked for\n";
}

INSTANTIATE_TEST_SUITE_P(Answers, AFloodOfSessions,
                         testing::Values(RawCaller::Answer::Wanted, RawCaller::Answer::NotWanted), [](const auto& answer) {
                           return answer.param == RawCaller::Answer::Wanted ? "Wanted" : "NotWanted";
                         });

TEST_F(AuthorizationAbuse, CallsThatNobodyReadsTheAnswersOfDelayNobody) {
  RawCaller deaf;
  const auto handle = deaf.create();
  for (int i = 0; i < 5000; ++i) deaf.send(protocol::brokerMethod::makeExternalForm.name, "t", handle);
  expectServed();
  deaf.close();
  expectNothingKept();
}

// The last step of a caller, and how the caller goes.
enum class End { Dies, Stalls, Disconnects };
using Step = std::function<void(RawCaller&, int tool)>;

const std::vector<std::pair<const char*, Step>>& steps() {
  static const std::vector<std::pair<const char*, Step>> all{
      {"connecting", [](RawCaller&, int) {}},
      {protocol::brokerMethod::create.name,
       [](RawCaller& caller, int) { caller.send(protocol::brokerMethod::create.name, ""); }},
      {protocol::brokerMethod::makeExternalForm.name,
       [](RawCaller& caller, int) { caller.send(protocol::brokerMethod::makeExternalForm.name, "t", caller.create()); }},
      {protocol::brokerMethod::createFromExternalForm.name,
       [](RawCaller& caller, int) { caller.sendForm(randomBytes(32)); }},
      {protocol::brokerMethod::copyRights.name,
       [](RawCaller& caller, int) {
         caller.send(protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes, caller.create(),
                     kAuthorizationRightExecute, 18U);
       }},
      {protocol::brokerMethod::executeWithPrivileges.name,
       [](RawCaller& caller, int tool) {
         caller.send(protocol::brokerMethod::executeWithPrivileges.name,
                     protocol::brokerMethod::executeWithPrivileges.takes, caller.authorized(), tool, 0U);
       }},
      {"holding a tool's stream",
       [](RawCaller& caller, int tool) { static posix::Descriptor stream = caller.run(caller.authorized(), tool); }},
      {protocol::brokerMethod::free.name,
       [](RawCaller& caller, int) { caller.send(protocol::brokerMethod::free.name, "tu", caller.create(), 8U); }},
  };
  return all;
}

class CallerThat : public AuthorizationAbuse, public testing::WithParamInterface<End> {
 protected:
  // Another process does the step and ends as it is told. A test that is killed takes it along.
  pid_t start(const Step& step, int tool) {
    const pid_t test = ::getpid();
    const pid_t child = ::fork();
    if (child != 0) return child;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != test) ::_exit(1);
    RawCaller caller;
    step(caller, tool);
    if (GetParam() == End::Disconnects) caller.close();
    if (GetParam() == End::Dies) ::raise(SIGKILL);
    ::raise(SIGSTOP);
    ::_exit(0);
  }
  static bool hasEndedItsStep(pid_t child) {
    siginfo_t what{};
    return ::waitid(P_PID, static_cast<id_t>(child), &what, WEXITED | WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
           what.si_pid == child;
  }
};

TEST_P(CallerThat, DuringAnyStepHarmsNobody) {
  const posix::Descriptor tool(::open(probe().c_str(), O_PATH | O_CLOEXEC));
  std::vector<pid_t> children;
  for (const auto& [name, step] : steps()) {
    children.push_back(start(step, tool.get()));
    ASSERT_TRUE(eventually([&] { return hasEndedItsStep(children.back()); })) << name;
  }
  expectServed();
  for (const pid_t child : children) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  expectNothingKept();
}

INSTANTIATE_TEST_SUITE_P(Ends, CallerThat, testing::Values(End::Dies, End::Stalls, End::Disconnects),
                         [](const auto& end) -> std::string {
                           if (end.param == End::Dies) return "Dies";
                           return end.param == End::Stalls ? "Stalls" : "Disconnects";
                         });

// Tools that do not do what tools do. Those that would stay end when the test removes their program.
class ToolThat : public AuthorizationAbuse {
 protected:
  posix::Descriptor started(const std::string& behaviour) {
    if (!tool) tool = posix::Descriptor(::open(probe().c_str(), O_PATH | O_CLOEXEC));
    auto stream = caller.run(handle, tool.get());
    EXPECT_TRUE(stream);
    const std::string line = behaviour + "\n";
    EXPECT_EQ(::send(stream.get(), line.data(), line.size(), MSG_NOSIGNAL), static_cast<ssize_t>(line.size()));
    return stream;
  }
  void fill(const posix::Descriptor& stream) {
    const std::string bytes(65536, 'x');
    while (::send(stream.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0) continue;
    EXPECT_EQ(errno, EAGAIN);
  }
  static bool hasInput(const posix::Descriptor& stream) {
    char byte = 0;
    return ::recv(stream.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
  }
  static bool hasEnded(const posix::Descriptor& stream) {
    char byte = 0;
    return ::recv(stream.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
  }

  RawCaller caller;
  std::uint64_t handle = caller.authorized();
  posix::Descriptor tool;
};

TEST_F(ToolThat, NeverReadsAndNeverEndsHarmsNobody) {
  std::vector<posix::Descriptor> streams;
  for (int i = 0; i < 8; ++i) fill(streams.emplace_back(started("deaf")));
  EXPECT_FALSE(caller.run(handle, tool.get())) << "one user runs a bounded number of tools";
  expectServed();
}

TEST_F(ToolThat, WritesForEverHarmsNobody) {
  std::vector<posix::Descriptor> streams;
  for (int i = 0; i < 8; ++i) streams.push_back(started("flood"));
  EXPECT_TRUE(eventually([&] { return hasInput(streams.back()); }));
  expectServed();
  streams.clear();  // nobody listens any more: that ends them
  EXPECT_TRUE(eventually([&] { return static_cast<bool>(caller.run(handle, tool.get())); }));
}

TEST_F(ToolThat, ForksAndLeavesIsReapedAndItsChildHarmsNobody) {
  std::vector<posix::Descriptor> streams;
  // More than may run at once: each has left, and does not count any more.
  for (int i = 0; i < 12; ++i) {
    streams.push_back(started("fork"));
    ASSERT_TRUE(eventually([&] { return hasInput(streams.back()); }));
  }
  for (const auto& stream : streams) EXPECT_FALSE(hasEnded(stream)) << "the child still holds it";
  expectServed();
  streams.clear();
  caller.close();
  expectNothingKept();
}

// The owner of a file may lease it; who wants to open it waits for the owner then, up to three quarters of a minute.
TEST_F(ToolThat, IsSlowToStartDelaysItsOwnCallerOnly) {
  const auto path = probe();
  const posix::Descriptor leased(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  ::signal(SIGIO, SIG_IGN);
  if (::fcntl(leased.get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "this file system has no leases";
  const posix::Descriptor slow(::open(path.c_str(), O_PATH | O_CLOEXEC));
  sd_bus_message* call = nullptr;
  int status = -1;
  const auto answered = [](sd_bus_message* reply, void* seen, sd_bus_error*) {
    *static_cast<int*>(seen) = sd_bus_message_is_method_error(reply, nullptr);
    return 0;
  };
  ASSERT_GE(sd_bus_message_new_method_call(caller.bus(), &call, brokerName, protocol::brokerObjectPath, brokerName,
                                           protocol::brokerMethod::executeWithPrivileges.name),
            0);
  ASSERT_GE(sd_bus_message_append(call, protocol::brokerMethod::executeWithPrivileges.takes, handle, slow.get(), 0U), 0);
  ASSERT_GE(sd_bus_call_async(caller.bus(), nullptr, call, answered, &status, 0), 0);
  sd_bus_message_unref(call);
  sd_bus_flush(caller.bus());
  expectServed();
  while (sd_bus_process(caller.bus(), nullptr) > 0) continue;
  EXPECT_EQ(status, -1) << "it has not started";
  ASSERT_EQ(::fcntl(leased.get(), F_SETLEASE, F_UNLCK), 0);
  // A program that somebody may still write does not run either: the lease's own descriptor is a writer.
  EXPECT_TRUE(eventually([&] { return sd_bus_process(caller.bus(), nullptr) >= 0 && status != -1; }));
  EXPECT_EQ(status, 1);
}

}  // namespace
