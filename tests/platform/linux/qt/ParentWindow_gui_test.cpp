#include "platform/linux/qt/ParentWindow.h"

#include <gmock/gmock.h>
#include <xcb/xcb.h>

#include "platform/fake/FakeSession.h"
#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/linux/qt/QtTest.h"
#include "tests/support/Environment.h"

using namespace platform::Linux;
using namespace tests;

namespace {

// The window that this one is transient for, as the display server tells; 0 without one.
unsigned long parentSeenFromOutside(const QWidget& widget) {
  const auto text = outputOf("xprop -id " + std::to_string(widget.winId()) + " WM_TRANSIENT_FOR");
  const auto place = text.find("# ");
  return place == std::string::npos ? 0 : std::stoul(text.substr(place + 2), nullptr, 16);
}

std::string hexadecimal(unsigned long number) { return QString::number(number, 16).toStdString(); }

class ParentWindowOnX11 : public testing::Test {
 protected:
  ParentWindowOnX11() {
    _application.resize(800, 520);
    _application.show();
    _wizard.resize(460, 320);
  }

  // Shows the wizard as the installer does.
  void showWizard(const std::string& name) {
    const EnvironmentVariable given(protocol::parentWindowVariable, name);
    _parent.emplace(takeParentWindow(_log), _log);
    EXPECT_EQ(std::getenv(protocol::parentWindowVariable), nullptr) << "programs that are started later inherit it";
    _wizard.onShow = [this](QWindow& window) { _parent->adopt(window); };
    _window.makeKeyAndOrderFront();
    ASSERT_TRUE(spinUntil([this] { return isActiveForAll(_wizard); }));
  }

  void expectIgnored(const std::string& reason) {
    EXPECT_TRUE(spinUntil([this] { return !_log.lines.empty(); }));
    EXPECT_THAT(_log.lines, testing::ElementsAre(testing::HasSubstr(reason)));
    EXPECT_EQ(parentSeenFromOutside(_wizard), 0U);
  }

  QWidget _application;
  WindowWidget _wizard;
  QtWindow _window{_wizard};
  platform::fake::FakeSystemLog _log;
  std::optional<ParentWindow> _parent;
};

TEST_F(ParentWindowOnX11, IsNamedByTheWizard) {
  showWizard("x11:" + hexadecimal(_application.winId()));
  EXPECT_TRUE(spinUntil([this] { return parentSeenFromOutside(_wizard) == _application.winId(); }));
  EXPECT_THAT(_log.lines, testing::IsEmpty());
}

TEST_F(ParentWindowOnX11, LeavesTheWizardWhereItWasPut) {
  _window.setFrame({{17, 23}, {460, 320}}, false);
  showWizard("x11:" + hexadecimal(_application.winId()));
  EXPECT_TRUE(spinUntil([this] { return parentSeenFromOutside(_wizard) == _application.winId(); }));
  EXPECT_EQ(seenFromOutside(_wizard), (OutsideView{17, 1024 - 23 - 320, 460, 320, true}));
}

// It may be asked to quit while the wizard is still on its way to the screen.
TEST_F(ParentWindowOnX11, LetGoBeforeTheWizardIsActiveIsNotTakenLater) {
  const EnvironmentVariable given(protocol::parentWindowVariable, "x11:" + hexadecimal(_application.winId()));
  _parent.emplace(takeParentWindow(_log), _log);
  _wizard.onShow = [this](QWindow& window) {
    _parent->adopt(window);
    _parent->letGo();
  };
  _window.makeKeyAndOrderFront();
  ASSERT_TRUE(spinUntil([this] { return isActiveForAll(_wizard); }));
  EXPECT_EQ(parentSeenFromOutside(_wizard), 0U);
}

TEST_F(ParentWindowOnX11, StaysBehindTheWizardUntilItLetsGo) {
  const auto inFront = [] { return outputOf("xprop -root _NET_CLIENT_LIST_STACKING | sed 's/.*0x//'"); };
  showWizard("x11:" + hexadecimal(_application.winId()));
  ASSERT_TRUE(spinUntil([this] { return parentSeenFromOutside(_wizard) == _application.winId(); }));
  const auto raiseApplication = "xdotool windowactivate --sync " + std::to_string(_application.winId());
  outputOf(raiseApplication);
  EXPECT_EQ(inFront(), hexadecimal(_wizard.winId()) + "\n");
  _parent->letGo();
  EXPECT_EQ(parentSeenFromOutside(_wizard), 0U);
  EXPECT_TRUE(doUntil("xdotool windowactivate " + std::to_string(_wizard.winId()) + "; " + raiseApplication,
                      [&] { return inFront() == hexadecimal(_application.winId()) + "\n"; }));
}

TEST_F(ParentWindowOnX11, LeavesTheWizardOnTheScreenWhenItGoes) {
  auto application = std::make_unique<QWidget>();
  application->show();
  showWizard("x11:" + hexadecimal(application->winId()));
  application.reset();
  EXPECT_TRUE(spinUntil([this] { return isActiveForAll(_wizard); }));
  EXPECT_TRUE(seenFromOutside(_wizard).isViewable);
  _parent->letGo();
}

TEST_F(ParentWindowOnX11, ThatTheDisplayDoesNotKnowIsIgnored) {
  auto gone = std::make_unique<QWidget>();
  const auto number = gone->winId();
  gone.reset();
  showWizard("x11:" + hexadecimal(number));
  expectIgnored("the display does not know it");
}

TEST_F(ParentWindowOnX11, IsNotTheWholeDesktop) {
  const auto root = outputOf("xwininfo -root -int | sed -n 's/.*Window id: \\([0-9]*\\).*/\\1/p'");
  showWizard("x11:" + hexadecimal(std::stoul(root)));
  expectIgnored("the display does not know it");
}

TEST_F(ParentWindowOnX11, IsNotTheWizardItself) {
  showWizard("x11:" + hexadecimal(_wizard.winId()));
  expectIgnored("the display does not know it");
}

TEST_F(ParentWindowOnX11, OfAnotherDisplayIsIgnored) {
  showWizard("wayland:0f1b");
  expectIgnored("it is on another display");
}

TEST_F(ParentWindowOnX11, WithANameThatNoDisplayGivesIsIgnored) {
  showWizard("x11:" + std::string(100000, '1'));
  expectIgnored("it does not name a window");
}

TEST_F(ParentWindowOnX11, LetGoBeforeTheWizardIsShownChangesNothing) {
  const EnvironmentVariable none(protocol::parentWindowVariable, std::nullopt);
  ParentWindow parent(takeParentWindow(_log), _log);
  parent.letGo();
  EXPECT_THAT(_log.lines, testing::IsEmpty());
}

}  // namespace
