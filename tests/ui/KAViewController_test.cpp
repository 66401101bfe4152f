#include "ui/KAViewController.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"
#include "tests/ui/ToldController.h"

using namespace tests;
using foundation::Size;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class OtherController : public KAViewController {
 public:
  static constexpr ClassName<OtherController> className{"OtherController"};
  using KAViewController::KAViewController;
};

class ThrowingController : public KAViewController {
 public:
  static constexpr ClassName<ThrowingController> className{"ThrowingController"};
  using KAViewController::KAViewController;
  void ktViewDidUnload() override { throw 1; }
};

class NamelessController : public OtherController {
 public:
  using OtherController::OtherController;
};

// A subclass made by any means but the factory would be torn down as the base class, without its own ktViewDidUnload.
static_assert(!std::is_default_constructible_v<ToldController>);
static_assert(!std::is_constructible_v<ToldController, std::string>);
static_assert(!std::is_constructible_v<KAViewController::Making, foundation::ViewEnvironment&, std::string>);

template <class Controller>
constexpr bool canBeMade = requires {
  KAViewController::viewController<Controller>();
};
static_assert(canBeMade<OtherController>);
static_assert(!canBeMade<NamelessController>, "it would load the nib of OtherController");

struct KAViewControllerTest : testing::Test {
  KAViewControllerTest() { fakes.platform.views.resources = &resources; }

  platform::fake::FakePlatform fakes;
  platform::fake::FakeViewResources resources;
  Calls calls;
  std::shared_ptr<KAView> view = std::make_shared<KAView>();
  std::shared_ptr<ToldController> controller = toldController(calls);
};

TEST_F(KAViewControllerTest, TheNibHasTheNameOfTheClass) {
  EXPECT_EQ(KAViewController::nibName<OtherController>(), "OtherController");
  resources.nibs["OtherController"] = [this](foundation::ViewController&) { return view; };
  const auto other = KAViewController::viewController<OtherController>();
  EXPECT_FALSE(other->isViewLoaded());
  EXPECT_EQ(other->view(), view.get());
  EXPECT_TRUE(other->isViewLoaded());
  EXPECT_EQ(view->viewController(), other.get());
}

TEST_F(KAViewControllerTest, LoadingTheViewCallsViewDidLoad) {
  resources.nibs["ToldController"] = [this](foundation::ViewController&) { return view; };
  controller->loadView();
  EXPECT_THAT(calls, ElementsAre("DidLoad"));
}

TEST_F(KAViewControllerTest, TheViewIsLoadedOnlyOnce) {
  resources.nibs["ToldController"] = [](foundation::ViewController&) { return std::make_shared<KAView>(); };
  const foundation::View* loaded = controller->view();
  EXPECT_EQ(controller->view(), loaded);
  EXPECT_THAT(calls, ElementsAre("DidLoad"));
}

TEST_F(KAViewControllerTest, AViewThatWasSetIsNotReplacedByTheNib) {
  resources.nibs["ToldController"] = [](foundation::ViewController&) { return std::make_shared<KAView>(); };
  controller->setView(view);
  EXPECT_EQ(controller->view(), view.get());
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(KAViewControllerTest, AMissingNibIsLoggedAndLeavesTheControllerWithoutAView) {
  EXPECT_EQ(controller->view(), nullptr);
  EXPECT_FALSE(controller->isViewLoaded());
  EXPECT_THAT(calls, IsEmpty());
  EXPECT_THAT(fakes.systemLog.lines, ElementsAre("cannot load the view \"ToldController\": there is no nib of that name"));
}

TEST_F(KAViewControllerTest, APlatformWithoutViewResourcesIsLoggedToo) {
  fakes.platform.views.resources = nullptr;
  EXPECT_EQ(controller->view(), nullptr);
  EXPECT_THAT(fakes.systemLog.lines,
              ElementsAre("cannot load the view \"ToldController\": this platform has no view resources"));
}

TEST_F(KAViewControllerTest, SettingNoViewCallsViewDidUnloadAndUnlinksTheView) {
  controller->setView(view);
  controller->setView(nullptr);
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
  EXPECT_FALSE(controller->isViewLoaded());
  EXPECT_EQ(view->viewController(), nullptr);
}

TEST_F(KAViewControllerTest, SettingNoViewWithoutAViewCallsNothing) {
  controller->setView(nullptr);
  EXPECT_THAT(calls, IsEmpty());
}

// Only setting nullptr unlinks. The replaced view keeps its link, by design.
TEST_F(KAViewControllerTest, AReplacedViewKeepsItsController) {
  const auto other = std::make_shared<KAView>();
  controller->setView(view);
  controller->setView(other);
  EXPECT_EQ(other->viewController(), controller.get());
  EXPECT_EQ(view->viewController(), controller.get());
  EXPECT_THAT(calls, IsEmpty());
}

TEST_F(KAViewControllerTest, APlainViewIsHeldWithoutALink) {
  controller->setView(std::make_shared<foundation::View>(foundation::Rect{{0, 0}, {3, 4}}));
  EXPECT_TRUE(controller->isViewLoaded());
  EXPECT_EQ(controller->recommendedViewSize(), (Size{3, 4}));
  controller->setView(nullptr);
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
}

TEST_F(KAViewControllerTest, ReleasingTheControllerCallsItsOwnViewDidUnloadAndUnlinksTheView) {
  controller->setView(view);
  controller.reset();
  EXPECT_THAT(calls, ElementsAre("DidUnload"));
  EXPECT_EQ(view->viewController(), nullptr);
  EXPECT_EQ(view->nextResponder(), nullptr);
}

TEST_F(KAViewControllerTest, AnExceptionThatEscapesFromTheTearDownEndsTheProcess) {
  EXPECT_DEATH(
      {
        const auto throwing = KAViewController::viewController<ThrowingController>();
        throwing->setView(view);
      },
      "");
}

TEST_F(KAViewControllerTest, TheRecommendedSizeIsThatOfTheFrameNotOfTheBounds) {
  EXPECT_EQ(controller->recommendedViewSize(), (Size{0, 0}));
  view->setFrame({{1, 2}, {30, 40}});
  view->setBounds({{0, 0}, {300, 400}});
  controller->setView(view);
  EXPECT_EQ(controller->recommendedViewSize(), (Size{30, 40}));
}

TEST_F(KAViewControllerTest, TheViewToBeFirstResponderIsStoredButNotOwned) {
  controller->setViewToBeFirstResponder(view.get());
  EXPECT_EQ(controller->viewToBeFirstResponder(), view.get());
  view.reset();
  EXPECT_EQ(controller->viewToBeFirstResponder(), nullptr);
}

TEST_F(KAViewControllerTest, AppearingAsksTheViewForLayout) {
  controller->setView(view);
  view->layoutIfNeeded();
  ASSERT_FALSE(view->needsLayout());
  controller->ktViewWillAppear();
  EXPECT_TRUE(view->needsLayout());
}

struct KAViewControllerKeyViewLoopTest : KAViewControllerTest {
  KAViewControllerKeyViewLoopTest() {
    window.onRecalculateKeyViewLoop = [this] { ++recalculations; };
    window.setContentView(view);
    controller->setView(view);
  }
  foundation::ViewWindow window{fakes.runLoop};
  int recalculations = 0;
};

TEST_F(KAViewControllerKeyViewLoopTest, ManyRequestsCauseOneRecalculationOnTheNextTurn) {
  for (int i = 0; i < 10; ++i) controller->setNeedsRecalculateKeyViewLoop();
  EXPECT_EQ(recalculations, 0);
  EXPECT_EQ(fakes.runLoop.pendingCount(), 1U);
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 1);
}

TEST_F(KAViewControllerKeyViewLoopTest, ARequestLeavesOtherDelayedCallsOfTheWindowAlone) {
  int others = 0;
  fakes.runLoop.performAfterDelay(foundation::Seconds(1), &window, [&others] { ++others; });
  controller->setNeedsRecalculateKeyViewLoop();
  fakes.runLoop.advance(foundation::Seconds(1));
  EXPECT_EQ(others, 1);
  EXPECT_EQ(recalculations, 1);
}

TEST_F(KAViewControllerKeyViewLoopTest, ARequestForAWindowThatGoesIsDropped) {
  int recalculationsOfOther = 0;
  {
    foundation::ViewWindow other{fakes.runLoop};
    other.onRecalculateKeyViewLoop = [&recalculationsOfOther] { ++recalculationsOfOther; };
    other.setNeedsRecalculateKeyViewLoop();
  }
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculationsOfOther, 0);
}

TEST_F(KAViewControllerKeyViewLoopTest, WithoutAViewOrAWindowNothingIsScheduled) {
  view->removeFromSuperview();
  fakes.runLoop.runPending();
  controller->setNeedsRecalculateKeyViewLoop();
  controller->setView(nullptr);
  controller->setNeedsRecalculateKeyViewLoop();
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(KAViewControllerKeyViewLoopTest, AppearingAndDisappearingRequestIt) {
  view->removeFromSuperview();
  window.setContentView(view);
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 1);
  view->setHidden(true);
  fakes.runLoop.runPending();
  EXPECT_EQ(recalculations, 2);
}

}  // namespace
