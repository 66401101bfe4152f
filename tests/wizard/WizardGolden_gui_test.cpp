// The wizard and an alert look as they did when somebody last looked at them and was content: pictures in
// tests/wizard/golden. scripts/golden-pictures.sh makes them anew.
#include <gtest/gtest.h>

#include <QFileInfo>
#include <QTemporaryDir>
#include <filesystem>
#include <string>
#include <tuple>

#include "tests/support/CommandLine.h"
#include "tests/wizard/GoldenPicture.h"
#include "tests/wizard/PictureComparison.h"

namespace {

const QString golden = KELTO_SOURCE_DIR "/tests/wizard/golden/";

class WizardGolden : public testing::TestWithParam<std::tuple<std::string, std::string>> {};

// Where the pictures side by side are written, for whoever wants to know what has changed.
QString writtenBeside(const tests::Comparison& comparison, const QString& file) {
  const std::filesystem::path folder = std::filesystem::path(KELTO_BIN_DIR).parent_path() / "golden-differences";
  std::filesystem::create_directories(folder);
  const QString path = QString::fromStdString(folder / file.toStdString());
  return comparison.sideBySide.save(path) ? path : "(cannot write " + path + ")";
}

void expectSame(const QString& expectedFile, const QString& foundPath) {
  const QImage expected(golden + expectedFile);
  const QImage found(foundPath);
  ASSERT_FALSE(expected.isNull()) << expectedFile.toStdString();
  ASSERT_FALSE(found.isNull()) << foundPath.toStdString();
  if (expected == found) return;  // the comparison is slow
  const auto comparison = tests::compare(expected, found);
  if (comparison.differingPixels == 0) return;
  ADD_FAILURE() << expectedFile.toStdString() << ": " << comparison.differingPixels << " pixels differ by more than "
                << tests::channelTolerance << " of 255, the most by " << comparison.largestDifference
                << "; expected, found and where they differ:\n"
                << writtenBeside(comparison, QFileInfo(foundPath).fileName()).toStdString();
}

// The face stays light on a dark desktop, to the last pixel.
TEST_P(WizardGolden, LooksAsItDid) {
  const auto& [language, scale] = GetParam();
  const QTemporaryDir folder;
  const auto made = tests::runCommandLine(KELTO_BIN_DIR "/wizard_pictures golden " + language + " " + scale + " " +
                                          folder.path().toStdString() + " 2>&1");
  ASSERT_EQ(made.status, 0) << made.output;
  for (const char* name : {"update", "install", "uninstall", "alert"})
    for (const std::string look : {"plain", "contrast", "dark"}) {
      tests::GoldenPicture picture{.name = name, .look = look, .language = language, .scale = scale};
      const QString found = folder.filePath(picture.file());
      if (look == "dark") picture.look = "plain";
      expectSame(picture.file(), found);
    }
}

// Forms of Chinese letters that differ between its countries, long words, and a layout from right to left.
INSTANTIATE_TEST_SUITE_P(Pictures, WizardGolden,
                         testing::Combine(testing::Values("en", "ja", "zh-Hans", "de", "ar"),
                                          testing::Values("1", "1.5", "2")));

// The differences that the comparison reports, and those that it tolerates.
struct PictureComparison : testing::Test {
  QImage picture{golden + "update.png"};
};

TEST_F(PictureComparison, APictureIsAsItIs) {
  ASSERT_FALSE(picture.isNull());
  EXPECT_EQ(tests::compare(picture, picture).differingPixels, 0);
}

TEST_F(PictureComparison, AButtonMovedByTwoPointsIsSeen) {
  QImage moved = picture;
  const QRect button(230, 276, 98, 30);
  QPainter(&moved).drawImage(button.topLeft() - QPoint(2, 0), picture.copy(button));
  EXPECT_GT(tests::compare(picture, moved).differingPixels, 100);
}

TEST_F(PictureComparison, AShadeLighterIsSeen) {
  QImage lighter = picture;
  QPainter painter(&lighter);
  painter.setCompositionMode(QPainter::CompositionMode_Plus);
  painter.fillRect(QRect(0, 262, 460, 58), QColor(4, 4, 4));
  painter.end();
  EXPECT_GT(tests::compare(picture, lighter).differingPixels, 20000);
}

TEST_F(PictureComparison, RoundingIsLetPass) {
  QImage rounded = picture;
  QPainter painter(&rounded);
  painter.setCompositionMode(QPainter::CompositionMode_Plus);
  painter.fillRect(picture.rect().adjusted(0, 6, 0, -6), QColor(1, 1, 1));  // not the transparent corners
  painter.end();
  EXPECT_EQ(tests::compare(picture, rounded).differingPixels, 0);
}

TEST_F(PictureComparison, AnotherSizeIsSeen) {
  EXPECT_EQ(tests::compare(picture, picture.copy(0, 0, 460, 319)).differingPixels, 460);
}

}  // namespace
