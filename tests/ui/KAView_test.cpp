#include "ui/KAView.h"

#include <gtest/gtest.h>

#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"

using foundation::Point;
using foundation::Rect;
using foundation::Seconds;
using foundation::Size;

namespace {

// Requires a size of its own, and counts calculations and layouts.
class SizedView : public KAView {
 public:
  using KAView::KAView;
  void calcSize() override {
    ++calculations;
    setCalculatedSize(wanted);
  }
  void layoutSubviews() override {
    ++layouts;
    KAView::layoutSubviews();
  }
  Size wanted{100, 40};
  int calculations = 0;
  int layouts = 0;
};

struct KAViewTest : testing::Test {
  KAViewTest() {
    window.setContentView(content);
    window.setSize({500, 400});
  }

  platform::fake::FakePlatform fakes;
  foundation::ViewWindow window{fakes.runLoop};
  std::shared_ptr<foundation::View> content = std::make_shared<foundation::View>();
  std::shared_ptr<SizedView> view = std::make_shared<SizedView>(Rect{{20, 30}, {200, 60}});
};

TEST_F(KAViewTest, AFreshViewRequiresNoSpace) { EXPECT_EQ(view->minRequiredSize(), (Size{0, 0})); }

TEST_F(KAViewTest, SizeToFitOfTheBaseClassTakesTheBoundsAndChangesNothing) {
  KAView plain({{20, 30}, {200, 60}});
  plain.sizeToFit();
  EXPECT_EQ(plain.minRequiredSize(), (Size{200, 60}));
  EXPECT_EQ(plain.frame(), (Rect{{20, 30}, {200, 60}}));
}

TEST_F(KAViewTest, ASizeThatWasSetIsOverwrittenByTheFirstCalculation) {
  KAView plain({{0, 0}, {200, 60}});
  plain.setCalculatedSize({10, 10});
  EXPECT_EQ(plain.minRequiredSize(), (Size{10, 10}));
  plain.sizeToFit();
  EXPECT_EQ(plain.frame().size, (Size{200, 60}));
}

TEST_F(KAViewTest, ASizeThatWasSetAfterTheCalculationStays) {
  view->calcSizeIfNeeded();
  view->setCalculatedSize({10, 10});
  view->sizeToFit();
  EXPECT_EQ(view->frame(), (Rect{{20, 30}, {10, 10}}));
}

TEST_F(KAViewTest, TheSizeIsCalculatedOnceUntilItIsInvalidated) {
  view->calcSizeIfNeeded();
  view->calcSizeIfNeeded();
  EXPECT_EQ(view->calculations, 1);
  view->setNeedsCalcSize();
  view->sizeToFit();
  EXPECT_EQ(view->calculations, 2);
}

// A size is up to date after its calculation, even if the calculation invalidated it.
TEST_F(KAViewTest, ASizeIsUpToDateAfterACalculationThatInvalidatesIt) {
  class InvalidatingView : public SizedView {
   public:
    void calcSize() override {
      SizedView::calcSize();
      setNeedsCalcSize();
    }
  };
  InvalidatingView invalidating;
  invalidating.calcSizeIfNeeded();
  invalidating.calcSizeIfNeeded();
  EXPECT_EQ(invalidating.calculations, 1);
}

TEST_F(KAViewTest, TheCalculatedSizeOfTheBaseClassIsThatOfTheBoundsNotOfTheFrame) {
  KAView plain({{20, 30}, {200, 60}});
  plain.setBounds({{0, 0}, {100, 40}});
  plain.calcSize();
  EXPECT_EQ(plain.minRequiredSize(), (Size{100, 40}));
}

TEST_F(KAViewTest, SizeToFitKeepsTheOriginAndRequestsNoLayout) {
  view->sizeToFit();
  EXPECT_EQ(view->frame(), (Rect{{20, 30}, {100, 40}}));
  EXPECT_FALSE(view->needsLayout());
}

TEST_F(KAViewTest, AViewWithBothMarginsFlexibleKeepsItsMiddle) {
  view->setAutoresizingMask(foundation::ViewMinXMargin | foundation::ViewMaxXMargin);
  view->sizeAndMoveToFit();
  EXPECT_EQ(view->frame(), (Rect{{70, 30}, {100, 40}}));
}

struct Move {
  unsigned mask;
  Point origin;
};

class KAViewMoveTest : public KAViewTest, public testing::WithParamInterface<Move> {};

TEST_P(KAViewMoveTest, FollowsTheFlexibleMargins) {
  view->setAutoresizingMask(GetParam().mask);
  view->sizeAndMoveToFit();
  EXPECT_EQ(view->frame(), (Rect{GetParam().origin, {100, 40}}));
}

// The view becomes 100 narrower and 20 lower; it starts at (20, 30).
INSTANTIATE_TEST_SUITE_P(Signs, KAViewMoveTest,
                         testing::Values(Move{0, {20, 30}}, Move{1, {-80, 30}}, Move{4, {120, 30}}, Move{5, {70, 30}},
                                         Move{8, {20, 50}}, Move{32, {20, 10}}, Move{40, {20, 40}}, Move{2 | 16, {20, 30}},
                                         Move{1 | 32, {-80, 10}}, Move{63, {70, 40}}));

TEST_F(KAViewTest, WithoutAWindowAnAnimatedSizeIsSetAtOnce) {
  view->sizeToFitAnimated(true);
  EXPECT_EQ(view->frame().size, (Size{100, 40}));
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(KAViewTest, InAWindowAnAnimatedSizeArrivesLater) {
  content->addSubview(view);
  view->sizeToFitAnimated(true);
  EXPECT_EQ(view->frame().size, (Size{200, 60}));
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(view->frame().size, (Size{100, 40}));
}

TEST_F(KAViewTest, InAHiddenViewAnAnimatedMoveIsMadeAtOnce) {
  content->addSubview(view);
  content->setHidden(true);
  view->setAutoresizingMask(foundation::ViewMaxXMargin);
  view->sizeAndMoveToFitAnimated(true);
  EXPECT_EQ(view->frame(), (Rect{{120, 30}, {100, 40}}));
}

TEST_F(KAViewTest, InAVisibleViewAnAnimatedMoveArrivesLater) {
  content->addSubview(view);
  view->sizeAndMoveToFitAnimated(true);
  EXPECT_EQ(view->frame().size, (Size{200, 60}));
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(view->frame().size, (Size{100, 40}));
}

TEST_F(KAViewTest, CenteringRoundsHalvesAwayFromZero) {
  content->addSubview(view);
  view->setFrameSize({201, 403});
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin, (Point{150, -2}));  // 149.5 and -1.5
}

TEST_F(KAViewTest, CenteringRoundsInSinglePrecision) {
  content->addSubview(view);
  content->setFrameSize({100, 100});
  view->setFrameSize({99.00000001, 100});  // half of the difference is just below one half
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin.x, 1);
}

TEST_F(KAViewTest, CenteringWithoutASuperviewTakesItsSizeAsZero) {
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin, (Point{-100, -30}));
}

TEST_F(KAViewTest, CenteringIgnoresTheOriginOfTheSuperviewsBounds) {
  content->addSubview(view);
  content->setBounds({{1000, 1000}, {500, 400}});
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin, (Point{150, 170}));
}

TEST_F(KAViewTest, CenteringTakesTheSizesOfTheBoundsNotOfTheFrames) {
  content->addSubview(view);
  view->setBounds({{0, 0}, {100, 40}});
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin, (Point{200, 180}));
  content->setBounds({{0, 0}, {1000, 800}});
  view->centerToSuperview();
  EXPECT_EQ(view->frame().origin, (Point{450, 380}));
}

TEST_F(KAViewTest, AnimatedCenteringIsAnimatedInAHiddenView) {
  content->addSubview(view);
  view->setHidden(true);
  view->centerToSuperviewAnimated(true);
  EXPECT_EQ(view->frame().origin, (Point{20, 30}));
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(view->frame().origin, (Point{150, 170}));
}

TEST_F(KAViewTest, AnimatedCenteringIsAnimatedEvenWithoutAWindow) {
  view->centerToSuperviewAnimated(true);
  EXPECT_EQ(view->frame().origin, (Point{20, 30}));
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(view->frame().origin, (Point{-100, -30}));
}

TEST_F(KAViewTest, SettingTheFrameOrTheBoundsRequestsLayout) {
  view->setFrame({{0, 0}, {10, 10}});
  EXPECT_TRUE(view->needsLayout());
  EXPECT_TRUE(view->needsDisplay());
  view->layoutIfNeeded();
  EXPECT_FALSE(view->needsLayout());
  view->setBounds({{0, 0}, {5, 5}});
  EXPECT_TRUE(view->needsLayout());
}

TEST_F(KAViewTest, ARequestForLayoutRequestsDisplayToo) {
  view->setNeedsDisplay(false);
  view->setNeedsLayout();
  EXPECT_TRUE(view->needsDisplay());
}

TEST_F(KAViewTest, DrawingLaysOutTheSubviewsToo) {
  const auto outer = std::make_shared<KAView>();
  content->addSubview(outer);
  outer->addSubview(view);
  view->setNeedsLayout();
  platform::fake::RecordingContext context;
  window.display(context);
  EXPECT_EQ(view->layouts, 1);
  EXPECT_FALSE(view->needsLayout());
}

TEST_F(KAViewTest, LayoutIsDeferredUntilDrawingAndDoneOnce) {
  content->addSubview(view);
  view->setNeedsLayout();
  view->setNeedsLayout();
  EXPECT_EQ(view->layouts, 0);
  platform::fake::RecordingContext context;
  window.display(context);
  window.display(context);
  EXPECT_EQ(view->layouts, 1);
}

TEST_F(KAViewTest, IsVisibleInAWindowUnlessItOrAnAncestorIsHidden) {
  EXPECT_FALSE(view->isVisibleOnWindow());
  content->addSubview(view);
  EXPECT_TRUE(view->isVisibleOnWindow());
  content->setHidden(true);
  EXPECT_FALSE(view->isVisibleOnWindow());
  content->setHidden(false);
  view->setHidden(true);
  EXPECT_FALSE(view->isVisibleOnWindow());
}

}  // namespace
