#include "platform/linux/qt/QtWindow.h"

#include <QAccessible>
#include <QLabel>
#include <QScreen>

#include "platform/linux/qt/QtElements.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;

namespace {

struct QtWindowOnScreen : testing::Test {
  QtWindowOnScreen() { widget.resize(460, 320); }

  void show() {
    window.makeKeyAndOrderFront();
    ASSERT_TRUE(spinUntil([this] { return seenFromOutside(widget).isViewable; }));
    ASSERT_TRUE(spinUntil([this] { return isActiveForAll(widget); }));
  }

  WindowWidget widget;
  QtWindow window{widget};
};

TEST_F(QtWindowOnScreen, StandsExactlyWhereItWasPut) {
  window.setFrame({{300, 303}, {400, 206}}, false);
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{300, 1024 - 303 - 206, 400, 206, true}));
  EXPECT_EQ(window.frame(), (Rect{{300, 303}, {400, 206}}));
}

TEST_F(QtWindowOnScreen, StandsExactlyWhereItWasPutBeyondTheScreensEdge) {
  window.setFrame({{-120, -60}, {460, 206}}, false);
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{-120, 1024 + 60 - 206, 460, 206, true}));
}

TEST_F(QtWindowOnScreen, AnOriginChangesNoSize) {
  window.setFrameOrigin({17, 23});
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{17, 1024 - 23 - 320, 460, 320, true}));
}

TEST_F(QtWindowOnScreen, MovesWhileItIsShown) {
  show();
  window.setFrameOrigin({200, 100});
  EXPECT_TRUE(spinUntil([this] {
    return seenFromOutside(widget) == OutsideView{200, 604, 460, 320, true};
  })) << testing::PrintToString(seenFromOutside(widget));
}

TEST_F(QtWindowOnScreen, CentersOnTheScreen) {
  window.center();
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{410, 352, 460, 320, true}));
}

TEST_F(QtWindowOnScreen, AChangedHeightKeepsTheBottomLeftCorner) {
  window.setFrameOrigin({50, 60});
  Rect frame = window.frame();
  frame.size.height = 206;
  window.setFrame(frame, false);
  EXPECT_EQ(window.frame(), (Rect{{50, 60}, {460, 206}}));
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{50, 1024 - 60 - 206, 460, 206, true}));
}

TEST_F(QtWindowOnScreen, ItsTitleIsSeenByTheWindowManager) {
  window.setTitle("Kelto Installer – %d & \"Söhne\"");
  show();
  const auto title = tests::outputOf("xdotool getwindowname " + std::to_string(widget.winId()));
  EXPECT_EQ(title, "Kelto Installer – %d & \"Söhne\"\n");
}

TEST_F(QtWindowOnScreen, ItNeverAppearsAnywhereElseFirst) {
  std::vector<QPoint> places;
  struct Watcher final : QObject {
    explicit Watcher(std::vector<QPoint>& places) : places(places) {}
    bool eventFilter(QObject* object, QEvent* event) override {
      const auto* shown = static_cast<QWidget*>(object);
      if (event->type() == QEvent::Move && shown->isVisible()) places.push_back(shown->pos());
      return false;
    }
    std::vector<QPoint>& places;
  } watcher(places);
  window.setFrame({{300, 303}, {400, 206}}, false);
  widget.installEventFilter(&watcher);
  show();
  EXPECT_TRUE(spinUntil([this] { return isActiveForAll(widget); }));
  for (const auto& place : places) EXPECT_EQ(place, QPoint(300, 515));
}

TEST_F(QtWindowOnScreen, AWindowManagersCloseRequestIsReportedAndTheWindowStays) {
  int requests = 0;
  widget.onClose = [&] { ++requests; };
  show();
  EXPECT_TRUE(doUntil("xdotool key alt+F4", [&] { return requests > 0; }));
  EXPECT_TRUE(widget.isVisible());
}

TEST_F(QtWindowOnScreen, ItIsDraggedByItsFace) {
  window.setFrameOrigin({300, 300});
  show();
  tests::outputOf("xdotool mousemove 400 450 mousedown 1");
  int step = 0;
  EXPECT_TRUE(spinUntil([&] {
    tests::outputOf("xdotool mousemove " + std::to_string(410 + step++ % 90) + " 450");
    return seenFromOutside(widget).x > 320;
  }));
  tests::outputOf("xdotool mouseup 1");
  EXPECT_TRUE(spinUntil([this] { return window.frame().origin.x == seenFromOutside(widget).x; }));
  EXPECT_GT(window.frame().origin.x, 320);
}

// Window managers, tiling ones too, and Wayland compositors read it from these hints.
TEST_F(QtWindowOnScreen, ItHasOneSizeAlsoWhenNobodyHasSetAFrame) {
  show();
  const auto hints = tests::outputOf("xprop -id " + std::to_string(widget.winId()) + " WM_NORMAL_HINTS");
  EXPECT_NE(hints.find("minimum size: 460 by 320"), std::string::npos) << hints;
  EXPECT_NE(hints.find("maximum size: 460 by 320"), std::string::npos) << hints;
  const auto isOffered = [this](const std::string& action) {
    return tests::outputOf("xprop -id " + std::to_string(widget.winId()) + " _NET_WM_ALLOWED_ACTIONS").find(action) !=
           std::string::npos;
  };
  EXPECT_TRUE(isOffered("_NET_WM_ACTION_MOVE"));
  EXPECT_FALSE(isOffered("_NET_WM_ACTION_RESIZE"));
  EXPECT_FALSE(isOffered("_NET_WM_ACTION_MAXIMIZE"));
}

TEST_F(QtWindowOnScreen, FarOffTheScreenItComesWhollyOntoTheNearest) {
  const auto placeFor = [this](Point origin) {
    window.setFrame({origin, {460, 206}}, false);
    return window.frame();
  };
  EXPECT_EQ(placeFor({-414, -185}), (Rect{{0, 0}, {460, 206}}));
  EXPECT_EQ(placeFor({5000, 4000}), (Rect{{1280 - 460, 1024 - 206}, {460, 206}}));
  EXPECT_EQ(placeFor({-9000, 300}), (Rect{{0, 300}, {460, 206}}));
  show();
  EXPECT_EQ(seenFromOutside(widget), (OutsideView{0, 1024 - 300 - 206, 460, 206, true}));
}

TEST(QtWindow, ItsTextsAreItsDescriptionForAssistiveTools) {
  WindowWidget window;
  QLabel title(&window);
  QLabel body(&window);
  QtTextField(title).setStringValue("Headline");
  QtTextField(body).setStringValue("Body");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&window)->text(QAccessible::Description), "Headline\nBody");
  QtTextField(body).setStringValue("Another");
  EXPECT_EQ(QAccessible::queryAccessibleInterface(&window)->text(QAccessible::Description), "Headline\nAnother");
}

TEST(QtWindow, AWindowThatHasGoneHasTheZeroFrameAndDoesNothing) {
  auto widget = std::make_unique<WindowWidget>();
  QtWindow window(*widget);
  widget.reset();
  window.setFrame({{1, 2}, {3, 4}}, true);
  window.center();
  window.setTitle("gone");
  window.makeKeyAndOrderFront();
  EXPECT_EQ(window.frame(), Rect{});
}

}  // namespace
