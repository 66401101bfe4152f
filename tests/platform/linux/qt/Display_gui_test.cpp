#include "platform/linux/qt/Display.h"

#include <gtest/gtest.h>

#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

using platform::Linux::Display::choose;
using tests::ScopedEnvironment;

namespace {

// A Wayland session without an X server; Qt's client library finds the compositor by the descriptor.
struct DisplayTest : testing::Test {
  ScopedEnvironment display{"DISPLAY", ""};
  ScopedEnvironment asked{"QT_QPA_PLATFORM", ""};
  ScopedEnvironment socket{"WAYLAND_SOCKET", "7"};
  tests::TemporaryFolder plugins;
};

TEST_F(DisplayTest, WithoutQtsPluginForWaylandThePackageIsNamed) {
  EXPECT_NE(choose("Program", false, plugins.path()).problem.find("Install the package qt6-wayland."), std::string::npos);
  const ScopedEnvironment wayland("QT_QPA_PLATFORM", "wayland");
  EXPECT_NE(choose("Program", false, plugins.path()).problem.find("Install the package qt6-wayland."), std::string::npos);
}

TEST_F(DisplayTest, TheAdviceNamesTheProgram) {
  const ScopedEnvironment noSocket("WAYLAND_SOCKET", "");
  const ScopedEnvironment noName("WAYLAND_DISPLAY", "");
  EXPECT_NE(choose("AcmeInstaller", false).problem.find("(for example: xvfb-run AcmeInstaller ...)."), std::string::npos);
}

// People set it for all programs, and Qt tries one after the other.
TEST_F(DisplayTest, AListOfPlatformsIsLeftToQt) {
  const ScopedEnvironment list("QT_QPA_PLATFORM", "wayland;xcb");
  EXPECT_EQ(choose("Program", false, plugins.path()).problem, "");
}

TEST_F(DisplayTest, WithoutANameTheCompositorHasTheUsualOne) {
  const ScopedEnvironment wayland("QT_QPA_PLATFORM", "wayland");
  const ScopedEnvironment noSocket("WAYLAND_SOCKET", "");
  const ScopedEnvironment noName("WAYLAND_DISPLAY", "");
  const ScopedEnvironment folder("XDG_RUNTIME_DIR", "/nowhere");
  EXPECT_NE(choose("Program", false, plugins.path()).problem.find("nothing listens at /nowhere/wayland-0"),
            std::string::npos);
}

TEST_F(DisplayTest, WithThePluginWaylandIsChosen) {
  std::filesystem::create_directory(plugins.path("platforms"));
  tests::writeFile(plugins.path("platforms/libqwayland-generic.so"), "");
  const auto choice = choose("Program", false, plugins.path());
  EXPECT_EQ(choice.problem, "");
  EXPECT_EQ(choice.qtPlatform, "wayland");
}

// The X server of the tests can be reached too.
TEST(DisplayOfADialog, IsTheCompositorsThatHasTheParent) {
  const ScopedEnvironment asked("QT_QPA_PLATFORM", "");
  const ScopedEnvironment socket("WAYLAND_SOCKET", "7");
  const tests::TemporaryFolder plugins;
  EXPECT_EQ(choose("Program", true, plugins.path()).qtPlatform, "xcb") << "without the plug-in";
  std::filesystem::create_directory(plugins.path("platforms"));
  tests::writeFile(plugins.path("platforms/libqwayland-generic.so"), "");
  EXPECT_EQ(choose("Program", true, plugins.path()).qtPlatform, "wayland");
  EXPECT_EQ(choose("Program", false, plugins.path()).qtPlatform, "xcb");
  const ScopedEnvironment decided("QT_QPA_PLATFORM", "xcb");
  EXPECT_EQ(choose("Program", true, plugins.path()).qtPlatform, "xcb");
}

}  // namespace
