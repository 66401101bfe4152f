#include "foundation/views/View.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"

using foundation::Point;
using foundation::Rect;
using foundation::Seconds;
using foundation::Size;
using platform::Responder;
using platform::View;
using platform::ViewWindow;
using testing::ElementsAre;

namespace {

using Calls = std::vector<std::string>;

// Writes down what it is told, with its name.
class ToldView : public View {
 public:
  ToldView(std::string name, Calls& calls) : _name(std::move(name)), _calls(calls) {}

  void viewWillMoveToSuperview(View* superview) override { say(superview, "will-superview"); }
  void viewDidMoveToSuperview() override { say(superview(), "did-superview"); }
  void viewWillMoveToWindow(ViewWindow* window) override { say(window, "will-window"); }
  void viewDidMoveToWindow() override { say(window(), "did-window"); }
  void viewDidHide() override { _calls.push_back(_name + " did-hide"); }
  void viewDidUnhide() override { _calls.push_back(_name + " did-unhide"); }
  void viewWillDraw() override {
    _calls.push_back(_name + " will-draw");
    View::viewWillDraw();
  }
  void drawRect(const Rect& /*dirtyRect*/) override { _calls.push_back(_name + " draw"); }

 private:
  void say(const void* where, const std::string& what) {
    _calls.push_back(_name + " " + what + (where == nullptr ? " nothing" : ""));
  }

  std::string _name;
  Calls& _calls;
};

struct ViewTree : testing::Test {
  std::shared_ptr<ToldView> view(const std::string& name) { return std::make_shared<ToldView>(name, calls); }

  platform::fake::FakePlatform fakes;
  Calls calls;
  ViewWindow window;
  std::shared_ptr<View> content = std::make_shared<View>();
};

TEST_F(ViewTree, EnteringASuperviewInAWindowTellsTheFourInOrder) {
  window.setContentView(content);
  content->addSubview(view("a"));
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a will-window", "a did-window", "a did-superview"));
}

TEST_F(ViewTree, EnteringASuperviewOutsideOfAnyWindowTellsNothingOfWindows) {
  content->addSubview(view("a"));
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a did-superview"));
}

TEST_F(ViewTree, LeavingASuperviewTellsTheFourWithNothing) {
  window.setContentView(content);
  const auto a = view("a");
  content->addSubview(a);
  calls.clear();
  a->removeFromSuperview();
  EXPECT_THAT(calls, ElementsAre("a will-superview nothing", "a will-window nothing", "a did-window nothing",
                                 "a did-superview nothing"));
}

TEST_F(ViewTree, WhatIsInAViewIsToldOfTheWindowAfterIt) {
  window.setContentView(content);
  const auto a = view("a");
  a->addSubview(view("b"));
  calls.clear();
  content->addSubview(a);
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a will-window", "b will-window", "a did-window", "b did-window",
                                 "a did-superview"));
}

TEST_F(ViewTree, ChangingSuperviewsIsLeavingAndEntering) {
  const auto other = std::make_shared<View>();
  const auto a = view("a");
  content->addSubview(a);
  calls.clear();
  other->addSubview(a);
  EXPECT_THAT(calls,
              ElementsAre("a will-superview nothing", "a did-superview nothing", "a will-superview", "a did-superview"));
  EXPECT_TRUE(content->subviews().empty());
  EXPECT_EQ(a->superview(), other.get());
}

TEST_F(ViewTree, AViewDoesNotBecomeItsOwnAncestor) {
  const auto a = view("a");
  content->addSubview(a);
  a->addSubview(content);
  a->addSubview(a);
  EXPECT_EQ(content->superview(), nullptr);
  EXPECT_EQ(a->superview(), content.get());
}

TEST_F(ViewTree, HidingTellsWhatWasShownBelow) {
  const auto a = view("a");
  const auto b = view("b");
  const auto hidden = view("hidden");
  hidden->setHidden(true);
  a->addSubview(b);
  a->addSubview(hidden);
  calls.clear();
  a->setHidden(true);
  a->setHidden(true);
  b->setHidden(true);  // was out of sight already
  b->setHidden(false);
  a->setHidden(false);
  EXPECT_THAT(calls, ElementsAre("a did-hide", "b did-hide", "a did-unhide", "b did-unhide"));
}

TEST_F(ViewTree, TheNextResponderOfASubviewIsItsSuperview) {
  window.setContentView(content);
  const auto a = view("a");
  content->addSubview(a);
  EXPECT_EQ(a->nextResponder(), content.get());
  EXPECT_EQ(content->nextResponder()->nextResponder(), &window);
  a->removeFromSuperview();
  EXPECT_EQ(a->nextResponder(), nullptr);
}

TEST_F(ViewTree, AResponderThatHasGoneIsNoLongerNext) {
  Responder first;
  {
    Responder second;
    first.setNextResponder(&second);
    EXPECT_EQ(first.nextResponder(), &second);
  }
  EXPECT_EQ(first.nextResponder(), nullptr);
}

TEST_F(ViewTree, SubviewsLeaveASuperviewThatGoes) {
  const auto a = view("a");
  content->addSubview(a);
  calls.clear();
  content.reset();
  EXPECT_EQ(a->superview(), nullptr);
  EXPECT_THAT(calls, ElementsAre("a will-superview nothing", "a did-superview nothing"));
}

TEST_F(ViewTree, AViewLeavesAWindowThatGoes) {
  const auto a = view("a");
  {
    ViewWindow shortLived;
    shortLived.setContentView(a);
    EXPECT_EQ(a->window(), &shortLived);
  }
  EXPECT_EQ(a->window(), nullptr);
}

TEST_F(ViewTree, TheContentViewFillsTheWindow) {
  window.setContentView(content);
  window.setSize({460, 320});
  EXPECT_EQ(content->frame(), (Rect{{0, 0}, {460, 320}}));
}

TEST_F(ViewTree, BoundsFollowTheFrameUntilTheyAreSet) {
  View view({{10, 20}, {100, 50}});
  EXPECT_EQ(view.bounds(), (Rect{{0, 0}, {100, 50}}));
  view.setFrame({{0, 0}, {200, 60}});
  EXPECT_EQ(view.bounds(), (Rect{{0, 0}, {200, 60}}));
  view.setBounds({{5, 5}, {100, 30}});
  view.setFrameSize({400, 120});
  EXPECT_EQ(view.bounds(), (Rect{{5, 5}, {200, 60}}));
}

TEST_F(ViewTree, VisibleViewsAreToldBeforeAnythingIsDrawn) {
  window.setContentView(content);
  content->addSubview(view("a"));
  const auto hidden = view("hidden");
  hidden->setHidden(true);
  content->addSubview(hidden);
  content->addSubview(view("b"));
  calls.clear();
  platform::fake::RecordingContext context;
  window.display(context);
  EXPECT_THAT(calls, ElementsAre("a will-draw", "b will-draw", "a draw", "b draw"));
}

TEST_F(ViewTree, AViewDrawsInItsOwnCoordinatesAndWithinItsBounds) {
  window.setContentView(content);
  const auto a = view("a");
  content->addSubview(a);
  a->setFrame({{10, 20}, {100, 50}});
  a->setBounds({{5, 6}, {50, 25}});
  platform::fake::RecordingContext context;
  window.display(context);
  Calls operations;
  for (const auto& step : context.steps) operations.push_back(testing::PrintToString(step));
  const auto own = std::ranges::find(operations, "translate {{10, 20}, {0, 0}} 0 0  0");
  ASSERT_NE(own, operations.end());
  EXPECT_THAT(Calls(own, own + 4), ElementsAre("translate {{10, 20}, {0, 0}} 0 0  0", "scale {{0, 0}, {2, 2}} 0 0  0",
                                               "translate {{-5, -6}, {0, 0}} 0 0  0", "clip {{5, 6}, {50, 25}} 0 0  0"));
}

TEST_F(ViewTree, ThereIsACurrentContextOnlyWhileDrawing) {
  platform::fake::RecordingContext context;
  EXPECT_EQ(foundation::GraphicsContext::current(), nullptr);
  {
    const foundation::GraphicsContext::Focus focus(context);
    EXPECT_EQ(foundation::GraphicsContext::current(), &context);
  }
  EXPECT_EQ(foundation::GraphicsContext::current(), nullptr);
}

TEST_F(ViewTree, NeedingDisplayAsksTheWindowAndEndsWithDrawing) {
  int asked = 0;
  window.onNeedsDisplay = [&] { ++asked; };
  window.setContentView(content);
  asked = 0;
  content->setNeedsDisplay(true);
  EXPECT_EQ(asked, 1);
  EXPECT_TRUE(content->needsDisplay());
  platform::fake::RecordingContext context;
  window.display(context);
  EXPECT_FALSE(content->needsDisplay());
  EXPECT_EQ(asked, 1);
}

TEST_F(ViewTree, AnAnimatedFrameArrivesAfterAQuarterOfASecond) {
  content->setFrame({{0, 0}, {100, 100}});
  content->animator().setFrame({{100, 200}, {300, 400}});
  EXPECT_EQ(content->frame(), (Rect{{0, 0}, {100, 100}}));
  fakes.runLoop.advance(Seconds(0.125));
  EXPECT_GT(content->frame().origin.x, 20);
  EXPECT_LT(content->frame().origin.x, 80);
  fakes.runLoop.advance(Seconds(0.2));
  EXPECT_EQ(content->frame(), (Rect{{100, 200}, {300, 400}}));
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(ViewTree, AnAnimatedOriginAndAnAnimatedSizeBothArrive) {
  content->animator().setFrameOrigin({100, 200});
  content->animator().setFrameSize({30, 40});
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(content->frame(), (Rect{{100, 200}, {30, 40}}));
}

TEST_F(ViewTree, AFrameSetDuringAnAnimationStays) {
  content->animator().setFrameOrigin({100, 200});
  fakes.runLoop.advance(Seconds(0.1));
  content->setFrameOrigin({7, 7});
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(content->frame().origin, (Point{7, 7}));
}

TEST_F(ViewTree, AViewMayGoDuringItsAnimation) {
  content->animator().setFrameSize({100, 200});
  fakes.runLoop.advance(Seconds(0.1));
  content.reset();
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(ViewTree, AnImageIsMissingWhereNoViewsAreShown) { EXPECT_EQ(platform::imageNamed("s_bloom"), nullptr); }

TEST(GradientAxis, RunsFromTheTopAtMinusNinetyDegrees) {
  const auto [start, end] = foundation::gradientAxis({{0, 60}, {460, 260}}, -90);
  EXPECT_NEAR(start.x, 230, 1e-9);
  EXPECT_NEAR(start.y, 320, 1e-9);
  EXPECT_NEAR(end.y, 60, 1e-9);
}

TEST(GradientAxis, RunsFromTheLeftAtZeroDegrees) {
  const auto [start, end] = foundation::gradientAxis({{10, 0}, {100, 50}}, 0);
  EXPECT_NEAR(start.x, 10, 1e-9);
  EXPECT_NEAR(end.x, 110, 1e-9);
  EXPECT_NEAR(end.y, 25, 1e-9);
}

}  // namespace
