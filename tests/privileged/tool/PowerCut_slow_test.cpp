#include "tests/privileged/tool/PowerCut.h"

namespace ToolTests {
namespace {

class EveryPowerCut : public PowerCut, public ::testing::WithParamInterface<bool> {};

TEST_P(EveryPowerCut, LeavesTheOldOrTheNewItemWhole) {
  printHead();
  int all = 0;
  for (const auto& kind : FileSystemKinds) {
    for (const auto& named : faultCases()) {
      if (named.needsRoot) continue;  // the upgrade's three files lie on the machine's own disk
      const auto cuts = cut(named, kind, {.withoutRenameFlags = !GetParam()});
      all += cuts.cuts;
      EXPECT_EQ(cuts.torn, 0) << named.name << " on " << kind.name;
      if (!named.name.starts_with("replace item")) continue;
      isJustWritten = true;
      const auto fresh = cut(named, kind, {.withoutRenameFlags = !GetParam()});
      EXPECT_EQ(fresh.torn, 0) << named.name << ", just written, on " << kind.name;
      isJustWritten = false;
    }
  }
  if (all == 0) GTEST_SKIP() << "no disk can be recorded here";
}
INSTANTIATE_TEST_SUITE_P(WithExchange, EveryPowerCut, ::testing::Values(true));
INSTANTIATE_TEST_SUITE_P(WithoutExchange, EveryPowerCut, ::testing::Values(false));

}  // namespace
}  // namespace ToolTests
