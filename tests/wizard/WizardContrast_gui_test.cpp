// The wizard's face and its alerts are painted light, so their texts are readable on a desktop that prefers dark colours.
#include <gtest/gtest.h>

#include <QColor>
#include <QTemporaryDir>
#include <fstream>
#include <sstream>

#include "tests/support/CommandLine.h"
#include "tests/support/PrivateDisplay.h"

namespace {

// The least that letters of ordinary size should have.
constexpr double leastContrast = 4.5;

constexpr int languages = 2;
constexpr int modes = 3;
constexpr int textsOfAWizard = 3;  // headline, body and the button that can be pressed
constexpr int alerts = 4;
constexpr int textsOfAnAlert = 3;

// A desktop whose settings ask for pale letters on nearly black, in the way that Qt's own theme for it reads them.
class DarkDesktop : public testing::TestWithParam<const char*> {
 protected:
  DarkDesktop() {
    std::ofstream settings(folder.filePath("kdeglobals").toStdString());
    for (const char* group : {"Window", "View", "Button", "Selection", "Tooltip"})
      settings << "[Colors:" << group << "]\nBackgroundNormal=32,35,38\nBackgroundAlternate=40,44,48\n"
               << "ForegroundNormal=239,240,241\nForegroundInactive=161,169,177\n";
  }

  [[nodiscard]] tests::Outcome measure(const std::string& what) const {
    return tests::runCommandLine(
        "env QT_QPA_PLATFORM=xcb XDG_CURRENT_DESKTOP=KDE KDE_FULL_SESSION=true KDE_SESSION_VERSION=5 "
        "GTK_THEME=Adwaita:dark XDG_CONFIG_HOME=" +
        folder.path().toStdString() + " HOME=" + folder.path().toStdString() + " " + GetParam() +
        " " KELTO_BIN_DIR "/wizard_measures " + what + " 2>/dev/null");
  }

  QTemporaryDir folder;
  tests::PrivateDisplay display;
};

TEST_P(DarkDesktop, LeavesEveryTextReadable) {
  const auto desktop = measure("desktop");
  ASSERT_EQ(desktop.output, "#202326\n#eff0f1\n") << "the desktop is dark";
  const auto measured = measure("contrast");
  ASSERT_EQ(measured.status, 0);
  std::istringstream lines(measured.output);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_GE(std::stod(line), leastContrast) << line;
  EXPECT_EQ(count, languages * (modes * textsOfAWizard + alerts * textsOfAnAlert));
}

// For those who need more: the least for letters of any size and for everybody.
TEST(HighContrast, GivesEveryTextMoreContrast) {
  constexpr double more = 7;
  const tests::PrivateDisplay display;
  const auto measured = tests::runCommandLine("QT_QPA_PLATFORM=xcb KELTO_HIGH_CONTRAST=1 " KELTO_BIN_DIR
                                              "/wizard_measures contrast 2>/dev/null");
  ASSERT_EQ(measured.status, 0);
  std::istringstream lines(measured.output);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_GE(std::stod(line), more) << line;
  EXPECT_EQ(count, languages * (modes * textsOfAWizard + alerts * textsOfAnAlert));
}

INSTANTIATE_TEST_SUITE_P(Style, DarkDesktop, testing::Values("", "QT_STYLE_OVERRIDE=windows"));

}  // namespace
