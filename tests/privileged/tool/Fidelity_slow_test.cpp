#include "tests/privileged/tool/Fidelity.h"

namespace ToolTests {
namespace {

class ManyFiles : public Fidelity, public ::testing::WithParamInterface<Way> {};

TEST_P(ManyFiles, AreAllThere) {
  const auto app = source(GetParam());
  for (int i = 0; i < 100; ++i) {
    const auto folder = app / std::to_string(i);
    fs::create_directories(folder);
    for (int j = 0; j < 1000; ++j) std::ofstream(folder / std::to_string(j)) << i << ' ' << j;
  }
  const auto taken = take(GetParam());
  int right = 0;
  for (int i = 0; i < 100; ++i) {
    for (int j = 0; j < 1000; ++j)
      right += read(taken / std::to_string(i) / std::to_string(j)) == std::to_string(i) + " " + std::to_string(j) ? 1 : 0;
  }
  EXPECT_EQ(right, 100000);
}
std::string wayOf(const ::testing::TestParamInfo<Way>& info) {
  return info.param.command + (info.param.across ? "Across" : "");
}
INSTANTIATE_TEST_SUITE_P(Fidelity, ManyFiles, ::testing::ValuesIn(Ways), wayOf);

}  // namespace
}  // namespace ToolTests
