// The keyboard focus and the moving band have the contrast that graphics need.
#include "platform/linux/qt/Look.h"

#include <QAccessible>
#include <QPushButton>
#include <algorithm>

#include "platform/linux/qt/QtProgressBar.h"
#include "tests/platform/linux/qt/QtTest.h"
#include "tests/support/Contrast.h"

using namespace platform::Linux;
using namespace qt_test;

namespace {

constexpr double leastContrast = 3;

// The colours of the face behind the buttons, and at the top and the bottom of the area behind the bar.
constexpr int footerGrey = 214;
constexpr int contentGreys[] = {214, 233};

QImage ground(QSize size, int grey) {
  QImage image(size, QImage::Format_RGB32);
  image.fill(QColor(grey, grey, grey));
  return image;
}

QImage pictureOn(QWidget& widget, int grey) {
  QImage image = ground(widget.size(), grey);
  widget.render(&image, {}, {}, QWidget::DrawChildren);
  return image;
}

// A button beside another, in a window that is shown.
struct WindowLikeHost {
  WindowLikeHost() {
    button.setGeometry(10, 10, 96, 28);
    button.setAutoDefault(false);
    window.setFixedSize(200, 100);
    window.show();
  }
  bool giveFocus() {
    button.setFocus(Qt::TabFocusReason);
    window.activateWindow();
    return spinUntil([this] { return button.hasFocus() && isActiveForAll(window); });
  }
  QWidget window;
  QPushButton button{"Cancel", &window};
};

// Along a line from the middle of the left edge inwards: the pixels that the focus changes, one row after the other.
TEST(Look, TheFocusRingIsTwoPointsThickAndStandsOut) {
  WindowLikeHost host;
  QPushButton& button = host.button;
  const QImage without = pictureOn(button, footerGrey);
  ASSERT_TRUE(host.giveFocus());
  const QImage with = pictureOn(button, footerGrey);
  const int row = button.height() / 2;
  int thickness = 0;
  QRgb ring = 0;
  for (int x = 0; x < 12; ++x) {
    if (with.pixel(x, row) == without.pixel(x, row)) continue;
    ++thickness;
    ring = with.pixel(x, row);
    EXPECT_GE(tests::contrast(ring, without.pixel(x, row)), leastContrast) << x << ": with the focus and without";
  }
  EXPECT_GE(thickness, 2);
  EXPECT_GE(tests::contrast(ring, qRgb(footerGrey, footerGrey, footerGrey)), leastContrast) << "outside";
  EXPECT_GE(tests::contrast(ring, with.pixel(8, row)), leastContrast) << "inside";
}

TEST(ProgressBarWidget, TheBandStandsOutFromItsTrackWhereverItIs) {
  constexpr QSize size(404, 6);
  for (const int grey : contentGreys)
    for (const double seconds : {0.3, 0.5, 0.7, 0.9, 1.1}) {
      QImage track = ground(size, grey);
      QImage both = ground(size, grey);
      QPainter trackPainter(&track);
      drawProgressBar(trackPainter, size, std::nullopt);
      QPainter bothPainter(&both);
      drawProgressBar(bothPainter, size, seconds);
      int pixels = 0;
      for (int x = 4; x + 4 < size.width(); ++x) {
        const auto differs = [&](int at) { return both.pixel(at, 3) != track.pixel(at, 3); };
        if (!differs(x - 2) || !differs(x) || !differs(x + 2)) continue;  // the band's own round ends
        ++pixels;
        EXPECT_GE(tests::contrast(both.pixel(x, 3), track.pixel(x, 3)), leastContrast) << x << " on " << grey;
      }
      EXPECT_GT(pixels, 40) << seconds;
    }
}

TEST(ProgressBarWidget, AssistiveToolsAreToldThatItIsBusyAndNoNumber) {
  ProgressBarWidget bar(nullptr);
  auto* told = QAccessible::queryAccessibleInterface(&bar);
  EXPECT_EQ(told->role(), QAccessible::ProgressBar);
  EXPECT_FALSE(told->state().busy);
  bar.start();
  EXPECT_TRUE(told->state().busy);
  EXPECT_EQ(told->valueInterface(), nullptr);
}

}  // namespace
