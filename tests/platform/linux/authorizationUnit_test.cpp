// The unit in which the service manager runs the broker, judged by the service manager's own measure.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/CommandLine.h"
#include "tests/support/TemporaryFolder.h"

namespace {

const std::string unitPath = KELTO_BIN_DIR "/../share/systemd/system/kelto-authorizationd.service";
// In tenths, on the scale from 0 (nothing is exposed) to 10. The jobs need the rest: root, homes, /tmp and
// /etc.
constexpr int mostExposure = 23;

class AuthorizationUnit : public testing::Test {
 protected:
  void SetUp() override {
    if (::access("/usr/bin/systemd-analyze", X_OK) != 0) GTEST_SKIP() << "systemd-analyze is not installed";
    contents = tests::readFile(unitPath);
    ASSERT_NE(contents, "");
  }
  // Whether a unit of these contents exposes at most what is allowed, and what the measure said.
  tests::Outcome judged(const std::string& text) const {
    tests::writeFile(folder.path("kelto-authorizationd.service"), text);
    return tests::runCommandLine(
        "systemd-analyze security --no-pager --offline=true --threshold=" + std::to_string(mostExposure) + " " +
        folder.path("kelto-authorizationd.service") + " 2>&1");
  }
  [[nodiscard]] std::string without(const std::string& setting) const {
    const auto begin = contents.find("\n" + setting);
    EXPECT_NE(begin, std::string::npos) << setting;
    return contents.substr(0, begin) + contents.substr(contents.find('\n', begin + 1));
  }

  tests::TemporaryFolder folder;
  std::string contents;
};

TEST_F(AuthorizationUnit, ExposesLittle) {
  const auto outcome = judged(contents);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(outcome.output.find("Unknown"), std::string::npos) << outcome.output;
}

TEST_F(AuthorizationUnit, WouldExposeMoreWithoutAnyOneOfItsBounds) {
  for (const char* setting : {"CapabilityBoundingSet=", "PrivateNetwork=", "RestrictNamespaces=", "NoNewPrivileges=",
                              "PrivateDevices=", "SystemCallFilter=@system-service"}) {
    EXPECT_NE(judged(without(setting)).status, 0) << setting;
  }
}

}  // namespace
