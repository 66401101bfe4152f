#include <chrono>

#include "tests/privileged/tool/themes/AttackSecondNames.h"

namespace tests::tool {
namespace {

TEST_F(SecondNames, MadeDuringUpdatesForMinutesKeepNoFileOfTheInstalledBundle) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  int done = 0;
  int tried = 0;
  for (; std::chrono::steady_clock::now() < end; ++tried) {
    if (attackOnce()) ++done;
    ASSERT_EQ(changedByTheUser(), 0) << "in update " << tried;
  }
  std::printf("%d of %d updates done, %d second names\n", done, tried, names);
  EXPECT_EQ(done, tried) << lastText;
  EXPECT_GT(names, tried);
}

}  // namespace
}  // namespace tests::tool
