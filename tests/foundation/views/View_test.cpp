#include "foundation/views/View.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"

using foundation::Point;
using foundation::Rect;
using foundation::Responder;
using foundation::Seconds;
using foundation::Size;
using foundation::View;
using foundation::ViewWindow;
using testing::ElementsAre;

namespace {

using Calls = std::vector<std::string>;

// Records its notifications, each with its name.
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

struct ViewTest : testing::Test {
  std::shared_ptr<ToldView> view(const std::string& name) { return std::make_shared<ToldView>(name, calls); }

  platform::fake::FakePlatform fakes;
  Calls calls;
  ViewWindow window{fakes.runLoop};
  std::shared_ptr<View> content = std::make_shared<View>();
};

TEST_F(ViewTest, EnteringASuperviewInAWindowSendsFourNotificationsInOrder) {
  window.setContentView(content);
  content->addSubview(view("a"));
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a will-window", "a did-window", "a did-superview"));
}

TEST_F(ViewTest, EnteringASuperviewOutsideAnyWindowSendsNothingAboutWindows) {
  content->addSubview(view("a"));
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a did-superview"));
}

TEST_F(ViewTest, LeavingASuperviewSendsTheFourNotificationsWithNull) {
  window.setContentView(content);
  const auto a = view("a");
  content->addSubview(a);
  calls.clear();
  a->removeFromSuperview();
  EXPECT_THAT(calls, ElementsAre("a will-superview nothing", "a will-window nothing", "a did-window nothing",
                                 "a did-superview nothing"));
}

TEST_F(ViewTest, SubviewsAreNotifiedOfAWindowAfterTheirSuperview) {
  window.setContentView(content);
  const auto a = view("a");
  a->addSubview(view("b"));
  calls.clear();
  content->addSubview(a);
  EXPECT_THAT(calls, ElementsAre("a will-superview", "a will-window", "b will-window", "a did-window", "b did-window",
                                 "a did-superview"));
}

TEST_F(ViewTest, ChangingSuperviewsLeavesOneAndEntersTheOther) {
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

TEST_F(ViewTest, AViewDoesNotBecomeItsOwnAncestor) {
  const auto a = view("a");
  content->addSubview(a);
  a->addSubview(content);
  a->addSubview(a);
  EXPECT_EQ(content->superview(), nullptr);
  EXPECT_EQ(a->superview(), content.get());
}

TEST_F(ViewTest, HidingNotifiesTheVisibleSubviews) {
  const auto a = view("a");
  const auto b = view("b");
  const auto hidden = view("hidden");
  hidden->setHidden(true);
  a->addSubview(b);
  a->addSubview(hidden);
  calls.clear();
  a->setHidden(true);
  a->setHidden(true);
  b->setHidden(true);  // was not visible anyway
  b->setHidden(false);
  a->setHidden(false);
  EXPECT_THAT(calls, ElementsAre("a did-hide", "b did-hide", "a did-unhide", "b did-unhide"));
}

TEST_F(ViewTest, TheNextResponderOfASubviewIsItsSuperview) {
  window.setContentView(content);
  const auto a = view("a");
  content->addSubview(a);
  EXPECT_EQ(a->nextResponder(), content.get());
  EXPECT_EQ(content->nextResponder()->nextResponder(), &window);
  a->removeFromSuperview();
  EXPECT_EQ(a->nextResponder(), nullptr);
}

TEST_F(ViewTest, ADestroyedResponderIsNoLongerNext) {
  Responder first;
  {
    Responder second;
    first.setNextResponder(&second);
    EXPECT_EQ(first.nextResponder(), &second);
  }
  EXPECT_EQ(first.nextResponder(), nullptr);
}

TEST_F(ViewTest, SubviewsLeaveADestroyedSuperview) {
  const auto a = view("a");
  content->addSubview(a);
  calls.clear();
  content.reset();
  EXPECT_EQ(a->superview(), nullptr);
  EXPECT_THAT(calls, ElementsAre("a will-superview nothing", "a did-superview nothing"));
}

TEST_F(ViewTest, AViewLeavesADestroyedWindow) {
  const auto a = view("a");
  {
    ViewWindow shortLived{fakes.runLoop};
    shortLived.setContentView(a);
    EXPECT_EQ(a->window(), &shortLived);
  }
  EXPECT_EQ(a->window(), nullptr);
}

TEST_F(ViewTest, TheContentViewFillsTheWindow) {
  window.setContentView(content);
  window.setSize({460, 320});
  EXPECT_EQ(content->frame(), (Rect{{0, 0}, {460, 320}}));
}

TEST_F(ViewTest, BoundsFollowTheFrameUntilTheyAreSet) {
  View view({{10, 20}, {100, 50}});
  EXPECT_EQ(view.bounds(), (Rect{{0, 0}, {100, 50}}));
  view.setFrame({{0, 0}, {200, 60}});
  EXPECT_EQ(view.bounds(), (Rect{{0, 0}, {200, 60}}));
  view.setBounds({{5, 5}, {100, 30}});
  view.setFrameSize({400, 120});
  EXPECT_EQ(view.bounds(), (Rect{{5, 5}, {200, 60}}));
}

TEST_F(ViewTest, VisibleViewsAreNotifiedBeforeAnythingIsDrawn) {
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

TEST_F(ViewTest, AViewDrawsInItsOwnCoordinatesAndWithinItsBounds) {
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

TEST_F(ViewTest, AContextIsCurrentOnlyWhileItHasTheFocus) {
  platform::fake::RecordingContext context;
  EXPECT_EQ(foundation::GraphicsContext::current(), nullptr);
  {
    const foundation::GraphicsContext::Focus focus(context);
    EXPECT_EQ(foundation::GraphicsContext::current(), &context);
  }
  EXPECT_EQ(foundation::GraphicsContext::current(), nullptr);
}

TEST_F(ViewTest, NeedingDisplayNotifiesTheWindowAndEndsWithDrawing) {
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

}  // namespace
