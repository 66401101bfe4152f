// The face as it comes out of QPainter, pixel by pixel, against values computed from the design.
#include <gtest/gtest.h>

#include <QImage>
#include <algorithm>
#include <cmath>

#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/QtGraphicsContext.h"
#include "platform/linux/qt/QtImage.h"
#include "tests/support/Contrast.h"
#include "ui/KMEmbeddedWindowBackgroundView.h"

using platform::Linux::QtGraphicsContext;
using platform::Linux::QtImage;

namespace {

using Corners = QtGraphicsContext::Corners;

constexpr int width = 200;
constexpr int bloomWidth = 80;
constexpr int bloomHeight = 50;
constexpr int tile = 4;
constexpr double inkAlpha = 128 / 255.0;

QImage blank(int w, int h, double scale) {
  QImage image(static_cast<int>(w * scale), static_cast<int>(h * scale), QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  image.setDevicePixelRatio(scale);
  return image;
}

// Half-transparent white.
QImage bloom(double scale) {
  QImage image = blank(bloomWidth, bloomHeight, scale);
  image.fill(QColor(255, 255, 255, 128));
  return image;
}

// Half-transparent black in the pixel at the bottom left of the tile, one pixel of the device in every scale.
QImage dots(double scale) {
  QImage image = blank(tile, tile, scale);
  image.setPixelColor(0, image.height() - 1, QColor(0, 0, 0, 128));
  return image;
}

class FacePixels : public testing::TestWithParam<int> {
 protected:
  FacePixels() {
    fakes.platform.views.resources = &resources;
    resources.images["s_bloom"] = std::make_shared<QtImage>(std::vector{bloom(1), bloom(2)});
    resources.images["s_dot_pattern"] = std::make_shared<QtImage>(std::vector{dots(1), dots(2)});
  }

  [[nodiscard]] int scale() const { return GetParam(); }

  QImage draw(double height, bool hasBloom, Corners corners = Corners::Round, bool increasesContrast = false) {
    const int whole = static_cast<int>(std::ceil(height));
    image = blank(width, whole, scale());
    const auto view = std::make_shared<KMEmbeddedWindowBackgroundView>();
    view->setHasBloom(hasBloom);
    foundation::ViewWindow window(fakes.runLoop);
    window.setContentView(view);
    window.setSize({width, height});
    QPainter painter(&image);
    QtGraphicsContext context(painter, {width, double(whole)}, corners, increasesContrast);
    window.display(context);
    return image;
  }

  // The pixel of the device that is `row` pixels above the bottom edge.
  [[nodiscard]] QColor at(int column, int row) const { return image.pixelColor(column, image.height() - 1 - row); }

  void expectGrey(int column, int row, double grey, double tolerance = 0) const {
    const QColor color = at(column, row);
    EXPECT_NEAR(color.red(), grey, tolerance) << column << ", " << row << " from the bottom";
    EXPECT_EQ(color.red(), color.green());
    EXPECT_EQ(color.green(), color.blue());
    EXPECT_EQ(color.alpha(), 255) << column << ", " << row;
  }

  // Of the content's rows: 233 at its top to 214 at its bottom, at the middle of each row of pixels.
  [[nodiscard]] double gradient(int row, double height) const {
    const double bottom = 60.0 * scale();
    const double fromTop = (height * scale() - row - 0.5) / (height * scale() - bottom);
    return 233 + (214 - 233) * fromTop;
  }

  platform::fake::FakePlatform fakes;
  platform::fake::FakeViewResources resources;
  QImage image;
};

TEST_P(FacePixels, EveryRowOfTheBandsAndHairlines) {
  draw(206, false);
  const int column = width * scale() / 2;
  for (int row = 0; row < 206 * scale(); ++row) {
    const int point = row / scale();
    const double grey = point < 58 ? 214 : point == 58 ? 232 : point == 59 ? 171 : 255;
    expectGrey(column, row, grey);
  }
}

TEST_P(FacePixels, WithIncreasedContrastTheHairlinesStandOutFromAPlainFace) {
  draw(320, true, Corners::Round, true);
  const auto color = [this](int row) { return at(width * scale() / 2, row).rgb(); };
  for (int row = 58 * scale(); row < 60 * scale(); ++row) {
    EXPECT_GE(tests::contrast(color(row), color(50 * scale())), 4.5) << "the footer, " << row;
    EXPECT_GE(tests::contrast(color(row), color(70 * scale())), 4.5) << "the content, " << row;
  }
  for (int row = 60 * scale(); row < 320 * scale(); ++row) expectGrey(width * scale() / 2, row, 255);
}

TEST_P(FacePixels, EveryRowOfTheGradientBetweenTheDots) {
  draw(290, true);
  for (int row = 60 * scale(); row < 290 * scale(); ++row) expectGrey(width * scale() / 2 + 1, row, gradient(row, 290), 1);
}

TEST_P(FacePixels, TheBloomLiesAtTheRightOnePointAboveTheContentsEdge) {
  draw(320, true);
  const int left = (width - bloomWidth) * scale();
  const int bottom = 61 * scale();
  const int top = (61 + bloomHeight) * scale();
  const auto lit = [](double grey) { return grey + (255 - grey) * inkAlpha; };
  // The four edges, a pixel inside and a pixel outside; odd columns and rows carry no dot.
  const int inside = left + 1;
  const int row = bottom + 1;
  expectGrey(inside, row, lit(gradient(row, 320)), 1.5);
  expectGrey(left - 1, row, gradient(row, 320), 1);
  expectGrey(inside, bottom - 1, gradient(bottom - 1, 320), 1);
  expectGrey(inside, bottom, lit(gradient(bottom, 320)), 1.5);
  expectGrey(inside, top - 1, lit(gradient(top - 1, 320)), 1.5);
  expectGrey(inside, top, gradient(top, 320), 1);
  expectGrey(width * scale() - 1, row, lit(gradient(row, 320)), 1.5);
}

TEST_P(FacePixels, TheBloomComesAtThreeHundredPoints) {
  const auto isLit = [this](double height) {
    draw(height, true);
    return at((width - bloomWidth) * scale() + 1, 61 * scale() + 1).red() > 225;
  };
  EXPECT_FALSE(isLit(299.9));
  EXPECT_TRUE(isLit(300));
}

TEST_P(FacePixels, TheDotsRepeatFromTheBottomLeftCornerOfTheWindowOverGradientAndBloom) {
  draw(320, true);
  const int step = tile * scale();
  for (int row = 60 * scale(); row < 320 * scale(); ++row)
    for (const int column : {step * 2, step * 2 + 1, step * 40, step * 40 + 1}) {
      const bool inBloom = column >= (width - bloomWidth) * scale() && row >= 61 * scale() && row < 111 * scale();
      const double under = gradient(row, 320) + (inBloom ? (255 - gradient(row, 320)) * inkAlpha : 0);
      const bool isDot = column % step == 0 && row % step == 0;
      expectGrey(column, row, isDot ? under * (1 - inkAlpha) : under, 2);
    }
}

TEST_P(FacePixels, CornersAreTransparentOutsideOfAFivePointCircle) {
  draw(206, false);
  const double radius = 5.0 * scale();
  const int far = image.width() - 1;
  const int top = image.height() - 1;
  for (int x = 0; x < 6 * scale(); ++x)
    for (int y = 0; y < 6 * scale(); ++y) {
      const double fromCentre = std::hypot(std::max(radius - x - 0.5, 0.0), std::max(radius - y - 0.5, 0.0));
      for (const QColor& color : {at(x, y), at(far - x, y), at(x, top - y), at(far - x, top - y)}) {
        const bool isOutside = fromCentre > radius + 0.75;
        const bool isInside = fromCentre < radius - 0.75;
        EXPECT_TRUE(!isOutside || color.alpha() == 0) << x << ", " << y;
        EXPECT_TRUE(!isInside || color.alpha() == 255) << x << ", " << y;
      }
    }
}

TEST_P(FacePixels, TheRoundEdgeIsSmooth) {
  draw(206, true);
  int between = 0;
  for (int x = 0; x < 5 * scale(); ++x)
    for (int y = 0; y < 5 * scale(); ++y)
      if (const int alpha = at(x, y).alpha(); alpha > 20 && alpha < 235) ++between;
  EXPECT_GT(between, 2);
}

TEST_P(FacePixels, SquareCornersAreFilled) {
  draw(206, false, Corners::Square);
  expectGrey(0, 0, 214);
  expectGrey(0, image.height() - 1, 255);
}

TEST_P(FacePixels, AViewLowerThanTheFooterShowsItsLowerPart) {
  draw(40, false, Corners::Square);
  for (int row = 0; row < 40 * scale(); ++row) expectGrey(5, row, 214);
}

TEST_P(FacePixels, MissingImagesLeaveTheBareGradient) {
  resources.images.clear();
  draw(320, true);
  for (int row = 60 * scale(); row < 320 * scale(); ++row) expectGrey(width * scale() / 2, row, gradient(row, 320), 1);
}

INSTANTIATE_TEST_SUITE_P(Scale, FacePixels, testing::Values(1, 2));

// Images over a red ground, 40 by 30 points.
class PartPixels : public FacePixels {
 protected:
  PartPixels() {
    image = blank(40, 30, scale());
    image.fill(Qt::red);
  }

  static std::shared_ptr<QtImage> plain(int w, int h, const QColor& color) {
    std::vector<QImage> versions;
    for (const int size : {1, 2}) {
      versions.push_back(blank(w, h, size));
      versions.back().fill(color);
    }
    return std::make_shared<QtImage>(versions);
  }

  void drawParts(int boundsWidth) {
    const auto left = plain(10, 20, QColor(0, 0, 0, 0));
    const auto fill = plain(2, 12, QColor(0, 255, 0));
    const auto right = plain(8, 16, QColor(0, 0, 0, 0));
    KAView view;
    QPainter painter(&image);
    QtGraphicsContext context(painter, {40, 30}, Corners::Round);
    const foundation::GraphicsContext::Focus focus(context);
    view.drawThreePartImageInBounds_left_fill_right({{9, 9}, {double(boundsWidth), 1}}, left.get(), fill.get(),
                                                    right.get());
  }
  [[nodiscard]] QColor atPoint(int x, int y) const { return at(x * scale() + scale() / 2, y * scale() + scale() / 2); }
};

TEST_P(PartPixels, TheLeftCapLiesOverAndTheRightCapReplaces) {
  drawParts(40);
  EXPECT_EQ(atPoint(5, 5), QColor(Qt::red));
  EXPECT_EQ(atPoint(35, 5).alpha(), 0);
  EXPECT_EQ(atPoint(35, 16), QColor(Qt::red));
  EXPECT_EQ(atPoint(31, 5), QColor(0, 255, 0));
  EXPECT_EQ(atPoint(10, 11), QColor(0, 255, 0));
  EXPECT_EQ(atPoint(20, 12), QColor(Qt::red));
  EXPECT_EQ(atPoint(9, 5), QColor(Qt::red));
}

TEST_P(PartPixels, NarrowerThanTheCapsThereIsNoMiddle) {
  drawParts(15);
  for (int x = 0; x < 40; ++x) EXPECT_NE(atPoint(x, 5), QColor(0, 255, 0)) << x;
  EXPECT_EQ(atPoint(6, 5), QColor(Qt::red));
  EXPECT_EQ(atPoint(8, 5).alpha(), 0);
}

INSTANTIATE_TEST_SUITE_P(Scale, PartPixels, testing::Values(1, 2));

class FaceAtScale : public testing::TestWithParam<double> {
 protected:
  static QImage face(double height) {
    QImage image(static_cast<int>(std::lround(40 * GetParam())), static_cast<int>(std::lround(height * GetParam())),
                 QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(GetParam());
    KMEmbeddedWindowBackgroundView view({{0, 0}, {40, height}});
    QPainter painter(&image);
    QtGraphicsContext context(painter, {40, height}, Corners::Square);
    const foundation::GraphicsContext::Focus focus(context);
    view.drawRect({});
    return image;
  }

  static int rowsOf(const QImage& image, int grey) {
    int rows = 0;
    for (int y = 0; y < image.height(); ++y) rows += image.pixelColor(20, y) == QColor(grey, grey, grey) ? 1 : 0;
    return rows;
  }
};

TEST_P(FaceAtScale, TheHairlinesAreOnePixelEachOrAnEvenNumber) {
  for (const double height : {206, 320}) {
    const QImage image = face(height);
    const int lower = rowsOf(image, 232);
    EXPECT_EQ(lower, rowsOf(image, 171)) << height;
    EXPECT_TRUE(lower == 1 || (lower > 0 && lower % 2 == 0)) << lower;
  }
}

TEST_P(FaceAtScale, ThereIsNoGapBetweenTheBands) {
  for (const double height : {206, 320}) {
    const QImage image = face(height);
    for (int y = 0; y < image.height(); ++y) EXPECT_EQ(image.pixelColor(20, y).alpha(), 255) << y << " of " << height;
  }
}

// Rows of different brightness are read as the lines of a screen.
TEST_P(FaceAtScale, TheDotPatternMakesNoLines) {
  std::vector<QImage> versions;
  for (const int scale : {1, 2, 3}) {
    const QString name = scale == 1 ? "s_dot_pattern.png" : QString("s_dot_pattern@%1x.png").arg(scale);
    versions.emplace_back(KELTO_SOURCE_DIR "/resources/artwork/" + name);
    versions.back().setDevicePixelRatio(scale);
  }
  const int size = static_cast<int>(std::lround(80 * GetParam()));
  QImage image(size, size, QImage::Format_RGB32);
  image.fill(QColor(222, 222, 222));
  image.setDevicePixelRatio(GetParam());
  {
    QPainter painter(&image);
    QtGraphicsContext context(painter, {80, 80}, Corners::Square);
    context.setFillPattern(std::make_shared<QtImage>(versions));
    context.fillPathOfRect({{0, 0}, {80, 80}});
  }
  std::vector<double> means;
  bool isDotted = false;
  for (int y = 0; y < size; ++y) {
    double sum = 0;
    for (int x = 0; x < size; ++x) sum += qGray(image.pixel(x, y));
    for (int x = 0; x < size; ++x) isDotted |= image.pixel(x, y) != image.pixel(0, 0);
    means.push_back(sum / size);
  }
  EXPECT_TRUE(isDotted);
  EXPECT_LT(std::ranges::max(means) - std::ranges::min(means), 0.75);
}

INSTANTIATE_TEST_SUITE_P(Scale, FaceAtScale, testing::Values(1, 1.25, 1.5, 1.75, 2, 2.25, 2.5, 3));

TEST(FaceAtOneAndAHalf, HasNoGapBetweenItsBands) {
  QImage image = blank(40, 100, 1.5);
  KMEmbeddedWindowBackgroundView view({{0, 0}, {40, 100}});
  {
    QPainter painter(&image);
    QtGraphicsContext context(painter, {40, 100}, Corners::Square);
    const foundation::GraphicsContext::Focus focus(context);
    view.drawRect({});
  }
  for (int y = 0; y < image.height(); ++y) EXPECT_EQ(image.pixelColor(20, y).alpha(), 255) << y;
}

}  // namespace
