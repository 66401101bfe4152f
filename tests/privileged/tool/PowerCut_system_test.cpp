#include <algorithm>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/PowerCut.h"

namespace tests::tool {
namespace {

TEST_F(PowerCut, LeavesTheOldOrTheNewItemWhole) {
  printHead();
  Cuts all;
  for (const auto& named : itemCases()) {
    if (named.name != protocol::replaceItemCommand && named.name != "move across" &&
        named.name != protocol::trashFileCommand)
      continue;
    const auto cuts = cut(named, fileSystemKinds.front(), {}, 2);
    EXPECT_EQ(cuts.torn, 0) << named.name;
    EXPECT_EQ(cuts.gap, 0) << named.name;
    all.old += cuts.old;
    all.done += cuts.done;
  }
  if (all.old + all.done == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_GT(all.old, 0);
  EXPECT_GT(all.done, 0);
}

TEST_F(PowerCut, LeavesTheOldOrTheNewItemWholeThatWasJustWritten) {
  printHead();
  isJustWritten = true;
  EXPECT_EQ(cut(itemCases().front(), fileSystemKinds.front(), {}).torn, 0);
}

// Here the disk has an owner only once something was synced after it was changed.
TEST_F(PowerCut, LeavesATrashedItemToItsUserAfterTheVerdict) {
  printHead();
  const auto cases = itemCases();
  const auto named = std::ranges::find(cases, protocol::trashFileCommand, &NamedCase::name);
  const auto kind = std::ranges::find(fileSystemKinds, "xfs", &FileSystemKind::name);
  const auto cuts = cut(*named, *kind, {});
  if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_EQ(cuts.torn, 0);
  EXPECT_GT(cuts.done, 0);
}

TEST_F(PowerCut, LeavesEachServerFileWholeAndTheNextUpgradeOneVersion) {
  printHead();
  isSplit = true;
  const auto cuts = cut(upgradeCases().front(), fileSystemKinds.front(), {}, 3);
  if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_EQ(cuts.torn, 0);
  EXPECT_GT(cuts.old, 0);
  EXPECT_GT(cuts.between, 0);
  EXPECT_GT(cuts.done, 0);
}

TEST_F(PowerCut, WouldBeSeenToTearAServerThatWasNotSynced) {
  printHead();
  reportsTorn = false;
  const auto cuts = cut(upgradeCases().front(), fileSystemKinds.front(), {.withoutTreeSync = true});
  if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_GT(cuts.torn, 0);
}

TEST_F(PowerCut, WouldBeSeenToTearATreeThatWasNotSynced) {
  printHead();
  reportsTorn = false;
  isJustWritten = true;
  const auto cuts = cut(itemCases().front(), fileSystemKinds.front(), {.withoutTreeSync = true});
  if (cuts.cuts == 0) GTEST_SKIP() << "no disk can be recorded here";
  EXPECT_GT(cuts.torn, 0);
}

}  // namespace
}  // namespace tests::tool
