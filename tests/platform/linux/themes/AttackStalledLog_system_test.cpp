// Somebody has the broker refuse thousands of calls a second while nobody reads its log: another user must not wait.
#include "tests/platform/linux/themes/StalledLog.h"

namespace tests::tool {
namespace {

TEST_P(StalledLog, DelaysNobody) { expectServedFor(25); }

INSTANTIATE_TEST_SUITE_P(Log, StalledLog, testing::Values(Log::Daemon, Log::StandardOutput),
                         [](const auto& log) { return log.param == Log::Daemon ? "Daemon" : "StandardOutput"; });

}  // namespace
}  // namespace tests::tool
