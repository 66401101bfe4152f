#include "ui/KMEmbeddedWindowBackgroundView.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"

using foundation::Color;
using foundation::Rect;
using platform::fake::DrawingStep;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Color grey(float of255) {
  const double white = of255 / 255.0F;
  return {white, white, white, 1};
}

DrawingStep fill(const Rect& rect, const Color& color) { return {.operation = "fillRect", .rect = rect, .color = color}; }

DrawingStep image(const char* operation, const Rect& rect, const char* name) {
  return {.operation = operation, .rect = rect, .image = name, .number = 1};
}

struct KMEmbeddedWindowBackgroundViewTest : testing::Test {
  KMEmbeddedWindowBackgroundViewTest() {
    fakes.platform.views.resources = &resources;
    resources.addImage("s_bloom", {200, 100});
    resources.addImage("s_dot_pattern", {4, 4});
  }

  template <class Draw>
  std::vector<DrawingStep> stepsOf(Draw draw) {
    platform::fake::RecordingContext context;
    const foundation::GraphicsContext::Focus focus(context);
    draw();
    return context.steps;
  }

  std::vector<DrawingStep> face(const Rect& bounds, bool hasBloom) {
    KMEmbeddedWindowBackgroundView view(bounds);
    view.setBounds(bounds);
    view.setHasBloom(hasBloom);
    return stepsOf([&] { view.drawRect({}); });
  }

  platform::fake::FakePlatform fakes;
  platform::fake::FakeViewResources resources;

  static DrawingStep save() { return {.operation = "save"}; }
  static DrawingStep restore() { return {.operation = "restore"}; }
  static DrawingStep clip(const Rect& rect) { return {.operation = "clipRounded", .rect = rect, .number = 5}; }
  static DrawingStep footer(double width) { return fill({{0, 0}, {width, 58}}, grey(214)); }
  static DrawingStep lowerHairline(double width) { return fill({{0, 58}, {width, 1}}, grey(232)); }
  static DrawingStep upperHairline(double width) { return fill({{0, 59}, {width, 1}}, grey(171)); }
  static DrawingStep gradient(const Rect& rect) {
    return {.operation = "gradient", .rect = rect, .color = grey(233), .endColor = grey(214), .number = -90};
  }
  static DrawingStep dots(const Rect& rect) { return {.operation = "fillPath", .rect = rect, .image = "s_dot_pattern"}; }
};

TEST_F(KMEmbeddedWindowBackgroundViewTest, WithoutBloomTheContentIsWhiteAndNoImageIsDrawn) {
  EXPECT_THAT(face({{0, 0}, {460, 206}}, false),
              ElementsAre(save(), clip({{0, 0}, {460, 206}}), footer(460), lowerHairline(460), upperHairline(460),
                          fill({{0, 60}, {460, 146}}, {1, 1, 1, 1}), restore()));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, WithBloomGradientBloomAndDotsFollowInThisOrder) {
  EXPECT_THAT(face({{0, 0}, {460, 320}}, true),
              ElementsAre(save(), clip({{0, 0}, {460, 320}}), footer(460), lowerHairline(460), upperHairline(460),
                          gradient({{0, 60}, {460, 260}}), image("drawImage over", {{260, 61}, {200, 100}}, "s_bloom"),
                          dots({{0, 60}, {460, 260}}), restore()));
}

bool blooms(const std::vector<DrawingStep>& steps) {
  return std::ranges::any_of(steps, [](const DrawingStep& step) { return step.image == "s_bloom"; });
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, ABloomNeedsThreeHundredPointsOfHeight) {
  const auto low = face({{0, 0}, {460, 299.9}}, true);
  EXPECT_FALSE(blooms(low));
  EXPECT_THAT(low, testing::Contains(gradient({{0, 60}, {460, 299.9 - 60}})));
  EXPECT_THAT(low, testing::Contains(dots({{0, 60}, {460, 299.9 - 60}})));
  EXPECT_TRUE(blooms(face({{0, 0}, {460, 300}}, true)));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, TheBoundsOriginCountsForTheClipAndTheTopOnly) {
  EXPECT_THAT(face({{7, 9}, {460, 206}}, false),
              ElementsAre(save(), clip({{7, 9}, {460, 206}}), footer(460), lowerHairline(460), upperHairline(460),
                          fill({{0, 60}, {460, 155}}, {1, 1, 1, 1}), restore()));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, AViewLowerThanTheFooterHasAnEmptyContent) {
  const auto steps = face({{0, 0}, {460, 40}}, false);
  EXPECT_THAT(steps, ElementsAre(save(), clip({{0, 0}, {460, 40}}), footer(460), lowerHairline(460), upperHairline(460),
                                 fill({{0, 60}, {460, -20}}, {1, 1, 1, 1}), restore()));
  EXPECT_TRUE(steps[5].rect.isEmpty());
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, AMissingBloomIsJustNotThere) {
  resources.images.erase("s_bloom");
  const auto steps = face({{0, 0}, {460, 320}}, true);
  EXPECT_FALSE(blooms(steps));
  EXPECT_THAT(steps, testing::Contains(dots({{0, 60}, {460, 260}})));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, WithoutDotPatternTheGradientStaysBare) {
  resources.images.erase("s_dot_pattern");
  const auto steps = face({{0, 0}, {460, 320}}, true);
  EXPECT_TRUE(blooms(steps));
  EXPECT_THAT(steps, testing::Not(testing::Contains(testing::Field(&DrawingStep::operation, "fillPath"))));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, HasBloomComesFromTheInterfaceDescriptionAndDrawsNothingByItself) {
  KMEmbeddedWindowBackgroundView view;
  view.setNeedsDisplay(false);
  EXPECT_FALSE(view.hasBloom());
  EXPECT_TRUE(view.setFlagForKey(true, "hasBloom"));
  EXPECT_TRUE(view.hasBloom());
  EXPECT_FALSE(view.needsDisplay());
  EXPECT_FALSE(view.setFlagForKey(true, "hasGloom"));
}

TEST_F(KMEmbeddedWindowBackgroundViewTest, OutsideOfDrawingNothingHappens) {
  KMEmbeddedWindowBackgroundView view({{0, 0}, {460, 320}});
  view.drawRect(view.bounds());
  view.drawHeaderBackgroundHighlighted_rounded(true, true);
}

struct KAViewDrawingTest : KMEmbeddedWindowBackgroundViewTest {
  std::vector<DrawingStep> parts(const Rect& bounds, bool left, bool filled, bool right) {
    const platform::fake::FakeImage leftImage("left", {10, 30});
    const platform::fake::FakeImage fillImage("fill", {2, 25});
    const platform::fake::FakeImage rightImage("right", {12, 28});
    KAView view;
    return stepsOf([&] {
      view.drawThreePartImageInBounds_left_fill_right(bounds, left ? &leftImage : nullptr, filled ? &fillImage : nullptr,
                                                      right ? &rightImage : nullptr);
    });
  }
};

TEST_F(KAViewDrawingTest, StandAtTheBottomWhateverTheBoundsOriginAndHeight) {
  EXPECT_THAT(parts({{50, 60}, {100, 5}}, true, true, true),
              ElementsAre(image("drawImage over", {{0, 0}, {10, 30}}, "left"),
                          image("drawImage copy", {{88, 0}, {12, 28}}, "right"),
                          image("drawImage copy", {{10, 0}, {78, 25}}, "fill")));
}

TEST_F(KAViewDrawingTest, NarrowerThanTheCapsHaveAnEmptyMiddle) {
  const auto steps = parts({{0, 0}, {15, 30}}, true, true, true);
  EXPECT_EQ(steps[1], image("drawImage copy", {{3, 0}, {12, 28}}, "right"));
  EXPECT_EQ(steps[2], image("drawImage copy", {{10, 0}, {-7, 25}}, "fill"));
  EXPECT_TRUE(steps[2].rect.isEmpty());
}

TEST_F(KAViewDrawingTest, AMissingOneHasNoSizeAndDrawsNothing) {
  EXPECT_THAT(parts({{0, 0}, {100, 30}}, false, true, false),
              ElementsAre(image("drawImage copy", {{0, 0}, {100, 25}}, "fill")));
  EXPECT_THAT(parts({{0, 0}, {100, 30}}, false, false, false), IsEmpty());
}

struct Header : KMEmbeddedWindowBackgroundViewTest {
  Header() {
    for (const char* part : {"-left", "-fill", "-right"}) {
      resources.addImage(std::string("headerbg-light") + part, {6, 22});
      resources.addImage(std::string("headerbg-dark") + part, {8, 24});
    }
  }
  std::vector<DrawingStep> header(bool highlighted, bool rounded) {
    KAView view({{30, 40}, {100, 50}});
    return stepsOf([&] { view.drawHeaderBackgroundHighlighted_rounded(highlighted, rounded); });
  }
};

TEST_F(Header, RoundedIsMadeOfThreePartsOfTheSet) {
  EXPECT_THAT(header(true, true), ElementsAre(image("drawImage over", {{0, 0}, {6, 22}}, "headerbg-light-left"),
                                              image("drawImage copy", {{94, 0}, {6, 22}}, "headerbg-light-right"),
                                              image("drawImage copy", {{6, 0}, {88, 22}}, "headerbg-light-fill")));
}

TEST_F(Header, SquareIsTheFillStretchedOverTheBounds) {
  EXPECT_THAT(header(false, false), ElementsAre(image("drawImage copy", {{0, 0}, {100, 50}}, "headerbg-dark-fill")));
}

TEST_F(Header, AMissingSetDrawsNothing) {
  resources.images.clear();
  EXPECT_THAT(header(true, true), IsEmpty());
  EXPECT_THAT(header(false, false), IsEmpty());
}

}  // namespace
