#include "foundation/views/ImageNamed.h"

#include <gtest/gtest.h>

#include "platform/fake/FakeGraphics.h"
#include "platform/fake/FakePlatform.h"

namespace {

TEST(ImageNamedTest, FindsTheImageInTheResourcesOfTheInstalledEnvironment) {
  platform::fake::FakePlatform fakes;
  platform::fake::FakeViewResources resources;
  resources.addImage("s_bloom", {200, 100});
  fakes.platform.views.resources = &resources;
  EXPECT_EQ(foundation::imageNamed("s_bloom"), resources.images["s_bloom"]);
  EXPECT_EQ(foundation::imageNamed("s_gloom"), nullptr);
}

TEST(ImageNamedTest, ReturnsNothingWhereNoViewsAreShown) {
  const platform::fake::FakePlatform fakes;
  EXPECT_EQ(foundation::imageNamed("s_bloom"), nullptr);
}

TEST(ViewEnvironmentTest, AskingForOneThatIsNotInstalledEndsTheProcessWithAMessage) {
  EXPECT_DEATH(foundation::imageNamed("s_bloom"), "no view environment is installed");
}

}  // namespace
