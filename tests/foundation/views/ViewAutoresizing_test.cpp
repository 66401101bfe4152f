// What becomes of a view whose superview changes its size.
#include <gtest/gtest.h>

#include "foundation/views/View.h"
#include "platform/fake/FakePlatform.h"

using namespace foundation;
using namespace platform;

namespace {

struct Autoresizing : testing::Test {
  Autoresizing() { superview->addSubview(view); }

  Rect afterResizing(unsigned mask, Size size) {
    view->setAutoresizingMask(mask);
    superview->setFrameSize(size);
    return view->frame();
  }

  platform::fake::FakePlatform fakes;
  std::shared_ptr<View> superview = std::make_shared<View>(Rect{{0, 0}, {200, 100}});
  std::shared_ptr<View> view = std::make_shared<View>(Rect{{20, 10}, {60, 40}});
};

TEST_F(Autoresizing, WithoutAMaskTheFrameStays) {
  EXPECT_EQ(afterResizing(ViewNotSizable, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, AFlexibleLeftMarginMovesTheView) {
  EXPECT_EQ(afterResizing(ViewMinXMargin, {300, 160}), (Rect{{120, 10}, {60, 40}}));
}

TEST_F(Autoresizing, AFlexibleRightMarginKeepsTheViewOnTheLeft) {
  EXPECT_EQ(afterResizing(ViewMaxXMargin, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, AFlexibleWidthTakesTheWholeChange) {
  EXPECT_EQ(afterResizing(ViewWidthSizable, {300, 160}), (Rect{{20, 10}, {160, 40}}));
}

TEST_F(Autoresizing, AFlexibleBottomMarginMovesTheViewUp) {
  EXPECT_EQ(afterResizing(ViewMinYMargin, {300, 160}), (Rect{{20, 70}, {60, 40}}));
}

TEST_F(Autoresizing, AFlexibleTopMarginKeepsTheViewAtTheBottom) {
  EXPECT_EQ(afterResizing(ViewMaxYMargin, {300, 160}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, AFlexibleHeightTakesTheWholeChange) {
  EXPECT_EQ(afterResizing(ViewHeightSizable, {300, 160}), (Rect{{20, 10}, {60, 100}}));
}

TEST_F(Autoresizing, WhatIsFlexibleAlongAnAxisSharesTheChange) {
  EXPECT_EQ(afterResizing(ViewMinXMargin | ViewMaxXMargin | ViewMinYMargin | ViewHeightSizable, {300, 160}),
            (Rect{{70, 40}, {60, 70}}));
  superview->setFrameSize({200, 100});
  EXPECT_EQ(afterResizing(ViewMinXMargin | ViewWidthSizable | ViewMaxXMargin, {260, 100}), (Rect{{40, 10}, {80, 40}}));
}

TEST_F(Autoresizing, TheOldSizeBringsBackTheOldFrame) {
  afterResizing(ViewWidthSizable | ViewHeightSizable | ViewMinYMargin, {0, 0});
  EXPECT_EQ(afterResizing(view->autoresizingMask(), {200, 100}), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, AMovedSuperviewChangesNothing) {
  view->setAutoresizingMask(ViewWidthSizable | ViewMinYMargin);
  superview->setFrame({{50, 60}, {200, 100}});
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, SetBoundsMoveNoSubviews) {
  view->setAutoresizingMask(ViewWidthSizable);
  superview->setBounds({{0, 0}, {400, 200}});
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {60, 40}}));
}

TEST_F(Autoresizing, BoundsOfASizeOfTheirOwnSayHowMuchThereIsToShare) {
  view->setAutoresizingMask(ViewWidthSizable);
  superview->setBounds({{0, 0}, {400, 200}});
  superview->setFrameSize({300, 100});  // bounds go from 400 to 600
  EXPECT_EQ(view->frame(), (Rect{{20, 10}, {260, 40}}));
}

TEST_F(Autoresizing, ItGoesDownTheTree) {
  const auto inner = std::make_shared<View>(Rect{{5, 5}, {10, 10}});
  inner->setAutoresizingMask(ViewMinXMargin);
  view->addSubview(inner);
  afterResizing(ViewWidthSizable, {300, 100});
  EXPECT_EQ(inner->frame(), (Rect{{105, 5}, {10, 10}}));
}

// Writes down the frames that are set.
class NotedView : public View {
 public:
  using View::View;
  void setFrame(const Rect& frame) override {
    frames.push_back(frame);
    View::setFrame(frame);
  }
  std::vector<Rect> frames;
};

TEST_F(Autoresizing, AClassIsToldOfItsNewFrameAndOnlyOfANewOne) {
  const auto noted = std::make_shared<NotedView>(Rect{{0, 0}, {10, 10}});
  superview->addSubview(noted);
  superview->setFrameSize({300, 100});
  EXPECT_TRUE(noted->frames.empty());
  noted->setAutoresizingMask(ViewWidthSizable);
  superview->setFrameSize({310, 100});
  EXPECT_EQ(noted->frames, (std::vector<Rect>{{{0, 0}, {20, 10}}}));
}

TEST_F(Autoresizing, TheContentOfAWindowGoesWithTheWindow) {
  ViewWindow window;
  window.setSize({200, 100});
  window.setContentView(superview);
  view->setAutoresizingMask(ViewMinXMargin | ViewHeightSizable);
  window.setSize({260, 150});
  EXPECT_EQ(view->frame(), (Rect{{80, 10}, {60, 90}}));
}

}  // namespace
