// The short form; AttackSecondNames_slow_test.cpp goes on for minutes.
#include "tests/privileged/tool/themes/AttackSecondNames.h"

namespace tests::tool {
namespace {

TEST_F(SecondNames, MadeDuringAnUpdateKeepNoFileOfTheInstalledBundle) {
  int done = 0;
  for (int round = 0; round < 10; ++round) {
    if (attackOnce()) ++done;
    EXPECT_EQ(changedByTheUser(), 0) << "of " << fileCount << " files, in round " << round;
    EXPECT_EQ(writableBy(invokingUser, app), "");
  }
  std::printf("%d of 10 updates done, %d second names\n", done, names);
  EXPECT_EQ(done, 10) << lastText;
  EXPECT_GT(names, 0);
}

}  // namespace
}  // namespace tests::tool
