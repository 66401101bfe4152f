#include "tests/privileged/tool/Attackers.h"

namespace tests::tool {
namespace {

TEST_F(Attackers, TouchNothingOfRootsForMinutes) { attackFor(std::chrono::minutes(5)); }

TEST_F(Attackers, TouchNothingOfRootsByASwapAtAnyCall) { swapAtEachCall(1); }

}  // namespace
}  // namespace tests::tool
