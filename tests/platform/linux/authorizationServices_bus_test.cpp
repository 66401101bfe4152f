#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/AuthorizationServices.h"
#include "protocol/Broker.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string Broker = KELTO_BIN_DIR "/authorizationd";
constexpr const char* BrokerName = protocol::brokerBusName;

// Counts the calls that may block.
class CountingCall final : public platform::Linux::BlockingCall {
 public:
  void run(const std::function<void()>& call) override {
    ++count;
    call();
  }
  int count = 0;
};

// A connection of its own, as each program has one.
struct Client {
  CountingCall blockingCall;
  fake::FakeSystemLog log;
  platform::Linux::AuthorizationServices services{blockingCall, log};

  AuthorizationRef create() {
    AuthorizationRef authorization = 0;
    EXPECT_EQ(services.create(kAuthorizationFlagDefaults, authorization), errAuthorizationSuccess);
    return authorization;
  }
  AuthorizationStatus copyRight(AuthorizationRef authorization, AuthorizationFlags flags,
                                const char* right = kAuthorizationRightExecute) {
    AuthorizationItem item{.name = right};
    return services.copyRights(authorization, {.count = 1, .items = &item}, flags);
  }
  AuthorizationExternalForm exported(AuthorizationRef authorization) {
    AuthorizationExternalForm form;
    EXPECT_EQ(services.makeExternalForm(authorization, form), errAuthorizationSuccess);
    return form;
  }
  AuthorizationStatus execute(AuthorizationRef authorization, const std::string& path,
                              std::unique_ptr<ByteStream>& stream) {
    return services.executeWithPrivileges(authorization, path, kAuthorizationFlagDefaults, stream);
  }
};

bool isOwned(const std::string& name) {
  const auto bus = platform::Linux::Bus::openUser();
  sd_bus_message* reply = nullptr;
  int owned = 0;
  if (!bus || sd_bus_call_method(bus->get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameHasOwner", nullptr, &reply, "s", name.c_str()) < 0) {
    return false;
  }
  sd_bus_message_read(reply, "b", &owned);
  sd_bus_message_unref(reply);
  return owned != 0;
}

std::string readAll(ByteStream& stream) {
  std::string text;
  char chunk[512];
  while (const std::size_t got = stream.read(chunk, sizeof chunk)) text.append(chunk, got);
  return text;
}

void say(ByteStream& stream, const std::string& line) {
  EXPECT_EQ(stream.write((line + "\n").data(), line.size() + 1), line.size() + 1);
}

class AuthorizationBroker : public testing::Test {
 protected:
  // A copy of the probe in a folder of the test, so that its mode is known and may be changed.
  std::string probe(mode_t mode = 0755) {
    const std::filesystem::path path = tools.path("probe");
    std::filesystem::copy_file(KELTO_BIN_DIR "/authorization_probe", path);
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    return path;
  }
  std::string folderAmongTools() {
    std::filesystem::create_directory(tools.path("folder"));
    return tools.path("folder");
  }
  AuthorizationRef authorized(Client& client) {
    const AuthorizationRef authorization = client.create();
    EXPECT_EQ(client.copyRight(authorization, 18), errAuthorizationSuccess);
    return authorization;
  }
  std::unique_ptr<ByteStream> started(const std::string& path) {
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(controller.execute(authorized(controller), path, stream), errAuthorizationSuccess);
    return stream;
  }
  void expectRefused(const std::string& path, const std::string& reason,
                     AuthorizationStatus status = errAuthorizationToolExecuteFailure) {
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(controller.execute(authorized(controller), path, stream), status);
    EXPECT_EQ(stream, nullptr);
    EXPECT_THAT(controller.log.lines, Contains(HasSubstr(reason)));
  }

  // The broker is started with a descriptor too many, which no tool may inherit.
  tests::ScopedEnvironment dataFolder{"XDG_DATA_HOME", "/data of mine"};
  tests::TemporaryFolder tools;
  tests::PrivateBus bus{
      {{BrokerName, "/bin/sh -c 'exec " + Broker + " --session --tools " + tools.path() + " 7</dev/null'"}}};
  Client controller;
  Client installer;
};

TEST_F(AuthorizationBroker, IsStartedByTheBusOnDemand) {
  EXPECT_FALSE(isOwned(BrokerName));
  EXPECT_NE(controller.create(), 0U);
  EXPECT_TRUE(isOwned(BrokerName));
}

TEST_F(AuthorizationBroker, GrantsTheUsersOwnRightsWithoutInteraction) {
  EXPECT_EQ(controller.copyRight(controller.create(), 18), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, GrantsNothingWithoutTheFlagThatExtendsRights) {
  const AuthorizationRef authorization = controller.create();
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 2), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, DeniesEveryOtherRight) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(controller.copyRight(authorization, 19, "system.privilege.taskport"), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 19, ""), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 19, nullptr), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, HandsASessionFromOneConnectionToAnother) {
  const auto form = controller.exported(authorized(controller));
  AuthorizationRef adopted = 0;
  ASSERT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationSuccess);
  EXPECT_EQ(installer.copyRight(adopted, 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, RefusesARandomFormAndLeavesTheOutputUntouched) {
  authorized(controller);
  AuthorizationRef adopted = 7;
  EXPECT_EQ(installer.services.createFromExternalForm({}, adopted), errAuthorizationDenied);
  EXPECT_EQ(adopted, 7U);
}

TEST_F(AuthorizationBroker, AHandleIsOfNoUseToAnotherConnection) {
  const AuthorizationRef authorization = authorized(controller);
  installer.create();
  EXPECT_EQ(installer.copyRight(authorization, 18), errAuthorizationInvalidRef);
  AuthorizationExternalForm form;
  EXPECT_EQ(installer.services.makeExternalForm(authorization, form), errAuthorizationInvalidRef);
  EXPECT_EQ(installer.services.free(authorization, 8), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationBroker, AHandleDiesWithItsConnection) {
  auto gone = std::make_unique<Client>();
  const auto form = gone->exported(authorized(*gone));
  gone.reset();
  AuthorizationRef adopted = 0;
  EXPECT_TRUE(tests::eventually(
      [&] { return installer.services.createFromExternalForm(form, adopted) == errAuthorizationDenied; }));
}

TEST_F(AuthorizationBroker, FreeThatDestroysEndsTheRightForTheOtherHolder) {
  const AuthorizationRef authorization = authorized(controller);
  AuthorizationRef adopted = 0;
  ASSERT_EQ(installer.services.createFromExternalForm(controller.exported(authorization), adopted),
            errAuthorizationSuccess);
  EXPECT_EQ(installer.services.free(adopted, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, FreeWithDefaultsLeavesTheRightToTheOtherHolder) {
  const AuthorizationRef authorization = authorized(controller);
  AuthorizationRef adopted = 0;
  ASSERT_EQ(installer.services.createFromExternalForm(controller.exported(authorization), adopted),
            errAuthorizationSuccess);
  EXPECT_EQ(installer.services.free(adopted, kAuthorizationFlagDefaults), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, NoReferenceIsInvalidWithoutACall) {
  AuthorizationExternalForm form;
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.services.makeExternalForm(0, form), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.copyRight(0, 18), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.services.free(0, 8), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.execute(0, probe(), stream), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.blockingCall.count, 0);
}

TEST_F(AuthorizationBroker, RunsAToolWithNothingInheritedButTheUsersDataFolder) {
  ::setenv("KELTO_SECRET", "not for the tool", 1);
  const auto stream = started(probe());
  say(*stream, "report");
  const std::string user = std::to_string(::getuid());
  const std::string said = readAll(*stream);
  const std::string jobSetting = std::string("environment ") + protocol::jobVariable + "=";
  const auto job = said.find(jobSetting);
  ASSERT_NE(job, std::string::npos) << said;
  const auto end = said.find('\n', job);
  EXPECT_EQ(end - job, jobSetting.size() + 32) << "a number that no other broker gives";
  EXPECT_EQ(said.substr(0, job) + said.substr(end + 1),
            std::string("environment PATH=/usr/sbin:/usr/bin:/sbin:/bin\nenvironment LANG=C.UTF-8\nenvironment ") +
                protocol::invokingUserVariable + "=" + user +
                "\nenvironment XDG_DATA_HOME=/data of mine\ndescriptor 0 socket\ndescriptor 1 socket\ndescriptor 2 "
                "/dev/null\numask 22\nfolder /\nnew privileges none\nsession own\nuser " +
                user + " " + user + "\narguments 0\n");
  ::unsetenv("KELTO_SECRET");
}

TEST_F(AuthorizationBroker, RunsNoToolWithoutTheRight) {
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.execute(controller.create(), probe(), stream), errAuthorizationDenied);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(AuthorizationBroker, RunsNoToolAfterTheRightWasDestroyed) {
  const AuthorizationRef authorization = authorized(controller);
  AuthorizationRef adopted = 0;
  ASSERT_EQ(installer.services.createFromExternalForm(controller.exported(authorization), adopted),
            errAuthorizationSuccess);
  ASSERT_EQ(installer.services.free(adopted, kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, KnowsNoOptionsForATool) {
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.services.executeWithPrivileges(authorized(controller), probe(), 1, stream),
            errAuthorizationInternal);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(AuthorizationBroker, RefusesAToolThatTheGroupMayWrite) {
  expectRefused(probe(0775), "writable by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolThatEveryoneMayWrite) {
  expectRefused(probe(0757), "writable by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolThatIsNotExecutable) { expectRefused(probe(0644), "not executable"); }

TEST_F(AuthorizationBroker, RefusesASetUserIdTool) { expectRefused(probe(04755), "set-user-id"); }

TEST_F(AuthorizationBroker, RefusesAFolder) { expectRefused(folderAmongTools(), "not a regular file"); }

TEST_F(AuthorizationBroker, RefusesAPipeWithoutWaitingForIt) {
  const std::string path = tools.path("pipe");
  ASSERT_EQ(::mkfifo(path.c_str(), 0700), 0);
  expectRefused(path, "not a regular file");
}

TEST_F(AuthorizationBroker, RefusesAMissingTool) { expectRefused(tools.path("missing"), "cannot be opened"); }

TEST_F(AuthorizationBroker, RefusesAFileThatIsNotAProgram) {
  const std::string path = tools.path("text");
  std::ofstream(path) << "not a program";
  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  expectRefused(path, "cannot be run");
}

TEST_F(AuthorizationBroker, RefusesAToolOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file that belongs to somebody else";
  const auto path = probe();
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  expectRefused(path, "belongs to another user", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAProgramThatLiesInNoFolderForTools) {
  expectRefused("/bin/sh", "lies in no folder for tools", errAuthorizationDenied);
  const auto own = bus.folder() / "probe";
  std::filesystem::copy_file(probe(), own);
  expectRefused(own, "lies in no folder for tools", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAToolWhoseFolderOthersCanWrite) {
  const auto path = probe();
  ASSERT_EQ(::chmod(tools.path().c_str(), 01777), 0);
  expectRefused(path, "can be written by others", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, RefusesAProgramThatHasTheNameOfAToolElsewhere) {
  probe();
  const auto own = bus.folder() / "probe";
  std::filesystem::copy_file("/bin/sh", own);
  expectRefused(own, "lies in no folder for tools", errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, AFormForAProcessIsGoodForThatProcessOnce) {
  const AuthorizationRef authorization = authorized(controller);
  const platform::Linux::Descriptor self(static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0)));
  AuthorizationExternalForm form;
  ASSERT_EQ(controller.services.makeExternalFormFor(authorization, self.get(), form), errAuthorizationSuccess);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationSuccess);
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, AFormForAnotherProcessIsRefusedLikeAWrongOne) {
  const AuthorizationRef authorization = authorized(controller);
  const platform::Linux::Descriptor parent(static_cast<int>(::syscall(SYS_pidfd_open, ::getppid(), 0)));
  AuthorizationExternalForm form;
  ASSERT_EQ(controller.services.makeExternalFormFor(authorization, parent.get(), form), errAuthorizationSuccess);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationDenied);
  EXPECT_EQ(installer.services.createFromExternalForm({}, adopted), errAuthorizationDenied);
  ASSERT_GE(installer.log.lines.size(), 2U);
  EXPECT_EQ(installer.log.lines.end()[-1], installer.log.lines.end()[-2]);
}

TEST_F(AuthorizationBroker, RefusesToMakeAFormForADescriptorThatNamesNoProcess) {
  const platform::Linux::Descriptor folder(::open("/", O_PATH | O_CLOEXEC));
  AuthorizationExternalForm form;
  EXPECT_EQ(controller.services.makeExternalFormFor(authorized(controller), folder.get(), form), errAuthorizationDenied);
}

std::string lineAfterLine(const std::string& xml) {
  std::string result;
  std::istringstream lines(xml);
  for (std::string line; std::getline(lines, line);) {
    const auto begin = line.find_first_not_of(' ');
    if (begin != std::string::npos) result += line.substr(begin) + "\n";
  }
  return result;
}

// The part of a description that is about the broker's own interface.
std::string interfaceIn(const std::string& xml) {
  const auto begin = xml.find(std::string("<interface name=\"") + protocol::brokerInterface + "\">");
  if (begin == std::string::npos) return xml;
  return lineAfterLine(xml.substr(begin, xml.find("</interface>", begin) - begin));
}

TEST_F(AuthorizationBroker, DescribesItselfOnTheBusAsTheFileOfItsInterfaceSays) {
  controller.create();
  const auto own = platform::Linux::Bus::openUser();
  sd_bus_message* reply = nullptr;
  const char* xml = "";
  ASSERT_GE(sd_bus_call_method(own->get(), BrokerName, protocol::brokerObjectPath, "org.freedesktop.DBus.Introspectable",
                               "Introspect", nullptr, &reply, ""),
            0);
  ASSERT_GE(sd_bus_message_read(reply, "s", &xml), 0);
  std::ifstream file(std::string(KELTO_SOURCE_DIR "/protocol/") + protocol::brokerInterface + ".xml");
  const std::string described((std::istreambuf_iterator<char>(file)), {});
  EXPECT_EQ(interfaceIn(xml), interfaceIn(described));
  sd_bus_message_unref(reply);
}

TEST_F(AuthorizationBroker, TellsTheVersionOfItsInterface) {
  controller.create();
  const auto own = platform::Linux::Bus::openUser();
  std::uint32_t version = 0;
  ASSERT_GE(sd_bus_get_property_trivial(own->get(), BrokerName, protocol::brokerObjectPath, protocol::brokerInterface,
                                        protocol::brokerVersionProperty, nullptr, 'u', &version),
            0);
  EXPECT_EQ(version, protocol::brokerVersion);
}

TEST_F(AuthorizationBroker, SevenHundredBytesInOneGoAreReadAs512And188) {
  const auto stream = started(probe());
  say(*stream, "print 700");
  char chunk[512];
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 512U);
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 188U);
}

TEST_F(AuthorizationBroker, FiveHundredAndTwelveBytesAreFollowedByTheEnd) {
  const auto stream = started(probe());
  say(*stream, "print 512");
  char chunk[512];
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 512U);
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 0U);
}

TEST_F(AuthorizationBroker, AHundredBytesBeforeAPauseAreReadAlone) {
  const auto stream = started(probe());
  say(*stream, "two 100 50");
  char chunk[512];
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 100U);
  say(*stream, "go on");
  EXPECT_EQ(stream->read(chunk, sizeof chunk), 50U);
}

TEST_F(AuthorizationBroker, WritingToAToolThatEndedIsShortAndHarmless) {
  const auto stream = started(probe());
  say(*stream, "print 1");
  readAll(*stream);
  EXPECT_EQ(stream->write("more", 4), 0U);
}

TEST_F(AuthorizationBroker, EveryCallAndEveryReadAndWriteGoesThroughTheBlockingCall) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(controller.blockingCall.count, 3);  // connect, create, copy
  std::unique_ptr<ByteStream> stream;
  ASSERT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationSuccess);
  EXPECT_EQ(controller.blockingCall.count, 5);  // open, execute
  say(*stream, "print 1");
  char chunk[512];
  stream->read(chunk, sizeof chunk);
  EXPECT_EQ(controller.blockingCall.count, 7);
}

TEST_F(AuthorizationBroker, RunsABoundedNumberOfToolsAtOnceAndReapsThem) {
  const auto path = probe();
  const AuthorizationRef authorization = authorized(controller);
  std::vector<std::unique_ptr<ByteStream>> streams(9);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(controller.execute(authorization, path, streams[i]), errAuthorizationSuccess);
  EXPECT_EQ(controller.execute(authorization, path, streams[8]), errAuthorizationToolExecuteFailure);
  streams[0].reset();
  EXPECT_TRUE(
      tests::eventually([&] { return controller.execute(authorization, path, streams[8]) == errAuthorizationSuccess; }));
}

TEST_F(AuthorizationBroker, UsesAtMostEightMegabytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need memory of their own";
#endif
  std::array<Client, 4> clients;
  for (int i = 0; i < 64; ++i) clients[i % 4].exported(clients[i % 4].create());
  const auto own = platform::Linux::Bus::openUser();
  sd_bus_creds* credentials = nullptr;
  pid_t process = 0;
  ASSERT_GE(sd_bus_get_name_creds(own->get(), BrokerName, SD_BUS_CREDS_PID, &credentials), 0);
  ASSERT_GE(sd_bus_creds_get_pid(credentials, &process), 0);
  sd_bus_creds_unref(credentials);
  std::ifstream statistics("/proc/" + std::to_string(process) + "/statm");
  long pages = 0;
  long residentPages = 0;
  statistics >> pages >> residentPages;
  EXPECT_GT(residentPages, 0);
  EXPECT_LE(residentPages * ::sysconf(_SC_PAGESIZE), 8L << 20);
}

TEST_F(AuthorizationBroker, ABusThatIsGoneIsAnInternalError) {
  const AuthorizationRef authorization = authorized(controller);
  bus.stop();
  AuthorizationRef another = 0;
  AuthorizationExternalForm form;
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationInternal);
  EXPECT_EQ(controller.services.makeExternalForm(authorization, form), errAuthorizationInternal);
  EXPECT_EQ(controller.services.create(0, another), errAuthorizationInternal);
  EXPECT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationInternal);
  EXPECT_EQ(controller.services.free(authorization, 8), errAuthorizationInternal);
}

TEST(AuthorizationServices, WithoutABrokerCreatingFailsAndTheLogSaysOnceWhatToDo) {
  tests::PrivateBus bus;
  Client client;
  AuthorizationRef authorization = 7;
  EXPECT_EQ(client.services.create(0, authorization), errAuthorizationInternal);
  EXPECT_EQ(client.services.createFromExternalForm({}, authorization), errAuthorizationInternal);
  EXPECT_EQ(authorization, 7U);
  EXPECT_THAT(client.log.lines, testing::ElementsAre(HasSubstr(std::string("install ") + protocol::brokerBusName)));
}

TEST(AuthorizationServices, WithoutAnyBusCreatingFails) {
  tests::PrivateBus bus;
  bus.stop();
  Client client;
  AuthorizationRef authorization = 0;
  EXPECT_EQ(client.services.create(0, authorization), errAuthorizationInternal);
  EXPECT_THAT(client.log.lines, Not(IsEmpty()));
}

TEST(AuthorizationLifetimes, AFormIsRefusedAfterItsTime) {
  tests::PrivateBus bus{{{BrokerName, Broker + " --session --form-seconds 1"}}};
  Client controller;
  Client installer;
  const AuthorizationRef authorization = controller.create();
  std::vector<AuthorizationExternalForm> forms(16);
  for (auto& form : forms) form = controller.exported(authorization);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(forms.back(), adopted), errAuthorizationSuccess);
  // Each of the others is good once, until its time is over.
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(tests::eventually([&] { return std::chrono::steady_clock::now() - start > 1s; }));
  EXPECT_EQ(installer.services.createFromExternalForm(forms.front(), adopted), errAuthorizationDenied);
}

TEST(AuthorizationLifetimes, TheRightEndsAfterItsTimeAndIsAskedForAgain) {
  tests::PrivateBus bus{{{BrokerName, Broker + " --session --right-seconds 1"}}};
  Client controller;
  const AuthorizationRef authorization = controller.create();
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationSuccess);
  EXPECT_TRUE(tests::eventually([&] { return controller.copyRight(authorization, 0) == errAuthorizationDenied; }));
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationSuccess);
}

TEST(AuthorizationLifetimes, TheBrokerLeavesWhenIdleAndStaysWhileAHandleIsHeld) {
  tests::PrivateBus bus{{{BrokerName, Broker + " --session --idle-seconds 1"}}};
  auto held = std::make_unique<Client>();
  held->create();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(tests::eventually([&] { return !isOwned(BrokerName) || std::chrono::steady_clock::now() - start > 1500ms; }));
  EXPECT_TRUE(isOwned(BrokerName));
  held.reset();
  EXPECT_TRUE(tests::eventually([] { return !isOwned(BrokerName); }));
  Client next;
  EXPECT_NE(next.create(), 0U);
}

}  // namespace
