#include "ui/KAViewController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"
#include "tests/ui/ToldController.h"

using foundation::Size;
using platform::Responder;
using testing::ElementsAre;

namespace {

class OtherController : public KAViewController {
 public:
  static constexpr std::string_view className = "OtherController";
  using KAViewController::KAViewController;
};

struct Controllers : testing::Test {
  Controllers() { fakes.platform.viewResources = &resources; }

  platform::fake::FakePlatform fakes;
  platform::fake::FakeViewResources resources;
  Calls calls;
  std::shared_ptr<KAView> view = std::make_shared<KAView>();
};

TEST_F(Controllers, TheNibIsNamedLikeTheClass) {
  EXPECT_EQ(KAViewController::nibName<OtherController>(), "OtherController");
  resources.nibs["OtherController"] = [this] { return view; };
  const auto controller = KAViewController::viewController<OtherController>();
  EXPECT_FALSE(controller->isViewLoaded());
  EXPECT_EQ(controller->view(), view.get());
  EXPECT_TRUE(controller->isViewLoaded());
  EXPECT_EQ(view->viewController(), controller.get());
}

TEST_F(Controllers, LoadingTheViewIsTold) {
  resources.nibs["ToldController"] = [this] { return view; };
  const auto controller = KAViewController::viewController<ToldController>();
  controller->calls = &calls;
  controller->loadView();
  EXPECT_THAT(calls, ElementsAre("DidLoad"));
}

TEST_F(Controllers, AMissingNibLeavesTheControllerWithoutViewAndIsLogged) {
  const auto controller = KAViewController::viewController<ToldController>();
  controller->calls = &calls;
  EXPECT_EQ(controller->view(), nullptr);
  EXPECT_FALSE(controller->isViewLoaded());
  EXPECT_TRUE(calls.empty());
  ASSERT_EQ(fakes.systemLog.lines.size(), 1U);
  EXPECT_THAT(fakes.systemLog.lines.front(), testing::HasSubstr("ToldController"));
}

TEST_F(Controllers, TakingTheViewAwayIsToldAndUnlinks) {
  ToldController controller(calls);
  controller.setView(view);
  controller.setView(nullptr);
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
  EXPECT_FALSE(controller.isViewLoaded());
  EXPECT_EQ(view->viewController(), nullptr);
}

TEST_F(Controllers, NoViewInPlaceOfNoViewIsNotTold) {
  ToldController controller(calls);
  controller.setView(nullptr);
  EXPECT_TRUE(calls.empty());
}

TEST_F(Controllers, AViewThatIsNoKAViewIsJustHeld) {
  ToldController controller(calls);
  controller.setView(std::make_shared<platform::View>(foundation::Rect{{0, 0}, {3, 4}}));
  EXPECT_TRUE(controller.isViewLoaded());
  EXPECT_EQ(controller.recommendedViewSize(), (Size{3, 4}));
  controller.setView(nullptr);
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
}

TEST_F(Controllers, AControllerThatGoesTakesItsViewAwayFirst) {
  resources.nibs["ToldController"] = [this] { return view; };
  auto controller = KAViewController::viewController<ToldController>();
  controller->calls = &calls;
  controller->loadView();
  calls.clear();
  controller.reset();
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
  EXPECT_EQ(view->viewController(), nullptr);
  EXPECT_EQ(view->nextResponder(), nullptr);
}

class ThrowingController : public KAViewController {
 public:
  static constexpr std::string_view className = "ThrowingController";
  using KAViewController::KAViewController;
  void ktViewDidUnload() override { throw 1; }
};

TEST_F(Controllers, AnExceptionThatEscapesTheTearDownEndsTheProcess) {
  EXPECT_DEATH(
      {
        const auto controller = KAViewController::viewController<ThrowingController>();
        controller->setView(view);
      },
      "");
}

TEST_F(Controllers, TheRecommendedSizeIsThatOfTheFrame) {
  KAViewController controller;
  EXPECT_EQ(controller.recommendedViewSize(), (Size{0, 0}));
  view->setFrame({{1, 2}, {30, 40}});
  controller.setView(view);
  EXPECT_EQ(controller.recommendedViewSize(), (Size{30, 40}));
}

TEST_F(Controllers, TheViewToBeFirstResponderIsOnlyKept) {
  KAViewController controller;
  controller.setViewToBeFirstResponder(view.get());
  EXPECT_EQ(controller.viewToBeFirstResponder(), view.get());
  view.reset();
  EXPECT_EQ(controller.viewToBeFirstResponder(), nullptr);
}

struct Chain : Controllers {
  KAViewController first;
  KAViewController second;
  Responder after;
};

TEST_F(Chain, AControllerStandsBetweenItsViewAndTheFormerNextResponder) {
  view->setNextResponder(&after);
  view->setViewController(&first);
  EXPECT_EQ(view->nextResponder(), &first);
  EXPECT_EQ(first.nextResponder(), &after);
}

TEST_F(Chain, WhoeverIsPutAboveTheViewEndsUpBehindTheController) {
  view->setViewController(&first);
  view->setNextResponder(&after);
  EXPECT_EQ(view->nextResponder(), &first);
  EXPECT_EQ(first.nextResponder(), &after);
  platform::View superview;
  superview.addSubview(view);
  EXPECT_EQ(first.nextResponder(), &superview);
}

TEST_F(Chain, AnotherControllerComesBeforeTheOldOneWhichEndsTheChain) {
  view->setNextResponder(&after);
  view->setViewController(&first);
  view->setViewController(&second);
  EXPECT_EQ(view->nextResponder(), &second);
  EXPECT_EQ(second.nextResponder(), &first);
  EXPECT_EQ(first.nextResponder(), nullptr);
  EXPECT_EQ(view->viewController(), &second);
}

TEST_F(Chain, WithoutAControllerTheOldOneStaysNext) {
  view->setNextResponder(&after);
  view->setViewController(&first);
  view->setViewController(nullptr);
  EXPECT_EQ(view->nextResponder(), &first);
  EXPECT_EQ(first.nextResponder(), nullptr);
  EXPECT_EQ(view->viewController(), nullptr);
}

TEST_F(Chain, TheControllerIsHeldWeakly) {
  {
    KAViewController shortLived;
    view->setViewController(&shortLived);
  }
  EXPECT_EQ(view->viewController(), nullptr);
  EXPECT_EQ(view->nextResponder(), nullptr);
}

struct KeyViewLoop : Controllers {
  KeyViewLoop() {
    window.onRecalculateKeyViewLoop = [this] { ++recalculations; };
    window.setContentView(view);
    controller.setView(view);
  }
  platform::ViewWindow window;
  KAViewController controller;
  int recalculations = 0;
};

TEST_F(KeyViewLoop, ManyRequestsAreOneRecalculationOnTheNextTurn) {
  for (int i = 0; i < 10; ++i) controller.setNeedsRecalculateKeyViewLoop();
  EXPECT_EQ(recalculations, 0);
  EXPECT_EQ(fakes.runLoop.pendingDelays(&window), std::vector{foundation::Seconds(0)});
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 1);
}

TEST_F(KeyViewLoop, WithoutViewOrWindowNothingIsScheduled) {
  view->removeFromSuperview();
  fakes.runLoop.runPending();
  recalculations = 0;
  controller.setNeedsRecalculateKeyViewLoop();
  controller.setView(nullptr);
  controller.setNeedsRecalculateKeyViewLoop();
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(KeyViewLoop, AppearingAndDisappearingAskForIt) {
  view->setHidden(false);
  view->removeFromSuperview();
  window.setContentView(view);  // appears
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 1);
  view->setHidden(true);  // disappears
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 2);
}

TEST_F(KeyViewLoop, AppearingAsksForLayout) {
  view->removeFromSuperview();
  view->layoutIfNeeded();
  ASSERT_FALSE(view->needsLayout());
  controller.ktViewWillAppear();
  EXPECT_TRUE(view->needsLayout());
}

}  // namespace
