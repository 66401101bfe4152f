// No text of the wizard or of an alert is cut, in any language, mode and scale and with larger letters, on a display.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/CommandLine.h"
#include "tests/support/PrivateDisplay.h"
#include "tests/support/ShippedLanguages.h"

namespace {

class WizardTexts : public testing::TestWithParam<const char*> {};

constexpr std::size_t modes = 3;
constexpr std::size_t textsOfAWizard = 4;  // headline, body and two buttons
constexpr std::size_t alerts = 4;
constexpr std::size_t textsOfAnAlert = 3;  // headline, message and button

TEST_P(WizardTexts, HaveTheRoomThatTheyNeed) {
  const tests::PrivateDisplay display;
  const auto measured = tests::runCommandLine(std::string("QT_QPA_PLATFORM=xcb ") + GetParam() + " " +
                                              KELTO_BIN_DIR "/wizard_measures room 2>/dev/null");
  ASSERT_EQ(measured.status, 0);
  std::istringstream lines(measured.output);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_TRUE(line.starts_with("fits ")) << line;
  EXPECT_EQ(count, tests::shippedLanguages.size() * (modes * textsOfAWizard + alerts * textsOfAnAlert));
}

INSTANTIATE_TEST_SUITE_P(Scale, WizardTexts,
                         testing::Values("QT_SCALE_FACTOR=1", "QT_SCALE_FACTOR=1.25", "QT_SCALE_FACTOR=1.5",
                                         "QT_SCALE_FACTOR=2", "QT_SCALE_FACTOR=3"));
INSTANTIATE_TEST_SUITE_P(Letters, WizardTexts, testing::Values("GDK_DPI_SCALE=1.25", "GDK_DPI_SCALE=2"));

}  // namespace
