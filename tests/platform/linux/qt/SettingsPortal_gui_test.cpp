#include "platform/linux/qt/SettingsPortal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "tests/support/Environment.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPortal.h"

using platform::Linux::DesktopSettings;
using platform::Linux::SettingsPortal;
using tests::eventually;
using tests::TestPortal;

namespace platform::Linux {

void PrintTo(const DesktopSettings& settings, std::ostream* out) {
  *out << (settings.highContrast ? "high contrast, " : "") << (settings.animates ? "" : "no animation, ") << "letters "
       << settings.letterScale << " of \"" << settings.letterFamily << '"';
}

}  // namespace platform::Linux

namespace {

const std::string appearance = "org.freedesktop.appearance";
const std::string interfaceSettings = "org.gnome.desktop.interface";
const std::string accessibility = "org.gnome.desktop.a11y.interface";

// Processes when there is something to read, as the run loop does.
void turn(SettingsPortal& portal) {
  pollfd readable{portal.fileDescriptor(), POLLIN, 0};
  if (readable.fd >= 0 && ::poll(&readable, 1, 0) > 0) portal.process();
}

struct Said {
  TestPortal::Settings settings;
  DesktopSettings expected;
};

void PrintTo(const Said& said, std::ostream* out) {
  for (const auto& [name, values] : said.settings)
    for (const auto& [key, value] : values) *out << name << " " << key << " ";
}

class SettingsPortalAnswer : public testing::TestWithParam<Said> {};

TEST_P(SettingsPortalAnswer, IsTaken) {
  const tests::PrivateBus bus;
  TestPortal desktop(GetParam().settings);
  SettingsPortal portal;
  EXPECT_TRUE(eventually([&] {
    desktop.serve();
    turn(portal);
    return desktop.questions() == 1 && portal.settings() == GetParam().expected;
  })) << testing::PrintToString(portal.settings());
}

INSTANTIATE_TEST_SUITE_P(
    Settings, SettingsPortalAnswer,
    testing::Values(
        Said{{}, {}}, Said{{{appearance, {{"contrast", 1U}}}}, {.highContrast = true}},
        Said{{{appearance, {{"contrast", 0U}}}}, {}},
        Said{{{accessibility, {{"high-contrast", true}}}}, {.highContrast = true}},
        Said{{{appearance, {{"contrast", 0U}}}, {accessibility, {{"high-contrast", true}}}}, {.highContrast = true}},
        Said{{{appearance, {{"reduced-motion", 1U}}}}, {.animates = false}},
        Said{{{interfaceSettings, {{"enable-animations", false}}}}, {.animates = false}},
        Said{{{interfaceSettings, {{"text-scaling-factor", 1.5}}}}, {.letterScale = 1.5}},
        Said{{{interfaceSettings, {{"text-scaling-factor", 0.5}}}}, {.letterScale = 1}},
        Said{{{interfaceSettings, {{"text-scaling-factor", 1e300}}}}, {.letterScale = 3}},
        Said{{{interfaceSettings, {{"font-name", std::string("Noto Sans 10")}}}}, {.letterFamily = "Noto Sans"}},
        Said{{{interfaceSettings, {{"font-name", std::string("Noto Sans Bold 22")}}}},
             {.letterScale = 2, .letterFamily = "Noto Sans Bold"}},
        Said{{{interfaceSettings, {{"font-name", std::string("Cantarell")}}}}, {.letterFamily = "Cantarell"}},
        Said{{{appearance, {{"contrast", std::string("1")}, {"reduced-motion", true}}},
              {interfaceSettings, {{"text-scaling-factor", std::string("2")}, {"enable-animations", 0.0}}},
              {accessibility, {{"high-contrast", 1U}}}},
             {}}));

TEST(SettingsPortal, ChangesAreFollowed) {
  const tests::PrivateBus bus;
  TestPortal desktop;
  SettingsPortal portal;
  int changes = 0;
  portal.onChange = [&] { ++changes; };
  const auto becomes = [&](const DesktopSettings& expected) {
    return eventually([&] {
      desktop.serve();
      turn(portal);
      return portal.settings() == expected;
    });
  };
  ASSERT_TRUE(eventually([&] {
    desktop.serve();
    turn(portal);
    return desktop.questions() == 1;
  }));
  desktop.change(appearance, "contrast", 1U);
  EXPECT_TRUE(becomes({.highContrast = true}));
  desktop.change(interfaceSettings, "text-scaling-factor", 1.25);
  EXPECT_TRUE(becomes({.highContrast = true, .letterScale = 1.25}));
  desktop.change(interfaceSettings, "cursor-size", 48U);
  desktop.change(appearance, "contrast", 0U);
  EXPECT_TRUE(becomes({.letterScale = 1.25}));
  EXPECT_EQ(changes, 3);
}

TEST(SettingsPortal, ThatHangsHoldsNothingUpAndCountsWhenItAnswersAtLast) {
  const tests::PrivateBus bus;
  TestPortal desktop({{appearance, {{"contrast", 1U}}}});
  const auto begin = std::chrono::steady_clock::now();
  SettingsPortal portal;
  portal.process();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_EQ(portal.settings(), DesktopSettings());
  EXPECT_TRUE(eventually([&] {
    desktop.serve();
    turn(portal);
    return portal.settings().highContrast;
  }));
}

TEST(SettingsPortal, WithoutAPortalTheEnvironmentCounts) {
  const tests::PrivateBus bus;
  const tests::EnvironmentVariable contrast("KELTO_HIGH_CONTRAST", "1");
  const tests::EnvironmentVariable motion("KELTO_REDUCED_MOTION", "1");
  const tests::EnvironmentVariable letters("GDK_DPI_SCALE", "1.5");
  SettingsPortal portal;
  turn(portal);
  EXPECT_EQ(portal.settings(), (DesktopSettings{.highContrast = true, .animates = false, .letterScale = 1.5}));
}

TEST(SettingsPortal, OverridesTheEnvironmentInWhatItSays) {
  const tests::PrivateBus bus;
  const tests::EnvironmentVariable contrast("GTK_THEME", "HighContrastInverse");
  const tests::EnvironmentVariable motion("KELTO_REDUCED_MOTION", "1");
  TestPortal desktop({{appearance, {{"contrast", 0U}}}});
  SettingsPortal portal;
  EXPECT_TRUE(portal.settings().highContrast);
  EXPECT_TRUE(eventually([&] {
    desktop.serve();
    turn(portal);
    return portal.settings() == DesktopSettings{.animates = false};
  }));
}

TEST(SettingsPortal, WithoutABusItHasNothingToReadAndTheEnvironmentCounts) {
  const tests::EnvironmentVariable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
  const tests::EnvironmentVariable contrast("KELTO_HIGH_CONTRAST", "1");
  SettingsPortal portal;
  portal.process();
  EXPECT_EQ(portal.fileDescriptor(), -1);
  EXPECT_EQ(portal.settings(), DesktopSettings{.highContrast = true});
}

TEST(SettingsPortal, IsLeftWhenTheBusGoes) {
  tests::PrivateBus bus;
  SettingsPortal portal;
  bus.stop();
  EXPECT_TRUE(eventually([&] {
    turn(portal);
    return portal.fileDescriptor() == -1;
  }));
}

// It takes connections and says nothing.
TEST(SettingsPortal, ABusThatHangsHoldsNothingUp) {
  const tests::TemporaryFolder folder;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, folder.path("bus").c_str());
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(listener, 8), 0);
  const tests::EnvironmentVariable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.path("bus"));
  const auto begin = std::chrono::steady_clock::now();
  {
    SettingsPortal portal;
    portal.process();
    EXPECT_EQ(portal.settings(), DesktopSettings());
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  ::close(listener);
}

TEST(DesktopSettings, TextsOfTheEnvironmentThatAreNotNumbersAreIgnored) {
  for (const char* text : {"", "large", "nan", "-2", "0"}) {
    const tests::EnvironmentVariable letters("GDK_DPI_SCALE", text);
    EXPECT_EQ(platform::Linux::settingsOfEnvironment().letterScale, 1) << text;
  }
}

}  // namespace
