#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <systemd/sd-bus.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <optional>

#include <kelto/controller.hpp>
#include "protocol/Broker.h"
#include "protocol/LastRun.h"
#include "protocol/LaunchArguments.h"
#include "protocol/ParentWindow.h"
#include "tests/support/Environment.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestedPrograms.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* editor = "com.example.Editor";

struct Happened {
  int event;
  int number;
  std::string text;
};

std::string broker() { return (tests::testedPrograms() / "authorizationd").string() + " --session"; }

class ControllerTest : public testing::Test {
 protected:
  explicit ControllerTest(const std::vector<tests::PrivateBus::Service>& services = {{protocol::brokerBusName, broker()}})
      : _bus(services), _controller(editor, [this](int event, int number, const std::string& text) {
          _events.push_back({event, number, text});
        }) {}

  // A bundle whose program is a shell script.
  std::string installer(const std::string& script) {
    const std::filesystem::path contents = _folder.path("Installer.app/Contents");
    std::filesystem::create_directories(contents / "Linux");
    std::ofstream(contents / "Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>run</string>"
           "<key>CFBundleIdentifier</key><string>com.example.Installer</string></dict></plist>";
    std::ofstream(contents / "Linux/run") << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(contents / "Linux/run", std::filesystem::perms::owner_all);
    return _folder.path("Installer.app");
  }

  // Waits on the descriptor, as an event loop does, until there was an event of that kind.
  const Happened* wait(int event) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < deadline) {
      for (const auto& each : _events)
        if (each.event == event) return &each;
      pollfd ready{.fd = _controller.fd(), .events = POLLIN, .revents = 0};
      if (::poll(&ready, 1, 20'000) == 1) _controller.dispatch();
    }
    return nullptr;
  }

  void expectFailure(int error, const std::string& cause) {
    const auto* failed = wait(KELTO_FAILED);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->number, error);
    EXPECT_NE(failed->text.find(cause), std::string::npos) << failed->text;
  }

  tests::PrivateBus _bus;
  tests::TemporaryFolder _folder;
  std::vector<Happened> _events;
  kelto::Controller _controller;
};

class ControllerWithoutBrokerTest : public ControllerTest {
 protected:
  ControllerWithoutBrokerTest() : ControllerTest(std::vector<tests::PrivateBus::Service>{}) {}
};

// Asks the owner of the name for an action, as the installer does; the bus's answer.
int activate(const char* action) {
  sd_bus* bus = nullptr;
  if (const int status = sd_bus_open_user(&bus); status < 0) return status;
  sd_bus_message* request = nullptr;
  sd_bus_message_new_method_call(bus, &request, editor, "/com/example/Editor", "org.freedesktop.Application",
                                 "ActivateAction");
  sd_bus_message_append(request, "sava{sv}", action, 0, 0);
  const int status = sd_bus_send(bus, request, nullptr);
  sd_bus_flush(bus);
  sd_bus_message_unref(request);
  sd_bus_flush_close_unref(bus);
  return status;
}

TEST_F(ControllerTest, TellsThatTheRightWasGranted) {
  ASSERT_EQ(_controller.obtainRight(), 0);
  EXPECT_NE(wait(KELTO_RIGHT_GRANTED), nullptr);
}

TEST_F(ControllerTest, CallsTheHandlerFromDispatchOnly) {
  _controller.setInstaller("/nowhere/Installer.app");
  ASSERT_EQ(_controller.update("/new.app", "/old.app"), 0);
  EXPECT_TRUE(_events.empty());
  EXPECT_NE(wait(KELTO_FAILED), nullptr);
}

TEST_F(ControllerWithoutBrokerTest, TellsThatThereIsNoBroker) {
  ASSERT_EQ(_controller.obtainRight(), 0);
  expectFailure(KELTO_ERROR_NO_BROKER, protocol::brokerBusName);
}

TEST_F(ControllerTest, NamesTheFileOfAnInstallerThatCannotBeRead) {
  _controller.setInstaller("/nowhere/Installer.app");
  _controller.update("/new.app", "/old.app");
  expectFailure(KELTO_ERROR_INSTALLER, "/nowhere/Installer.app/Contents/Info.plist");
}

TEST(LastRunOfTheInstaller, IsToldValueByValue) {
  tests::TemporaryFolder folder;
  const tests::EnvironmentVariable state("XDG_STATE_HOME", folder.path());
  EXPECT_EQ(kelto_controller_last_run(KELTO_LAST_RUN_CAUSE, nullptr, 0), -ENOENT);
  EXPECT_EQ(kelto::lastRun(KELTO_LAST_RUN_CAUSE), std::nullopt);
  std::filesystem::create_directory(folder.path("kelto"));
  std::ofstream(folder.path("kelto/last-run.plist"))
      << "<plist version=\"1.0\"><dict><key>" << protocol::lastRunKey::cause
      << "</key><string>the disk is full</string><key>" << protocol::lastRunKey::status
      << "</key><integer>1</integer></dict></plist>";
  std::array<char, 9> text{};
  EXPECT_EQ(kelto_controller_last_run(KELTO_LAST_RUN_CAUSE, text.data(), text.size()), 16);
  EXPECT_STREQ(text.data(), "the disk");
  EXPECT_EQ(kelto_controller_last_run(KELTO_LAST_RUN_STATUS, text.data(), text.size()), 1);
  EXPECT_STREQ(text.data(), "1");
  EXPECT_EQ(kelto_controller_last_run(KELTO_LAST_RUN_STEP, text.data(), text.size()), -ENOENT);
  EXPECT_EQ(kelto_controller_last_run(99, text.data(), text.size()), -EINVAL);
  EXPECT_EQ(kelto::lastRun(KELTO_LAST_RUN_CAUSE), "the disk is full");
  EXPECT_EQ(kelto::lastRun(KELTO_LAST_RUN_STEP), std::nullopt);
}

TEST_F(ControllerTest, TellsThatAnInstallersListIsAFolder) {
  const auto bundle = installer("exit 0");
  std::filesystem::remove(bundle + "/Contents/Info.plist");
  std::filesystem::create_directory(bundle + "/Contents/Info.plist");
  _controller.setInstaller(bundle);
  _controller.update("/new.app", "/old.app");
  expectFailure(KELTO_ERROR_INSTALLER, bundle + "/Contents/Info.plist");
}

TEST_F(ControllerTest, TellsTheStatusOfAnInstallerThatEndsBeforeItHasTheRights) {
  _controller.setInstaller(installer("exit 7"));
  _controller.update("/new.app", "/old.app");
  expectFailure(KELTO_ERROR_SILENT, "status 7");
}

TEST_F(ControllerTest, RunsAnotherJobAfterOneThatFailed) {
  _controller.setInstaller(installer("exit 7"));
  _controller.update("/new.app", "/old.app");
  ASSERT_NE(wait(KELTO_FAILED), nullptr);
  _events.clear();
  ASSERT_EQ(_controller.remove("/old.app"), 0);
  EXPECT_NE(wait(KELTO_FAILED), nullptr);
  EXPECT_EQ(_events.front().event, KELTO_RIGHT_GRANTED) << "the rights of the failed job were given back";
}

TEST_F(ControllerTest, RefusesASecondJobWhileOneRuns) {
  _controller.setInstaller(installer("exec sleep 100"));
  ASSERT_EQ(_controller.update("/new.app", "/old.app"), 0);
  EXPECT_EQ(_controller.remove("/old.app"), -EBUSY);
  EXPECT_EQ(_controller.obtainRight(), -EBUSY);
  const auto* started = wait(KELTO_INSTALLER_STARTED);
  ASSERT_NE(started, nullptr);
  ::kill(started->number, SIGKILL);
  expectFailure(KELTO_ERROR_SILENT, "status -1");
}

TEST_F(ControllerTest, RefusesRelativePaths) {
  EXPECT_EQ(_controller.update("new.app", "/old.app"), -EINVAL);
  EXPECT_EQ(_controller.update("/new.app", "old.app"), -EINVAL);
  EXPECT_EQ(_controller.remove(""), -EINVAL);
  EXPECT_EQ(_controller.setInstaller("Installer.app"), -EINVAL);
}

TEST_F(ControllerTest, TellsTheInstallerWhatToDo) {
  const auto said = _folder.path("said");
  _controller.setInstaller(installer("printf '%s\\n' \"$@\" > " + said));
  _controller.setWindowFrame(10, 20.5, 300, 400);
  _controller.update("/new.app", "/old.app");
  ASSERT_NE(wait(KELTO_FAILED), nullptr);
  const auto line = [](const char* name) { return std::string("-") + name + "\n"; };
  EXPECT_EQ(tests::readFile(said), line(protocol::sourcePathArgument) + "/new.app\n" + line(protocol::trashPathArgument) +
                                       "/old.app\n" + line(protocol::isUpdateArgument) + "YES\n" +
                                       line(protocol::mainFrameArgument) + "r: {{10, 20.5}, {300, 400}}\n");
}

TEST_F(ControllerTest, NamesItsWindowToTheInstallerInTheEnvironment) {
  const tests::EnvironmentVariable inherited(protocol::parentWindowVariable, "x11:77");
  const auto said = _folder.path("said");
  _controller.setInstaller(installer("env > " + said));
  for (const std::string name : {"wayland:0f-1", "x11:1A0000b"}) {
    ASSERT_EQ(_controller.setParentWindow(name), 0);
    _controller.update("/new.app", "/old.app");
    ASSERT_NE(wait(KELTO_FAILED), nullptr);
    _events.clear();
    EXPECT_THAT("\n" + tests::readFile(said),
                testing::HasSubstr("\n" + std::string(protocol::parentWindowVariable) + "=" + name + "\n"));
  }
}

// It may have been started by an installer that was a dialog of another window.
TEST_F(ControllerTest, WithoutAWindowPassesOnNoName) {
  const tests::EnvironmentVariable inherited(protocol::parentWindowVariable, "x11:77");
  const auto said = _folder.path("said");
  _controller.setInstaller(installer("env > " + said));
  _controller.update("/new.app", "/old.app");
  ASSERT_NE(wait(KELTO_FAILED), nullptr);
  EXPECT_THAT(tests::readFile(said), testing::HasSubstr("PATH="));
  EXPECT_THAT(tests::readFile(said), testing::Not(testing::HasSubstr(protocol::parentWindowVariable)));
}

TEST_F(ControllerTest, RefusesNamesOfWindowsThatNoDisplayGives) {
  for (const auto* name : {"", "x11", "x11:0", "wayland:", "wayland:a b", "0x1a0000b"})
    EXPECT_EQ(_controller.setParentWindow(name), -EINVAL) << name;
  EXPECT_EQ(_controller.setParentWindow("wayland:" + std::string(5000, 'h')), -EINVAL);
  kelto_controller* other = kelto_controller_new(
      nullptr, [](void*, int, int, const char*) {}, nullptr);
  EXPECT_EQ(kelto_controller_set_parent_window(other, nullptr), 0);
  kelto_controller_free(other);
}

TEST_F(ControllerTest, KeepsNothingOfItsProcessInTheInstaller) {
  const auto said = _folder.path("said");
  const int leaked = ::open("/dev/null", O_RDONLY);  // without close-on-exec, as libraries do
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigset_t before;
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  // The fourth descriptor is the listing's own.
  _controller.setInstaller(
      installer("exec /usr/bin/python3 -Ic 'import os, signal; print(os.getcwd(), "
                "sorted(os.listdir(\"/proc/self/fd\")), signal.pthread_sigmask(0, []))' > " +
                said));
  _controller.remove("/old.app");
  const bool ended = wait(KELTO_FAILED) != nullptr;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::close(leaked);
  ASSERT_TRUE(ended);
  EXPECT_EQ(tests::readFile(said), "/ ['0', '1', '2', '3'] set()\n");
}

TEST_F(ControllerTest, PassesOnTheRequestToQuit) {
  _controller.obtainRight();
  ASSERT_NE(wait(KELTO_RIGHT_GRANTED), nullptr);  // by then the name is taken
  EXPECT_GE(activate("print"), 0);
  EXPECT_GE(activate("quit"), 0);
  EXPECT_NE(wait(KELTO_QUIT_REQUESTED), nullptr);
  EXPECT_EQ(_events.size(), 2U) << "other actions mean nothing";
}

// The first event of a further controller for this identifier.
std::optional<Happened> firstEventOf(const char* identifier) {
  std::optional<Happened> first;
  kelto::Controller controller(identifier, [&](int event, int number, const std::string& text) {
    if (!first) first = Happened{event, number, text};
  });
  pollfd ready{.fd = controller.fd(), .events = POLLIN, .revents = 0};
  const auto deadline = std::chrono::steady_clock::now() + 5s;
  while (!first && std::chrono::steady_clock::now() < deadline)
    if (::poll(&ready, 1, 5000) == 1) controller.dispatch();
  return first;
}

TEST_F(ControllerTest, TellsThatSomebodyElseHasItsName) {
  _controller.obtainRight();
  ASSERT_NE(wait(KELTO_RIGHT_GRANTED), nullptr);  // by then the name is taken
  const auto told = firstEventOf(editor);
  ASSERT_TRUE(told);
  EXPECT_EQ(told->event, KELTO_NAME_NOT_OWNED);
  EXPECT_EQ(told->number, EBUSY);
  EXPECT_EQ(told->text, "another process has the bus name com.example.Editor");
  EXPECT_EQ(_events.size(), 1U) << "the first one has it";
}

TEST_F(ControllerTest, TellsThatItsIdentifierCannotBeABusName) {
  for (const char* identifier : {"Editor", "com.example.3D", "com.example.My Editor"}) {
    const auto told = firstEventOf(identifier);
    ASSERT_TRUE(told) << identifier;
    EXPECT_EQ(told->event, KELTO_NAME_NOT_OWNED);
    EXPECT_EQ(told->number, EINVAL);
    EXPECT_EQ(told->text, "not a bus name: " + std::string(identifier));
  }
}

TEST_F(ControllerTest, TellsThatTheBusRefusesTheName) {
  const auto told = firstEventOf("org.freedesktop.DBus");
  ASSERT_TRUE(told);
  EXPECT_EQ(told->event, KELTO_NAME_NOT_OWNED);
  EXPECT_GT(told->number, 0);
  EXPECT_EQ(told->text.find("the session bus refuses the name org.freedesktop.DBus: "), 0U) << told->text;
}

TEST_F(ControllerTest, LetsTheHandlerFreeTheController) {
  static kelto_controller* second = nullptr;
  static int calls = 0;
  calls = 0;
  second = kelto_controller_new(
      nullptr,
      [](void*, int, int, const char*) {
        ++calls;
        kelto_controller_free(second);
      },
      nullptr);
  ASSERT_NE(second, nullptr);
  kelto_controller_set_installer(second, installer("exec sleep 100").c_str());
  kelto_controller_obtain_right(second);
  while (calls == 0) {
    pollfd ready{.fd = kelto_controller_fd(second), .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&ready, 1, 20'000), 1);
    kelto_controller_dispatch(second);
  }
  EXPECT_EQ(calls, 1);
}

// A question that the handler asks runs a loop of its own, as a dialog does.
struct Question {
  kelto_controller* controller = nullptr;
  std::vector<int> events;
  int turns = 0;

  static void happened(void* data, int event, int /*number*/, const char* /*text*/) {
    auto& question = *static_cast<Question*>(data);
    question.events.push_back(event);
    if (event == KELTO_FAILED) return;
    kelto_controller_update(question.controller, "/new.app", "/old.app");
    while (question.events.back() != KELTO_FAILED && question.turns < 100) question.turn(100);
  }
  void turn(int milliseconds) {
    pollfd ready{.fd = kelto_controller_fd(controller), .events = POLLIN, .revents = 0};
    ::poll(&ready, 1, milliseconds);
    ++turns;
    kelto_controller_dispatch(controller);
  }
};

TEST_F(ControllerTest, ServesTheLoopThatTheHandlerRuns) {
  Question question;
  question.controller = kelto_controller_new(nullptr, Question::happened, &question);
  ASSERT_NE(question.controller, nullptr);
  kelto_controller_set_installer(question.controller, "/nowhere/Installer.app");
  kelto_controller_obtain_right(question.controller);
  for (int i = 0; i < 100 && question.events.empty(); ++i) question.turn(1000);
  EXPECT_THAT(question.events, testing::ElementsAre(KELTO_RIGHT_GRANTED, KELTO_FAILED));
  EXPECT_LT(question.turns, 100);
  kelto_controller_free(question.controller);
}

TEST(ControllerOfNothing, IsRefusedWithoutACrash) {
  kelto_controller_free(nullptr);
  kelto_controller_dispatch(nullptr);
  EXPECT_EQ(kelto_controller_fd(nullptr), -EINVAL);
  EXPECT_EQ(kelto_controller_obtain_right(nullptr), -EINVAL);
  EXPECT_EQ(kelto_controller_new(editor, nullptr, nullptr), nullptr);
}

const std::string resume = std::string("-") + protocol::resumeArgument;

struct Words {
  std::vector<std::string> given;
  bool isResumed;
  std::vector<std::string> left;
};

class ResumeArgument : public testing::TestWithParam<Words> {};

TEST_P(ResumeArgument, IsTakenOutOfTheArguments) {
  auto given = GetParam().given;
  std::vector<char*> words;
  for (auto& each : given) words.push_back(each.data());
  words.push_back(nullptr);
  int count = static_cast<int>(given.size());
  EXPECT_EQ(kelto_take_resume_argument(&count, words.data()), GetParam().isResumed ? 1 : 0);
  EXPECT_EQ(std::vector<std::string>(words.data(), words.data() + count), GetParam().left);
  EXPECT_EQ(words[static_cast<std::size_t>(count)], nullptr);
}

INSTANTIATE_TEST_SUITE_P(Words, ResumeArgument,
                         testing::Values(Words{{"editor"}, false, {"editor"}}, Words{{}, false, {}},
                                         Words{{"editor", resume, "YES"}, true, {"editor"}},
                                         Words{{"editor", resume, "NO", "x"}, false, {"editor", "x"}},
                                         Words{{"editor", "-a", resume, "YES", "b"}, true, {"editor", "-a", "b"}},
                                         Words{{"editor", resume}, false, {"editor", resume}}));

}  // namespace
