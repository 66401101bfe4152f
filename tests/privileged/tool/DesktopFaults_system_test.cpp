#include "tests/privileged/tool/DesktopFaults.h"

namespace tests::tool {
namespace {

// Some of the calls; the whole matrix is among the slow tests.
TEST_F(DesktopFaultMatrix, HasNoBadRowAfterKills) { runEntries({{"SIGKILL", 0}}, false, 29); }

TEST_F(DesktopFaultMatrix, HasNoBadRowAfterErrors) { runEntries({{"EIO", EIO}}, false, 37); }

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
