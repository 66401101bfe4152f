#pragma once
// Bundles with a real program in them, and that program running.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/Workspace.h"
#include "posix/Descriptor.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace tests {

// A running program that dies with this object, and with the test.
class TestProgram {
 public:
  // The words are the program and its arguments (see programs/test_application.cpp). Returns when it is ready.
  explicit TestProgram(std::vector<std::string> words) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    _output = posix::Descriptor(ends[0]);
    const posix::Descriptor writing(ends[1]);
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t test = ::getpid();
    _process = ::fork();
    if (_process == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::setpgid(0, 0);
      ::dup2(writing.get(), STDOUT_FILENO);
      if (::getppid() == test) ::execv(arguments[0], arguments.data());
      ::_exit(127);
    }
  }
  TestProgram(const TestProgram&) = delete;
  TestProgram& operator=(const TestProgram&) = delete;
  ~TestProgram() {
    kill();
    reap();
  }

  [[nodiscard]] pid_t number() const { return _process; }
  // The read end of its standard output.
  [[nodiscard]] int output() const { return _output.get(); }

  // The next line that it prints; empty when it ended or says nothing for a while.
  std::string line() {
    std::string text;
    pollfd readable{_output.get(), POLLIN, 0};
    char byte = 0;
    while (::poll(&readable, 1, 20'000) > 0 && ::read(_output.get(), &byte, 1) == 1 && byte != '\n') text += byte;
    return text;
  }
  bool isReady() { return line() == "ready"; }

  // With the programs that it has started.
  void kill() const {
    if (_process <= 0) return;
    ::kill(_process, SIGKILL);
    ::kill(-_process, SIGKILL);
  }
  // Waits for the end and takes notice of it; the wait status.
  int reap() {
    int status = 0;
    if (_process > 0) ::waitpid(std::exchange(_process, -1), &status, 0);
    return status;
  }
  // Waits for the end without taking notice of it.
  [[nodiscard]] bool isZombie() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(_process), &info, WEXITED | WNOWAIT) == 0;
  }
  // True while it runs.
  [[nodiscard]] bool isAlive() const {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(_process), &info, WEXITED | WNOWAIT | WNOHANG) == 0 && info.si_pid == 0;
  }

 private:
  pid_t _process = -1;
  posix::Descriptor _output;
};

// By chance: the number of a process may be that of one that an earlier test has left.
inline const std::string numberOfThisRun = std::to_string(std::random_device{}());

class ApplicationTest : public testing::Test {
 protected:
  // Copies are looked for on the whole machine, where other tests run at the same time.
  static inline const std::string identifier = "com.kelto.test-Application" + numberOfThisRun;

  // Makes a bundle of this name with the program in it; its path.
  std::string makeBundle(const std::string& name, const std::string& bundleIdentifier = identifier,
                         const std::string& programFolder = "Contents/Linux") {
    const std::string bundle = root + "/" + name;
    std::filesystem::create_directories(bundle + "/" + programFolder);
    std::filesystem::copy_file(KELTO_BIN_DIR "/test_application", bundle + "/" + programFolder + "/program");
    writeFile(bundle + "/Contents/Info.plist", "");
    auto known = std::make_shared<platform::fake::FakeBundle>();
    known->path = bundle;
    known->info = {{"CFBundleIdentifier", bundleIdentifier}, {"CFBundleExecutable", "program"}};
    bundles.others[bundle] = known;
    return bundle;
  }

  std::vector<std::shared_ptr<platform::RunningApplication>> running() { return workspace.runningApplications(identifier); }

  // Asks the only running copy to quit.
  bool askOnlyCopy() {
    const auto copies = running();
    EXPECT_EQ(copies.size(), 1U);
    return copies.size() == 1 && copies[0]->terminate();
  }

  TemporaryFolder folder;
  std::string root = std::filesystem::canonical(folder.path());
  platform::fake::FakeBundles bundles;
  platform::fake::FakeSystemLog log;
  platform::Linux::DirectCall direct;
  platform::Linux::Workspace workspace{bundles, log, direct};
};

}  // namespace tests
