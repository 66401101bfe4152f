#include "tests/privileged/tool/DesktopFaults.h"

namespace tests::tool {
namespace {

class WholeDesktopFaultMatrix : public DesktopFaultMatrix {};
class EveryDesktopPowerCut : public DesktopPowerCut {};

TEST_F(WholeDesktopFaultMatrix, HasNoBadRow) { runEntries(allFaults, true, 1); }

TEST_F(EveryDesktopPowerCut, LeavesTheEntryWholeAndTheNextJobThatOfTheBundle) {
  printHead();
  for (const auto& kind : fileSystemKinds)
    for (const auto& named : entryCases()) EXPECT_EQ(cut(named, kind, {}).torn, 0) << named.name << " on " << kind.name;
}

}  // namespace
}  // namespace tests::tool
