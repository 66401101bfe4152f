#include "tests/privileged/tool/themes/AttackDeepTree.h"

namespace tests::tool {
namespace {

// The kernel checks each folder above an entry, so the time grows with the square of the depth: trees near the bound are
// slow tests.
INSTANTIATE_TEST_SUITE_P(Levels, DeepTree, ::testing::Values(2000, 5000),
                         [](const auto& levels) { return std::to_string(levels.param); });

}  // namespace
}  // namespace tests::tool
