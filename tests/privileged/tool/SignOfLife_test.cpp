#include "privileged/tool/SignOfLife.h"

#include <thread>

#include "tests/privileged/tool/ToolRun.h"
#include "tests/support/Eventually.h"

namespace tests::tool {
namespace {

using AssistantTool::Answer;
using Sign = Answer::Sign;
using testing::ElementsAre;

class NotedSigns final : public Answer {
 public:
  void write(std::string_view /*text*/) const override {}
  void give(Sign sign) const override {
    signs.push_back(sign);
    errno = EIO;
  }
  [[nodiscard]] std::pair<dev_t, ino_t> identity() const override { return {}; }
  mutable std::vector<Sign> signs;
};

TEST(SignOfLife, IsNotGivenForEveryStep) {
  const NotedSigns noted;
  const AssistantTool::SignsOfLife signs(noted);
  for (int step = 0; step < 1000; ++step) AssistantTool::giveSignOfLife();
  EXPECT_LE(noted.signs.size(), 3U);
}

TEST(SignOfLife, IsGivenAboutOnceASecond) {
  const NotedSigns noted;
  const AssistantTool::SignsOfLife signs(noted);
  EXPECT_TRUE(tests::eventually([&] {
    AssistantTool::giveSignOfLife();
    return !noted.signs.empty();
  }));
}

TEST(SignOfLife, EnclosesASyncAndKeepsItsError) {
  const NotedSigns noted;
  const AssistantTool::SignsOfLife signs(noted);
  EXPECT_EQ(AssistantTool::syncDescriptor(-1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_THAT(noted.signs, ElementsAre(Sign::longCall, Sign::life));
}

class SignOfLifeOfAJob : public ToolTest {
 protected:
  [[nodiscard]] time_t accessed() const { return statusOf(result).st_atim.tv_sec; }
};

TEST_F(SignOfLifeOfAJob, SaysThatItIsInALongCall) {
  command = withFaults({"syncfs:delay_enter=1000000"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  makeBundle(folder / "Old.app", "1");
  makeBundle(folder / "New.app", "2");
  for (int number = 0; number < 20; ++number) write(folder / "New.app/Contents" / std::to_string(number), "x");
  tests::tool::Answer answer;
  std::thread job([&] { answer = replace(folder / "Old.app", folder / "New.app"); });
  EXPECT_TRUE(tests::eventually([this] { return accessed() == protocol::longCallTime; }));
  job.join();
  EXPECT_GT(accessed(), protocol::longCallTime);
  expectSuccess(answer);
}

}  // namespace
}  // namespace tests::tool
