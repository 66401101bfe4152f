#include "tests/privileged/tool/PowerCut.h"

namespace tests::tool {
namespace {

class EveryPowerCut : public PowerCut, public ::testing::WithParamInterface<bool> {
 protected:
  void runAll(const std::vector<NamedCase>& cases) {
    printHead();
    int all = 0;
    for (const auto& kind : fileSystemKinds) {
      for (const auto& named : cases) {
        all += run(named, kind);
        const bool bringsSomethingNew = named.name.starts_with("replace") || named.name.starts_with("upgrade");
        if (!bringsSomethingNew || isSplit) continue;
        isJustWritten = true;
        all += run(named, kind);
        isJustWritten = false;
      }
    }
    if (all == 0) GTEST_SKIP() << "no disk can be recorded here";
  }

 private:
  int run(const NamedCase& named, const FileSystemKind& kind) {
    const auto cuts = cut(named, kind, {.withoutRenameFlags = !GetParam()});
    EXPECT_EQ(cuts.torn, 0) << named.name << (isJustWritten ? ", just written, on " : " on ") << kind.name;
    return cuts.cuts;
  }
};

TEST_P(EveryPowerCut, LeavesTheOldOrTheNewItemWhole) { runAll(itemCases()); }

TEST_P(EveryPowerCut, LeavesEachServerFileWholeAndTheNextUpgradeOneVersion) { runAll(upgradeCases()); }

TEST_P(EveryPowerCut, LeavesTheServerWholeThatLiesOnTwoFileSystems) {
  isSplit = true;
  runAll(upgradeCases());
}

TEST_P(EveryPowerCut, LeavesTheServerWholeWhoseUpgradeWasKilledBefore) {
  isSplit = wasKilled = true;
  runAll(upgradeCases());
}

INSTANTIATE_TEST_SUITE_P(WithExchange, EveryPowerCut, ::testing::Values(true));
INSTANTIATE_TEST_SUITE_P(WithoutExchange, EveryPowerCut, ::testing::Values(false));

}  // namespace
}  // namespace tests::tool
