#pragma once
// The contract of Application, Window, TextField, Button and ProgressIndicator.
//
// A World has: `application()`; `window()`, with `titleOfWindow()`, `isShown()` and `screen()`, the size of the screen;
// `textField()` and `text()`; `button()` and `titleOfButton()`; `progressIndicator()` and `isAnimating()`; `trace()`, to
// which the world's delegate adds "delegate ", and an observer of the will-terminate notification adds "notification ";
// `whileAlertIsUp(action)`, which runs the action during the next alert and then dismisses it; `runLoop()`, `settle()`,
// which lets all that is due run.
#include <gtest/gtest.h>

#include <string>

#include "foundation/dispatch/RunLoop.h"
#include "platform/UserInterface.h"

namespace tests::contracts {

template <class World>
class UserInterfaceContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(UserInterfaceContract);

TYPED_TEST_P(UserInterfaceContract, AWindowStandsWhereItWasPut) {
  const foundation::Rect frame{{300, 303}, {400, 206}};
  this->world.window().setFrame(frame, false);
  EXPECT_EQ(this->world.window().frame(), frame);
}

TYPED_TEST_P(UserInterfaceContract, AnOriginChangesNoSize) {
  this->world.window().setFrame({{0, 0}, {400, 206}}, false);
  this->world.window().setFrameOrigin({17, 23});
  EXPECT_EQ(this->world.window().frame(), (foundation::Rect{{17, 23}, {400, 206}}));
}

TYPED_TEST_P(UserInterfaceContract, ACentredWindowKeepsItsSizeAndIsInTheMiddleOfTheScreen) {
  this->world.window().setFrame({{0, 0}, {400, 206}}, false);
  this->world.window().center();
  const foundation::Rect frame = this->world.window().frame();
  EXPECT_EQ(frame.size, (foundation::Size{400, 206}));
  EXPECT_NEAR(frame.origin.x, (this->world.screen().width - 400) / 2, 1);
  EXPECT_NEAR(frame.origin.y, (this->world.screen().height - 206) / 2, 1);
}

TYPED_TEST_P(UserInterfaceContract, AWindowIsShownWhenItIsOrderedToTheFrontAndNotBefore) {
  this->world.window().setFrame({{300, 303}, {400, 206}}, true);
  this->world.window().setTitle("Kéltö & <b>");
  EXPECT_FALSE(this->world.isShown());
  this->world.window().makeKeyAndOrderFront();
  EXPECT_TRUE(this->world.isShown());
  EXPECT_EQ(this->world.titleOfWindow(), "Kéltö & <b>");
  EXPECT_EQ(this->world.window().frame(), (foundation::Rect{{300, 303}, {400, 206}}));
}

TYPED_TEST_P(UserInterfaceContract, TextsAreShownAsTheyStand) {
  this->world.textField().setStringValue("50 %@ & <b>more</b>");
  EXPECT_EQ(this->world.text(), "50 %@ & <b>more</b>");
  this->world.textField().setStringValue("");
  EXPECT_EQ(this->world.text(), "");
  this->world.button().setTitle("R&D <OK>");
  EXPECT_EQ(this->world.titleOfButton(), "R&D <OK>");
}

TYPED_TEST_P(UserInterfaceContract, AProgressIndicatorMovesOnceItIsStarted) {
  this->world.progressIndicator().setUsesThreadedAnimation(true);
  EXPECT_FALSE(this->world.isAnimating());
  this->world.progressIndicator().startAnimation();
  EXPECT_TRUE(this->world.isAnimating());
}

TYPED_TEST_P(UserInterfaceContract, TerminationTellsTheDelegateAndThenTheObserversOnce) {
  this->world.application().terminate(nullptr);
  this->world.application().terminate(this);
  EXPECT_EQ(this->world.trace(), "delegate notification ");
}

TYPED_TEST_P(UserInterfaceContract, WhileAnAlertIsUpNothingOfTheRunLoopRuns) {
  bool wasUp = false;
  bool hasRun = false;
  this->world.runLoop().performAfterDelay(foundation::Seconds(0), this, [&] { hasRun = true; });
  this->world.whileAlertIsUp([&] {
    wasUp = true;
    this->world.settle();
    EXPECT_FALSE(hasRun);
  });
  this->world.application().runModal({"Headline", "Text", "OK"});
  EXPECT_TRUE(wasUp);
  this->world.settle();
  EXPECT_TRUE(hasRun);
}

TYPED_TEST_P(UserInterfaceContract, AfterTerminationNothingRunsAndNoAlertIsShown) {
  bool wasUp = false;
  bool hasRun = false;
  this->world.runLoop().performAfterDelay(foundation::Seconds(0), this, [&] { hasRun = true; });
  this->world.application().terminate(nullptr);
  this->world.whileAlertIsUp([&] { wasUp = true; });
  this->world.application().runModal({"Headline", "Text", "OK"});
  this->world.settle();
  EXPECT_FALSE(wasUp);
  EXPECT_FALSE(hasRun);
}

REGISTER_TYPED_TEST_SUITE_P(UserInterfaceContract, AWindowStandsWhereItWasPut, AnOriginChangesNoSize,
                            ACentredWindowKeepsItsSizeAndIsInTheMiddleOfTheScreen,
                            AWindowIsShownWhenItIsOrderedToTheFrontAndNotBefore, TextsAreShownAsTheyStand,
                            AProgressIndicatorMovesOnceItIsStarted, TerminationTellsTheDelegateAndThenTheObserversOnce,
                            WhileAnAlertIsUpNothingOfTheRunLoopRuns, AfterTerminationNothingRunsAndNoAlertIsShown);

}  // namespace tests::contracts
