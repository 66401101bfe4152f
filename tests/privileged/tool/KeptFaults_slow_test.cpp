#include "tests/privileged/tool/KeptFaults.h"

namespace tests::tool {
namespace {

class WholeKeptFaultMatrix : public KeptFaultMatrix {};
class EveryKeptPowerCut : public KeptPowerCut {};

TEST_F(WholeKeptFaultMatrix, HasNoBadRow) {
  runOnAnotherFileSystem(allFaults, 1);
  runBesideTheStore(allFaults, 1);
}

TEST_F(EveryKeptPowerCut, LeavesBothVersionsWhole) {
  printHead();
  for (const auto& kind : fileSystemKinds)
    for (const auto& named : keepingCases()) EXPECT_EQ(cut(named, kind, {}).torn, 0) << named.name << " on " << kind.name;
}

}  // namespace
}  // namespace tests::tool
