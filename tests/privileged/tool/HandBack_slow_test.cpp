#include "tests/privileged/tool/HandBack.h"

namespace tests::tool {
namespace {

TEST_P(HandBack, PutsNothingBackAtAnyCallAsRootsThatTheUserCouldWrite) { attackAtCalls(1); }
INSTANTIATE_TEST_SUITE_P(Of, HandBack, ::testing::ValuesIn(allAttacks), nameOfAttack);

}  // namespace
}  // namespace tests::tool
