#include <gtest/gtest.h>

#include "foundation/views/View.h"
#include "foundation/views/ViewEnvironment.h"
#include "foundation/views/ViewWindow.h"
#include "platform/fake/FakePlatform.h"

using foundation::Point;
using foundation::Rect;
using foundation::Seconds;
using foundation::View;

namespace {

struct ViewAnimatorTest : testing::Test {
  platform::fake::FakePlatform fakes;
  std::shared_ptr<View> content = std::make_shared<View>();
};

// The frames come every 60th of a second, so the last one may be that much late.
TEST_F(ViewAnimatorTest, AFrameArrivesAfterAQuarterOfASecond) {
  content->setFrame({{0, 0}, {100, 100}});
  content->animator().setFrame({{100, 200}, {300, 400}});
  EXPECT_EQ(content->frame(), (Rect{{0, 0}, {100, 100}}));
  fakes.runLoop.advance(Seconds(0.125));
  EXPECT_GT(content->frame().origin.x, 20);
  EXPECT_LT(content->frame().origin.x, 80);
  fakes.runLoop.advance(Seconds(0.115));
  EXPECT_NE(content->frame(), (Rect{{100, 200}, {300, 400}}));
  fakes.runLoop.advance(Seconds(0.01 + 1.0 / 60));
  EXPECT_EQ(content->frame(), (Rect{{100, 200}, {300, 400}}));
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

TEST_F(ViewAnimatorTest, InAWindowTheRunLoopOfTheWindowDrivesIt) {
  platform::fake::FakeRunLoop own{fakes.clock};
  foundation::ViewWindow window{own};
  window.setContentView(content);
  content->animator().setFrameOrigin({100, 200});
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
  own.advance(Seconds(1));
  EXPECT_EQ(content->frame().origin, (Point{100, 200}));
}

TEST_F(ViewAnimatorTest, AnOriginAndASizeBothArrive) {
  content->animator().setFrameOrigin({100, 200});
  content->animator().setFrameSize({30, 40});
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(content->frame(), (Rect{{100, 200}, {30, 40}}));
}

TEST_F(ViewAnimatorTest, AFrameThatIsSetMeanwhileStaysAndEndsIt) {
  content->animator().setFrameOrigin({100, 200});
  fakes.runLoop.advance(Seconds(0.1));
  content->setFrameOrigin({7, 7});
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(content->frame().origin, (Point{7, 7}));
}

TEST_F(ViewAnimatorTest, EndsWithADestroyedView) {
  content->animator().setFrameSize({100, 200});
  fakes.runLoop.advance(Seconds(0.1));
  content.reset();
  fakes.runLoop.advance(Seconds(1));
  EXPECT_EQ(fakes.runLoop.pendingCount(), 0U);
}

}  // namespace
