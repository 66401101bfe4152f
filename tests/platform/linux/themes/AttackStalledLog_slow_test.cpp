#include "tests/platform/linux/themes/StalledLog.h"

namespace tests::tool {
namespace {

TEST_P(StalledLog, DelaysNobodyForMinutes) { expectServedFor(2000); }

INSTANTIATE_TEST_SUITE_P(Log, StalledLog, testing::Values(Log::Daemon, Log::StandardOutput),
                         [](const auto& log) { return log.param == Log::Daemon ? "Daemon" : "StandardOutput"; });

}  // namespace
}  // namespace tests::tool
