#include "tests/privileged/tool/DesktopFaults.h"

namespace tests::tool {
namespace {

// Some of the calls; the whole matrix is among the slow tests.
TEST_F(DesktopFaultMatrix, HasNoBadRowAfterKills) { runEntries({{"SIGKILL", 0}}, false, 29); }

TEST_F(DesktopFaultMatrix, HasNoBadRowAfterErrors) { runEntries({{"EIO", EIO}}, false, 37); }

// Nothing can be noted, so the job is done without its entry.
TEST_F(DesktopFaultMatrix, AcceptsNoEntryThatIsLeftOutInSilence) {
  const Places places{.here = volume("here"),
                      .there = volume("there"),
                      .isRoot = true,
                      .user = {invokingUser, invokingGroup},
                      .root = {},
                      .units = {}};
  setHome(places.here / "home");
  EntryCase job(places, EntryCase::Kind::replace);
  job.prepare();
  fs::remove_all("/var/lib/kelto/entries");
  write("/var/lib/kelto/entries", "");
  const auto answer = runWithFault(places.tool(), bytesOf(job.job()), environment, {}).answer;
  EXPECT_EQ(read(result), protocol::successVerdict);
  EXPECT_EQ(job.look(), Found::unfinished);
  EXPECT_FALSE(job.isEnough(Found::unfinished));
  job.hear(answer.text);
  EXPECT_TRUE(job.isEnough(Found::unfinished)) << answer.text;
  fs::remove("/var/lib/kelto/entries");
}

TEST_F(DesktopPowerCut, LeavesTheEntryWholeAndTheNextJobThatOfTheBundle) {
  printHead();
  const auto cuts = cut(entryCases()[1], fileSystemKinds.front(), {}, 15);
  if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_EQ(cuts.torn, 0);
  EXPECT_GT(cuts.old, 0);
  EXPECT_GT(cuts.done, 0);
}

}  // namespace
}  // namespace tests::tool
