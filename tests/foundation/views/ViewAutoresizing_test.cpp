// The frame of a view whose superview changes its size.
#include <gtest/gtest.h>

#include "foundation/views/View.h"
#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakePlatform.h"

using namespace foundation;

namespace {

struct ViewAutoresizingTest : testing::Test {
  ViewAutoresizingTest() { superview->addSubview(view); }

  Rect afterResizing(unsigned mask, Size size) {
    view->setAutoresizingMask(mask);
    superview->setFrameSize(size);
    return view->frame();
  }

  platform::fake::FakePlatform fakes;
  std::shared_ptr<View> superview = std::make_shared<View>(Rect{{0, 0}, {200, 100}});
  std::shared_ptr<View> view = std::make_shared<View>(Rect{{20, 10}, {60, 40}});
};

TEST_F(ViewAutoresizingTest, WithoutAMaskTheFrameStays) {
  EXPECT_EQ(afterResizing(ViewNotSizable, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleLeftMarginMovesTheView) {
  EXPECT_EQ(afterResizing(ViewMinXMargin, {300, 160}), (Rect{{120, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleRightMarginKeepsTheViewOnTheLeft) {
  EXPECT_EQ(afterResizing(ViewMaxXMargin, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleWidthTakesTheWholeChange) {
  EXPECT_EQ(afterResizing(ViewWidthSizable, {300, 160}), (Rect{{20, 10}, {160, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleBottomMarginMovesTheViewUp) {
  EXPECT_EQ(afterResizing(ViewMinYMargin, {300, 160}), (Rect{{20, 70}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleTopMarginKeepsTheViewAtTheBottom) {
  EXPECT_EQ(afterResizing(ViewMaxYMargin, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, AFlexibleHeightTakesTheWholeChange) {
  EXPECT_EQ(afterResizing(ViewHeightSizable, {300, 160}), (Rect{{20, 10}, {60, 100}}));
}

TEST_F(ViewAutoresizingTest, FlexiblePartsShareTheDifferenceAlongEachAxis) {
  EXPECT_EQ(afterResizing(ViewMinXMargin | ViewMaxXMargin | ViewMinYMargin | ViewHeightSizable, {300, 160}),
            (Rect{{70, 40}, {60, 70}}));
  superview->setFrameSize({200, 100});
  EXPECT_EQ(afterResizing(ViewMinXMargin | ViewWidthSizable | ViewMaxXMargin, {260, 100}), (Rect{{40, 10}, {80, 40}}));
}

TEST_F(ViewAutoresizingTest, RestoringTheSizeRestoresTheFrame) {
  afterResizing(ViewWidthSizable | ViewHeightSizable | ViewMinYMargin, {0, 0});
  EXPECT_EQ(afterResizing(view->autoresizingMask(), {200, 100}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, MovingTheSuperviewChangesNothing) {
  view->setAutoresizingMask(ViewWidthSizable | ViewMinYMargin);
  superview->setFrame({{50, 60}, {200, 100}});
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, SettingBoundsMovesNoSubviews) {
  view->setAutoresizingMask(ViewWidthSizable);
  superview->setBounds({{0, 0}, {400, 200}});
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(ViewAutoresizingTest, TheDifferenceIsMeasuredInBoundsThatHaveTheirOwnSize) {
  view->setAutoresizingMask(ViewWidthSizable);
  superview->setBounds({{0, 0}, {400, 200}});
  superview->setFrameSize({300, 100});  // bounds go from 400 to 600
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {260, 40}}));
}

TEST_F(ViewAutoresizingTest, ResizingGoesDownTheTree) {
  const auto inner = std::make_shared<View>(Rect{{5, 5}, {10, 10}});
  inner->setAutoresizingMask(ViewMinXMargin);
  view->addSubview(inner);
  afterResizing(ViewWidthSizable, {300, 100});
  EXPECT_EQ(inner->frame(), (Rect{{105, 5}, {10, 10}}));
}

// Records the frames that are set.
class NotedView : public View {
 public:
  using View::View;
  void setFrame(const Rect& frame) override {
    frames.push_back(frame);
    View::setFrame(frame);
  }
  std::vector<Rect> frames;
};

TEST_F(ViewAutoresizingTest, SetFrameIsCalledForANewFrameOnly) {
  const auto noted = std::make_shared<NotedView>(Rect{{0, 0}, {10, 10}});
  superview->addSubview(noted);
  superview->setFrameSize({300, 100});
  EXPECT_TRUE(noted->frames.empty());
  noted->setAutoresizingMask(ViewWidthSizable);
  superview->setFrameSize({310, 100});
  EXPECT_EQ(noted->frames, (std::vector<Rect>{{{0, 0}, {20, 10}}}));
}

TEST_F(ViewAutoresizingTest, TheContentViewFollowsTheSizeOfItsWindow) {
  ViewWindow window{fakes.runLoop};
  window.setSize({200, 100});
  window.setContentView(superview);
  view->setAutoresizingMask(ViewMinXMargin | ViewHeightSizable);
  window.setSize({260, 150});
  EXPECT_EQ(view->frame(), (Rect{{80, 10}, {60, 90}}));
}

}  // namespace
