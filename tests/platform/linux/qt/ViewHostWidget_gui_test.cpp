#include "platform/linux/qt/ViewHostWidget.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QImage>
#include <QPushButton>
#include <QVariant>
#include <cstdlib>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/qt/Display.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;

namespace {

// A rounded panel, grey above ten points of black.
class Panel : public View {
 public:
  void drawRect(const Rect& dirtyRect) override {
    GraphicsContext& context = *GraphicsContext::current();
    context.saveGraphicsState();
    context.clipToRoundedRect(bounds(), 5, 5);
    context.setFillColor({0.8, 0.8, 0.8, 1});
    context.fillRect(bounds());
    context.setFillColor({0, 0, 0, 1});
    context.fillRect({{0, 0}, {bounds().size.width, 10}});
    context.restoreGraphicsState();
    drawn = dirtyRect;
  }
  bool setFlagForKey(bool value, std::string_view key) override {
    flags.emplace_back(key, value);
    return true;
  }

  Rect drawn;
  std::vector<std::pair<std::string, bool>> flags;
};

struct ViewHostWidgetTest : testing::Test {
  QImage drawn(int width, int height) {
    host.resize(width, height);
    window.hide();
    window.show();
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    host.render(&image, {}, {}, QWidget::RenderFlags());
    return image;
  }

  fake::FakeClock clock;
  fake::FakeRunLoop runLoop{clock};
  std::shared_ptr<Panel> panel = std::make_shared<Panel>();
  QWidget window;
  ViewHostWidget host{panel, runLoop, &window};
};

TEST_F(ViewHostWidgetTest, FillsTheWidgetWithItsOriginAtTheBottom) {
  const QImage image = drawn(100, 60);
  EXPECT_EQ(panel->drawn, (Rect{{0, 0}, {100, 60}}));
  EXPECT_EQ(image.pixelColor(50, 49), QColor(204, 204, 204));
  EXPECT_EQ(image.pixelColor(50, 50), QColor(0, 0, 0));
  EXPECT_EQ(image.pixelColor(50, 59), QColor(0, 0, 0));
}

TEST_F(ViewHostWidgetTest, FollowsTheSizeOfTheWidget) {
  drawn(100, 60);
  drawn(120, 80);
  EXPECT_EQ(panel->drawn, (Rect{{0, 0}, {120, 80}}));
}

TEST_F(ViewHostWidgetTest, GetsTheBooleanPropertiesOfTheWidget) {
  host.setProperty("hasBloom", true);
  EXPECT_EQ(panel->flags, (std::vector<std::pair<std::string, bool>>{{"hasBloom", true}}));
}

TEST_F(ViewHostWidgetTest, IsDrawnAgainWhenItNeedsTo) {
  window.resize(100, 60);
  host.resize(100, 60);
  window.show();
  ASSERT_TRUE(tests::spinUntil([this] { return panel->drawn.size.width == 100; }));
  panel->drawn = {};
  panel->setNeedsDisplay(true);
  EXPECT_TRUE(tests::spinUntil([this] { return panel->drawn.size.width == 100; }));
}

TEST_F(ViewHostWidgetTest, ARecalculatedKeyViewLoopGoesRowByRow) {
  window.resize(200, 100);
  host.resize(200, 100);
  QPushButton bottomRight("bottom right", &host);
  bottomRight.setGeometry(100, 50, 90, 30);
  QPushButton top("top", &host);
  top.setGeometry(100, 0, 90, 30);
  QPushButton bottomLeft("bottom left", &host);
  bottomLeft.setGeometry(0, 50, 90, 30);
  window.show();
  const auto loop = [&] {
    QStringList texts;
    for (const QWidget* next = &top; texts.size() < 3; next = next->nextInFocusChain())
      if (const auto* button = qobject_cast<const QPushButton*>(next)) texts << button->text();
    return texts;
  };
  ASSERT_EQ(loop(), (QStringList{"top", "bottom left", "bottom right"})) << "as they were made";
  bottomLeft.move(0, 0);
  panel->window()->recalculateKeyViewLoop();
  EXPECT_EQ(loop(), (QStringList{"top", "bottom right", "bottom left"}));
  window.setLayoutDirection(Qt::RightToLeft);
  panel->window()->recalculateKeyViewLoop();
  EXPECT_EQ(loop(), (QStringList{"top", "bottom left", "bottom right"}));
}

TEST_F(ViewHostWidgetTest, CornersAreSquareWithoutACompositor) {
  ASSERT_FALSE(platform::Linux::Display::composesWindows());
  EXPECT_EQ(drawn(100, 60).pixelColor(0, 0).alpha(), 255);
}

// The owner of this selection is the display's compositor.
class Compositor {
 public:
  Compositor() : _connection(xcb_connect(nullptr, nullptr)) {
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(_connection)).data;
    const auto window = xcb_generate_id(_connection);
    xcb_create_window(_connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(_connection, xcb_intern_atom(_connection, 0, 13, "_NET_WM_CM_S0"), nullptr), std::free);
    xcb_set_selection_owner(_connection, window, atom->atom, XCB_CURRENT_TIME);
    std::free(xcb_get_input_focus_reply(_connection, xcb_get_input_focus(_connection), nullptr));
  }
  ~Compositor() { xcb_disconnect(_connection); }
  Compositor(const Compositor&) = delete;
  Compositor& operator=(const Compositor&) = delete;

 private:
  xcb_connection_t* _connection;
};

TEST_F(ViewHostWidgetTest, CornersAreRoundUnderACompositor) {
  const Compositor compositor;
  ASSERT_TRUE(platform::Linux::Display::composesWindows());
  const QImage image = drawn(100, 60);
  for (const QPoint corner : {QPoint(0, 0), QPoint(99, 0), QPoint(0, 59), QPoint(99, 59)})
    EXPECT_EQ(image.pixelColor(corner).alpha(), 0);
  EXPECT_EQ(image.pixelColor(6, 0).alpha(), 255);
  EXPECT_EQ(image.pixelColor(0, 6).alpha(), 255);
}

}  // namespace
