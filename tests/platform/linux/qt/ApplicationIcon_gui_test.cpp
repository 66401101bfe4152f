// The application's icon, as the bundle brings it and as the window manager gets it.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/Look.h"
#include "platform/linux/qt/QtAlert.h"
#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;

namespace {

struct ApplicationIcon : testing::Test {
  ApplicationIcon() {
    bundle.info.emplace("CFBundleIconFile", "application-icon");
    for (const auto& file : std::filesystem::directory_iterator(KELTO_SOURCE_DIR "/resources/artwork"))
      bundle.resources["artwork/" + file.path().filename().string()] = file.path().string();
  }
  ~ApplicationIcon() override { QApplication::setWindowIcon({}); }

  fake::FakeBundle bundle;
};

// The pictures of a window's icon as the window manager gets them: by width, the pixels row by row.
std::map<int, std::vector<QRgb>> iconOnDisplay(const QWidget& window) {
  const auto text =
      tests::outputOf("xprop -notype -len 1000000 -id " + std::to_string(window.winId()) + " 32c _NET_WM_ICON");
  std::istringstream list(text.substr(std::min(text.find('=') + 1, text.size())));
  std::vector<QRgb> numbers;
  char comma = 0;
  for (QRgb number = 0; list >> number; list >> comma) numbers.push_back(number);
  std::map<int, std::vector<QRgb>> pictures;
  for (std::size_t at = 0; at + 2 <= numbers.size();) {
    const std::size_t count = std::size_t{numbers[at]} * numbers[at + 1];
    if (at + 2 + count > numbers.size()) break;
    const auto first = numbers.begin() + static_cast<std::ptrdiff_t>(at) + 2;
    pictures[static_cast<int>(numbers[at])] = {first, first + static_cast<std::ptrdiff_t>(count)};
    at += 2 + count;
  }
  return pictures;
}

// Every picture of the artwork is there, pixel for pixel.
void expectTheArtwork(const QWidget& window) {
  const auto pictures = iconOnDisplay(window);
  EXPECT_EQ(pictures.size(), 6U);
  for (const auto& [width, pixels] : pictures) {
    const QString path = KELTO_SOURCE_DIR "/resources/artwork/application-icon-" + QString::number(width) + ".png";
    const QImage artwork = QImage(path).convertToFormat(QImage::Format_ARGB32);
    ASSERT_EQ(artwork.size(), QSize(width, width));
    for (int i = 0; i < width * width; ++i) {
      const QRgb expected = artwork.pixel(i % width, i / width);
      // Going through multiplied colours rounds what is nearly transparent.
      ASSERT_EQ(qAlpha(pixels[i]), qAlpha(expected)) << width << ": " << i;
      if (qAlpha(expected) == 255) {
        ASSERT_EQ(pixels[i], expected) << width << ": " << i;
      }
    }
  }
}

TEST_F(ApplicationIcon, ComesInEverySizeThatTheBundleHas) {
  bundle.resources.erase("artwork/application-icon-64.png");
  const auto sizes = applicationIcon(bundle).availableSizes();
  EXPECT_EQ(sizes, (QList<QSize>{{16, 16}, {32, 32}, {48, 48}, {128, 128}, {256, 256}}));
}

TEST_F(ApplicationIcon, IsNoneWhereTheBundleNamesNone) {
  bundle.info.clear();
  EXPECT_TRUE(applicationIcon(bundle).isNull());
}

TEST_F(ApplicationIcon, IsOnTheWindow) {
  QApplication::setWindowIcon(applicationIcon(bundle));
  WindowWidget window;
  window.show();
  ASSERT_TRUE(spinUntil([&] { return seenFromOutside(window).isViewable; }));
  expectTheArtwork(window);
}

TEST_F(ApplicationIcon, ComesOnceAWindowHasBeenPainted) {
  IconAfterFirstPaint icon(bundle);
  WindowWidget window;
  window.show();
  EXPECT_TRUE(QApplication::windowIcon().isNull());
  ASSERT_TRUE(spinUntil([&] { return !QApplication::windowIcon().isNull(); }));
  expectTheArtwork(window);
}

TEST_F(ApplicationIcon, IsOnAnAlert) {
  QApplication::setWindowIcon(applicationIcon(bundle));
  QTimer::singleShot(0, qApp, [&] {
    EXPECT_TRUE(spinUntil([] { return QApplication::activeModalWidget() != nullptr; }));
    EXPECT_TRUE(spinUntil([] { return seenFromOutside(*QApplication::activeModalWidget()).isViewable; }));
    expectTheArtwork(*QApplication::activeModalWidget());
    QApplication::activeModalWidget()->close();
  });
  runAlert({"Headline", "Text", "OK"}, "Kelto Installer", nullptr);
}

}  // namespace
