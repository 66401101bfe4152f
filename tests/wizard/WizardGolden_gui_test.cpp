// The wizard and an alert look as they did when somebody last looked at them and was content: pictures in
// tests/wizard/golden. scripts/golden-pictures.sh makes them anew.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/CommandLine.h"
#include "tests/wizard/PictureComparison.h"

namespace {

const QString golden = KELTO_SOURCE_DIR "/tests/wizard/golden/";

struct Picture {
  std::string language;
  int scale;
  std::string name;
  [[nodiscard]] QString file() const {
    const std::string suffix = language == "en" ? "" : "-" + language;
    return QString::fromStdString(name + suffix + (scale == 1 ? "" : "@2x") + ".png");
  }
};

void PrintTo(const Picture& picture, std::ostream* out) { *out << picture.file().toStdString(); }

class WizardGolden : public testing::TestWithParam<Picture> {};

// Where the pictures side by side are written, for whoever wants to know what has changed.
QString writtenBeside(const tests::Comparison& comparison, const QString& file) {
  const std::filesystem::path folder = std::filesystem::path(KELTO_BIN_DIR).parent_path() / "golden-differences";
  std::filesystem::create_directories(folder);
  const QString path = QString::fromStdString(folder / file.toStdString());
  return comparison.sideBySide.save(path) ? path : "(cannot write " + path + ")";
}

TEST_P(WizardGolden, LooksAsItDid) {
  const QTemporaryDir folder;
  const auto made = tests::runCommandLine(KELTO_BIN_DIR "/wizard_pictures golden " + GetParam().language + " " +
                                          std::to_string(GetParam().scale) + " " + folder.path().toStdString() + " 2>&1");
  ASSERT_EQ(made.status, 0) << made.output;
  const QImage expected(golden + GetParam().file());
  const QImage found(folder.filePath(GetParam().file()));
  ASSERT_FALSE(expected.isNull());
  ASSERT_FALSE(found.isNull());
  const auto comparison = tests::compare(expected, found);
  if (comparison.differingPixels == 0) return;
  ADD_FAILURE() << comparison.differingPixels << " pixels differ by more than " << tests::channelTolerance
                << " of 255, the most by " << comparison.largestDifference << "; expected, found and where they differ:\n"
                << writtenBeside(comparison, GetParam().file()).toStdString();
}

// Forms of Chinese letters that differ between its countries, long words, and a layout from right to left.
std::vector<Picture> pictures() {
  std::vector<Picture> all;
  for (const char* language : {"en", "ja", "zh-Hans", "de", "ar"})
    for (const int scale : {1, 2})
      for (const char* name : {"update", "install", "uninstall", "alert"}) all.push_back({language, scale, name});
  return all;
}

INSTANTIATE_TEST_SUITE_P(Pictures, WizardGolden, testing::ValuesIn(pictures()));

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
