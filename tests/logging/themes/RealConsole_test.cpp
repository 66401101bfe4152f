// The terminal logger on a real terminal, and on a standard error that goes elsewhere.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <thread>

#include "logging/DDLog.h"
#include "logging/DDTTYLogger.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/LoggingHost.h"
#include "posix/Descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace {

// A terminal of the test's own: what is written to `line` comes out of it as it is.
class PseudoTerminal {
 public:
  PseudoTerminal() : _screen(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (!_screen || ::grantpt(_screen.get()) != 0 || ::unlockpt(_screen.get()) != 0) return;
    line = posix::Descriptor(::open(::ptsname(_screen.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings{};
    if (!line || ::tcgetattr(line.get(), &settings) != 0) return;
    ::cfmakeraw(&settings);
    ::tcsetattr(line.get(), TCSANOW, &settings);
  }
  std::string shown() {
    std::string all;
    char buffer[4096];
    for (pollfd ready{.fd = _screen.get(), .events = POLLIN, .revents = 0}; ::poll(&ready, 1, 0) > 0;) {
      const ssize_t count = ::read(_screen.get(), buffer, sizeof buffer);
      if (count <= 0) break;
      all.append(buffer, static_cast<std::size_t>(count));
    }
    return all;
  }

 private:
  posix::Descriptor _screen;

 public:
  posix::Descriptor line;
};

class RealConsole : public testing::Test {
 protected:
  // The bytes that standard error at `descriptor` receives.
  void logTo(int descriptor, std::string_view text) {
    platform::Linux::Terminal terminal(descriptor);
    platform::LoggingHost host{fake.logging.storage, linux.process, terminal, fake.logging.leveledSystemLog,
                               fake.logging.memories};
    fake.platform.loggingHost = &host;
    DDLog::addLogger(DDTTYLogger::sharedInstance());
    DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1, "%@", text);
    DDLog::removeAllLoggers();
    DDLog::flushLog();
  }

  platform::Linux::LoggingHost linux;
  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(RealConsole, ALineIsShownWithTimeNameNumbersAndText) {
  PseudoTerminal terminal;
  if (!terminal.line) GTEST_SKIP() << "no pseudo terminals here";
  // A thread of its own, whose number nobody has asked for before.
  std::thread([&] {
    logTo(terminal.line.get(), "100%d\n");
    const std::string time = foundation::DateFormatter("yyyy-MM-dd HH:mm:ss:SSS").stringFromDate(fake.clock.now());
    const std::string numbers =
        foundation::formatted("[%d:%x] ", static_cast<int>(::getpid()), linux.process.currentThreadIdentifier());
    EXPECT_EQ(terminal.shown(), time + " " + linux.process.processName() + numbers + "100%d\n\n");
  }).join();
}

TEST_F(RealConsole, AFileIsNotATerminalAndGetsNothing) {
  const tests::TemporaryFolder folder;
  const posix::Descriptor file(::open(folder.path("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  logTo(file.get(), "text");
  EXPECT_EQ(tests::readFile(folder.path("err")), "");
}
