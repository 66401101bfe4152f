#include "tests/privileged/tool/FaultMatrix.h"

namespace tests::tool {
namespace {

// The part that runs in seconds: some of the calls, and in memory. The whole matrix is among the slow tests.
class ShortFaultMatrix : public FaultMatrix {
 protected:
  void runShort(const std::vector<FaultKind>& faults, bool exchange, int every, const std::vector<NamedCase>& cases) {
    runAll(isRoot ? "tmpfs" : "own", place("here"), place("there"), faults, exchange, false, every, cases);
  }
  fs::path place(const std::string& name) {
    if (isRoot) return volume(name);
    fs::create_directory(folder / name);
    return folder / name;
  }
};

TEST_F(ShortFaultMatrix, HasNoBadRowAfterKills) { runShort({{"SIGKILL", 0}}, true, 11, faultCases()); }

TEST_F(ShortFaultMatrix, HasNoBadRowAfterErrors) { runShort({{"EIO", EIO}}, true, 13, faultCases()); }

TEST_F(ShortFaultMatrix, HasNoBadRowWithoutAnExchange) {
  runShort({{"SIGKILL", 0}, {"EIO", EIO}}, false, 1, {faultCases().front()});
  runShort({{"SIGKILL", 0}, {"EIO", EIO}}, false, 1, {faultCases()[2]});
}

}  // namespace
}  // namespace tests::tool
