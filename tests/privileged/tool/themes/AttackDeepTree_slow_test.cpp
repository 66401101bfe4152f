#include "tests/privileged/tool/themes/AttackDeepTree.h"

namespace tests::tool {
namespace {

INSTANTIATE_TEST_SUITE_P(Levels, DeepTree, ::testing::Values(4000, 12000),
                         [](const auto& levels) { return std::to_string(levels.param); });

}  // namespace
}  // namespace tests::tool
