// The controller's place in the responder chain of its view.
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "ui/KAViewController.h"

using foundation::Responder;

namespace {

struct KAViewResponderChainTest : testing::Test {
  platform::fake::FakePlatform fakes;
  Responder after;
  std::shared_ptr<KAViewController> first = KAViewController::viewController<KAViewController>();
  std::shared_ptr<KAViewController> second = KAViewController::viewController<KAViewController>();
  std::shared_ptr<KAView> view = std::make_shared<KAView>();
};

TEST_F(KAViewResponderChainTest, TheControllerStandsBetweenItsViewAndTheFormerNextResponder) {
  view->setNextResponder(&after);
  view->setViewController(first.get());
  EXPECT_EQ(view->nextResponder(), first.get());
  EXPECT_EQ(first->nextResponder(), &after);
}

TEST_F(KAViewResponderChainTest, ANewNextResponderOfTheViewStandsBehindTheController) {
  view->setViewController(first.get());
  view->setNextResponder(&after);
  EXPECT_EQ(view->nextResponder(), first.get());
  EXPECT_EQ(first->nextResponder(), &after);
  foundation::View superview;
  superview.addSubview(view);
  EXPECT_EQ(first->nextResponder(), &superview);
}

TEST_F(KAViewResponderChainTest, AnotherControllerComesBeforeTheOldOneWhichEndsTheChain) {
  view->setNextResponder(&after);
  view->setViewController(first.get());
  view->setViewController(second.get());
  EXPECT_EQ(view->nextResponder(), second.get());
  EXPECT_EQ(second->nextResponder(), first.get());
  EXPECT_EQ(first->nextResponder(), nullptr);
  EXPECT_EQ(view->viewController(), second.get());
}

// The controller is its view's next responder already, so it is not put in front of itself.
TEST_F(KAViewResponderChainTest, TheSameControllerSetTwiceEndsTheChain) {
  view->setNextResponder(&after);
  view->setViewController(first.get());
  view->setViewController(first.get());
  EXPECT_EQ(view->nextResponder(), first.get());
  EXPECT_EQ(first->nextResponder(), nullptr);
}

TEST_F(KAViewResponderChainTest, AfterTheControllerIsTakenAwayItStaysNext) {
  view->setNextResponder(&after);
  view->setViewController(first.get());
  view->setViewController(nullptr);
  EXPECT_EQ(view->nextResponder(), first.get());
  EXPECT_EQ(first->nextResponder(), nullptr);
  EXPECT_EQ(view->viewController(), nullptr);
}

TEST_F(KAViewResponderChainTest, TheViewHoldsItsControllerWeakly) {
  view->setViewController(first.get());
  first.reset();
  EXPECT_EQ(view->viewController(), nullptr);
  EXPECT_EQ(view->nextResponder(), nullptr);
}

}  // namespace
