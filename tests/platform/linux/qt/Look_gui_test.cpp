// The keyboard focus and the moving band have the contrast that graphics need.
#include "platform/linux/qt/Look.h"

#include <QAccessible>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "platform/linux/qt/QtAlert.h"
#include "platform/linux/qt/QtElements.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/linux/qt/QtTest.h"
#include "tests/support/Contrast.h"

using namespace platform::Linux;
using namespace tests;

namespace {

constexpr double leastContrast = 3;
constexpr double leastHighContrast = 4.5;

// The look with these settings, for the length of a test.
struct ScopedLook {
  explicit ScopedLook(const DesktopSettings& settings) { applyLook(settings); }
  ~ScopedLook() { applyLook(); }
  ScopedLook(const ScopedLook&) = delete;
  ScopedLook& operator=(const ScopedLook&) = delete;
};

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

TEST(Look, WithHighContrastAButtonsEdgeStandsOut) {
  const ScopedLook look({.highContrast = true});
  WindowLikeHost host;
  const int row = host.button.height() / 2;
  for (const bool isEnabled : {true, false}) {
    host.button.setEnabled(isEnabled);
    const QImage picture = pictureOn(host.button, footerGrey);
    const QRgb edge = picture.pixel(0, row);
    EXPECT_GE(tests::contrast(edge, qRgb(footerGrey, footerGrey, footerGrey)), leastHighContrast) << isEnabled;
    EXPECT_GE(tests::contrast(edge, picture.pixel(6, row)), leastHighContrast) << isEnabled;
  }
}

// The edge is black without the focus already: two points beside it change.
TEST(Look, WithHighContrastTheFocusRingIsTwoPointsMoreThanTheEdge) {
  const ScopedLook look({.highContrast = true});
  WindowLikeHost host;
  const QImage without = pictureOn(host.button, footerGrey);
  ASSERT_TRUE(host.giveFocus());
  const QImage with = pictureOn(host.button, footerGrey);
  const int row = host.button.height() / 2;
  for (const int x : {1, 2}) {
    EXPECT_GE(tests::contrast(with.pixel(x, row), without.pixel(x, row)), leastHighContrast) << x;
    EXPECT_GE(tests::contrast(with.pixel(x, row), with.pixel(8, row)), leastHighContrast) << x;
  }
  EXPECT_GE(tests::contrast(with.pixel(0, row), qRgb(footerGrey, footerGrey, footerGrey)), leastHighContrast);
}

TEST(Look, WithHighContrastLettersAreBlackAlsoOnWhatCannotBePressed) {
  const ScopedLook look({.highContrast = true});
  const QPalette palette = QApplication::palette();
  EXPECT_EQ(palette.color(QPalette::WindowText).rgb(), qRgb(0, 0, 0));
  EXPECT_GE(tests::contrast(palette.color(QPalette::Disabled, QPalette::ButtonText).rgb(), qRgb(236, 236, 238)),
            leastHighContrast);
}

// The last column that a label with this text paints in each of its lines.
std::vector<int> lastColumns(QLabel& label) {
  const QImage picture = pictureOn(label, 255);
  const int lineHeight = label.fontMetrics().lineSpacing();
  std::vector<int> columns;
  for (int top = 0; top + lineHeight <= picture.height(); top += lineHeight) {
    int last = -1;
    for (int y = top; y < top + lineHeight; ++y)
      for (int x = 0; x < picture.width(); ++x)
        if (qGray(picture.pixel(x, y)) < 128) last = std::max(last, x);
    columns.push_back(last);
  }
  return columns;
}

TEST(Look, EveryLineOfATextFromRightToLeftBeginsAtTheSamePlace) {
  const ScopedLook look({});
  QLabel label;
  label.setLayoutDirection(Qt::RightToLeft);
  label.setWordWrap(true);
  label.setText(QString::fromUtf8("\u05dd\u05dd\u05dd\u05dd ").repeated(20).trimmed());
  label.resize(150, label.heightForWidth(150));
  const auto columns = lastColumns(label);
  ASSERT_GT(columns.size(), 3U);
  for (const int column : columns) EXPECT_EQ(column, columns.back());
}

// A window as the wizard's, with a headline and a button.
struct LetteredWindow {
  LetteredWindow() {
    auto* face = new QWidget(&window);
    auto* whole = new QVBoxLayout(&window);
    whole->setContentsMargins({});
    whole->addWidget(face);
    auto* rows = new QVBoxLayout(face);
    headline->setProperty("letterScale", 1.3);
    headline->setWordWrap(true);
    rows->addWidget(headline);
    rows->addWidget(button);
    window.resize(460, 206);
    window.takeDesignedWidth();
    window.move(300, 300);
    QtWindow(window).makeKeyAndOrderFront();
  }
  [[nodiscard]] bool has(double letters, int width) {
    return spinUntil([&] {
      const auto seen = seenFromOutside(window);
      return button->font().pointSizeF() == letters && headline->font().pointSizeF() == 1.3 * letters &&
             seen.width == width && seen.x == 300 + (460 - width) / 2 && seen.height == 206;
    });
  }
  WindowWidget window;
  QLabel* headline = new QLabel("Installing", &window);
  QPushButton* button = new QPushButton("Cancel", &window);
};

TEST(Look, AWindowIsWiderFromTheStartWithLargerLetters) {
  const ScopedLook look({.letterScale = 1.5});
  LetteredWindow host;
  EXPECT_EQ(host.window.width(), 690);
  EXPECT_EQ(host.button->font().pointSizeF(), 15);
}

TEST(Look, AWindowThatIsShownFollowsTheSizeOfLettersAndKeepsItsMiddle) {
  LetteredWindow host;
  EXPECT_TRUE(host.has(10, 460));
  {
    const ScopedLook look({.letterScale = 1.5});
    EXPECT_TRUE(host.has(15, 690)) << host.button->font().pointSizeF() << ", " << host.window.width();
  }
  EXPECT_TRUE(host.has(10, 460)) << host.button->font().pointSizeF() << ", " << host.window.width();
}

TEST(Look, LettersAreOnlyAsLargeAsTheirWindowHasRoomFor) {
  const ScopedLook look({.letterScale = 3});
  LetteredWindow host;
  QString text;
  for (int i = 0; i < 40; ++i) text += "Donaudampfschiff ";
  QtTextField(*host.headline).setStringValue(text.toStdString());
  EXPECT_LT(host.button->font().pointSizeF(), 30);
  EXPECT_GE(host.button->font().pointSizeF(), 10);
  EXPECT_TRUE(spinUntil([&] { return host.headline->height() >= host.headline->heightForWidth(host.headline->width()); }));
}

TEST(Look, TheDesktopsFamilyOfLettersIsTaken) {
  const ScopedLook look({.letterFamily = "DejaVu Serif Bold"});
  EXPECT_EQ(QApplication::font().families(), QStringList("DejaVu Serif"));
  applyLook({.letterFamily = "No Such Family"});
  EXPECT_NE(QApplication::font().families(), QStringList("No Such Family"));
}

TEST(Look, AnAlertThatIsShownFollowsTheSizeOfLetters) {
  QTimer::singleShot(0, qApp, [&] {
    const auto dialog = [] { return dynamic_cast<QDialog*>(QApplication::activeModalWidget()); };
    ASSERT_TRUE(spinUntil([&] { return dialog() != nullptr && dialog()->isVisible(); }));
    const QSize before = dialog()->size();
    const ScopedLook look({.letterScale = 2});
    EXPECT_GT(dialog()->width(), before.width() + 200);
    for (const auto* label : dialog()->findChildren<QLabel*>()) {
      EXPECT_GE(label->height(), label->heightForWidth(label->width()));
      EXPECT_GE(label->font().pointSizeF(), 20);
    }
    dialog()->accept();
  });
  runAlert({"The disk is full", "Make room and start the update again.", "OK"}, "Kelto Installer", nullptr);
}

QImage barOn(int grey, QSize size, double seconds) {
  QImage image = ground(size, grey);
  QPainter painter(&image);
  drawProgressBar(painter, size, seconds);
  return image;
}

TEST(ProgressBarWidget, WithReducedMotionItPulsesWhereItIs) {
  const ScopedLook look({.animates = false});
  constexpr QSize size(404, 6);
  for (const int grey : contentGreys) {
    std::vector<QRgb> colors;
    for (double seconds = 0; seconds < 3; seconds += 0.1) {
      const QImage image = barOn(grey, size, seconds);
      for (int x = 4; x + 4 < size.width(); ++x) ASSERT_EQ(image.pixel(x, 3), image.pixel(4, 3)) << x << " at " << seconds;
      colors.push_back(image.pixel(4, 3));
      EXPECT_GE(tests::contrast(colors.back(), qRgb(grey, grey, grey)), leastContrast) << seconds;
    }
    const auto [darkest, lightest] = std::ranges::minmax(colors, {}, tests::luminance);
    EXPECT_GT(tests::contrast(darkest, lightest), 1.5);
  }
}

// Counts how often a widget is painted.
struct Paintings final : QObject {
  bool eventFilter(QObject* /*watched*/, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++count;
    return false;
  }
  int count = 0;
};

TEST(ProgressBarWidget, ThatIsShownIsPaintedLessOftenWithReducedMotion) {
  ProgressBarWidget bar(nullptr);
  Paintings paintings;
  bar.installEventFilter(&paintings);
  bar.resize(404, 6);
  bar.show();
  bar.start();
  ASSERT_TRUE(spinUntil([&] { return paintings.count >= 3; }));
  const ScopedLook look({.animates = false});
  QElapsedTimer elapsed;
  elapsed.start();
  const int before = paintings.count;
  ASSERT_TRUE(spinUntil([&] { return paintings.count >= before + 6; }));
  EXPECT_GE(elapsed.elapsed(), 300);
}

TEST(ProgressBarWidget, WithHighContrastTheBandStandsOutFromTrackAndTheTrackFromTheFace) {
  const ScopedLook look({.highContrast = true});
  constexpr QSize size(404, 6);
  const QImage bar = barOn(255, size, 0.7);
  EXPECT_GE(tests::contrast(bar.pixel(202, 3), bar.pixel(10, 3)), leastHighContrast) << "band and track";
  for (const int x : {10, 394})
    EXPECT_GE(tests::contrast(bar.pixel(x, 0), qRgb(255, 255, 255)), leastHighContrast) << "the track's edge";
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

// The middle of the band's pixels along the bar; -1 where there is no band.
double middleOfBand(ProgressBarWidget& bar) {
  const QImage picture = pictureOn(bar, footerGrey);
  double sum = 0;
  int pixels = 0;
  for (int x = 0; x < picture.width(); ++x) {
    const QColor color = picture.pixelColor(x, picture.height() / 2);
    if (color.blue() < color.red() + 60) continue;
    sum += x;
    ++pixels;
  }
  return pixels == 0 ? -1 : sum / pixels;
}

TEST(ProgressBarWidget, FromRightToLeftTheBandTravelsTheOtherWay) {
  ProgressBarWidget ordinary(nullptr);
  ProgressBarWidget mirrored(nullptr);
  mirrored.setLayoutDirection(Qt::RightToLeft);
  for (auto* bar : {&ordinary, &mirrored}) {
    bar->resize(404, 6);
    bar->start();
  }
  EXPECT_TRUE(spinUntil([&] {
    const double left = middleOfBand(ordinary);
    return left >= 0 && left < 120 && middleOfBand(mirrored) > 404 - 120;
  }));
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
