#include "tests/privileged/tool/KeptFaults.h"

namespace tests::tool {
namespace {

// Some of the calls; the whole matrix is among the slow tests.
TEST_F(KeptFaultMatrix, HasNoBadRowAfterKills) {
  runOnAnotherFileSystem({{"SIGKILL", 0}}, 31);
  runBesideTheStore({{"SIGKILL", 0}}, 23);
}

TEST_F(KeptFaultMatrix, HasNoBadRowAfterErrors) { runBesideTheStore({{"EIO", EIO}}, 29); }

TEST_F(KeptPowerCut, LeavesBothVersionsWhole) {
  printHead();
  for (const auto& named : keepingCases()) {
    const auto cuts = cut(named, fileSystemKinds.front(), {}, 12);
    if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
    EXPECT_EQ(cuts.torn, 0) << named.name;
    EXPECT_GT(cuts.old, 0);
    EXPECT_GT(cuts.done, 0);
  }
}

}  // namespace
}  // namespace tests::tool
