#include "platform/linux/ToolStream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <thread>

#include "protocol/ToolProtocol.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds silence{200};

class ToolStreamTest : public testing::Test {
 protected:
  void SetUp() override {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    tool = posix::Descriptor(ends[0]);
    stream = std::make_unique<ToolStream>(posix::Descriptor(ends[1]), blockingCall, onToolRuns, silence, cause);
    std::ofstream(signs).close();
    stream->expectSignsOfLife(signs);
  }

  void modify(timespec time) const {
    const std::array<timespec, 2> times{time, time};
    EXPECT_EQ(::utimensat(AT_FDCWD, signs.c_str(), times.data(), 0), 0);
  }
  void answer() const { EXPECT_EQ(::write(tool.get(), "x", 1), 1); }
  std::size_t read() const {
    char byte = 0;
    return stream->read(&byte, 1);
  }

  tests::TemporaryFolder folder;
  const std::string signs = folder.path("result");
  DirectCall blockingCall;
  const std::function<void(bool)> onToolRuns;
  std::string cause;
  posix::Descriptor tool;
  std::unique_ptr<ToolStream> stream;
};

// Keeps doing it until the tool would have been given up several times.
template <typename Step>
void forLong(Step step) {
  for (const auto end = steady_clock::now() + 4 * silence; steady_clock::now() < end;) step();
}

TEST_F(ToolStreamTest, GivesUpAToolThatIsSilent) {
  EXPECT_EQ(read(), 0U);
  EXPECT_THAT(cause, testing::HasSubstr("silent"));
}

TEST_F(ToolStreamTest, GivesUpAToolThatTakesNothing) {
  ASSERT_EQ(::fcntl(tool.get(), F_SETFL, O_NONBLOCK), 0);
  const std::string much(8 << 20, 'x');
  EXPECT_LT(stream->write(much.data(), much.size()), much.size());
  EXPECT_THAT(cause, testing::HasSubstr("silent"));
}

TEST_F(ToolStreamTest, WaitsForAToolThatGivesSignsOfLife) {
  std::thread working([this] {
    time_t second = 1;
    forLong([&] { modify({.tv_sec = ++second, .tv_nsec = 0}); });
    answer();
  });
  EXPECT_EQ(read(), 1U);
  EXPECT_EQ(cause, "");
  working.join();
}

TEST_F(ToolStreamTest, WaitsForAToolInALongCallAndNoLongerAfterIt) {
  modify({.tv_sec = protocol::longCallTime, .tv_nsec = 0});
  std::thread working([this] {
    forLong([] { ::usleep(1000); });
    modify({.tv_sec = 1, .tv_nsec = 0});
  });
  const auto start = steady_clock::now();
  EXPECT_EQ(read(), 0U);
  EXPECT_GE(steady_clock::now() - start, 4 * silence);
  EXPECT_THAT(cause, testing::HasSubstr("silent"));
  working.join();
}

TEST_F(ToolStreamTest, DoesNotWaitForAToolThatDiesInALongCall) {
  modify({.tv_sec = protocol::longCallTime, .tv_nsec = 0});
  tool.reset();
  EXPECT_EQ(read(), 0U);
  EXPECT_EQ(cause, "");
}

}  // namespace
}  // namespace platform::Linux
