#include "platform/linux/qt/QtBlockingCall.h"

#include <QPushButton>
#include <atomic>
#include <ctime>
#include <set>

#include "platform/linux/qt/QtAlert.h"
#include "platform/linux/qt/QtProgressBar.h"
#include "platform/linux/qt/QtWindow.h"
#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;
using tests::outputOf;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct QtBlockingCallTest : testing::Test {
  QtBlockingCallTest() {
    widget.setFixedSize(460, 320);
    widget.move(200, 200);
    button.setGeometry(20, 20, 200, 60);
    bar.setGeometry(20, 150, 400, 20);
    QObject::connect(&button, &QPushButton::clicked, &button, [this] { ++clicks; });
    widget.onClose = [this] { ++closeRequests; };
  }

  void show() {
    widget.show();
    widget.activateWindow();
    ASSERT_TRUE(spinUntil([this] { return isActiveForAll(widget) && seenFromOutside(widget).isViewable; }));
    ASSERT_TRUE(inputArrives());
  }

  // Runs a shell line inside a blocking call.
  void runShell(const std::string& line) {
    blockingCall.run([&] { outputOf(line); });
  }

  QtRunLoop runLoop;
  QtBlockingCall blockingCall{runLoop};
  WindowWidget widget;
  QPushButton button{&widget};
  ProgressBarWidget bar{&widget};
  int clicks = 0;
  int closeRequests = 0;
};

TEST_F(QtBlockingCallTest, TheCallRunsOnceOnAnotherThreadAndIsOverOnReturn) {
  std::thread::id thread;
  int runs = 0;
  blockingCall.run([&] {
    thread = std::this_thread::get_id();
    ++runs;
  });
  EXPECT_EQ(runs, 1);
  EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(QtBlockingCallTest, AllCallsAreMadeByOneThread) {
  std::set<std::thread::id> threads;
  for (int call = 0; call < 20; ++call) blockingCall.run([&] { threads.insert(std::this_thread::get_id()); });
  EXPECT_EQ(threads.size(), 1U);
}

TEST_F(QtBlockingCallTest, ACallFromAnEventHandlerDuringAnotherIsMadeAtOnce) {
  std::atomic<bool> isMade = false;
  QTimer::singleShot(0, &widget, [&] { blockingCall.run([&] { isMade = true; }); });
  blockingCall.run([&] {
    while (!isMade) std::this_thread::sleep_for(milliseconds(1));
  });
  EXPECT_TRUE(isMade);
}

TEST_F(QtBlockingCallTest, OffTheMainThreadItIsMadeDirectly) {
  bool isSameThread = false;
  std::thread([&] {
    const auto here = std::this_thread::get_id();
    blockingCall.run([&] { isSameThread = here == std::this_thread::get_id(); });
  }).join();
  EXPECT_TRUE(isSameThread);
}

TEST_F(QtBlockingCallTest, ACallInsideACallIsMade) {
  bool isMade = false;
  runLoop.performAfterDelay(Seconds(0), this, [&] { blockingCall.run([&] { blockingCall.run([&] { isMade = true; }); }); });
  EXPECT_TRUE(spinUntil([&] { return isMade; }));
}

TEST_F(QtBlockingCallTest, DelayedCallsAndTimersWaitUntilItIsOver) {
  std::string trace;
  runLoop.performAfterDelay(Seconds(0.01), this, [&] { trace += 'b'; });
  runLoop.scheduledTimer(Seconds(0.005), false, [&](Timer&) { trace += 'a'; });
  std::string traceInside = "not run";
  blockingCall.run([&] {
    std::this_thread::sleep_for(milliseconds(60));
    traceInside = trace;
  });
  EXPECT_EQ(traceInside, "");
  EXPECT_EQ(trace, "");
  EXPECT_TRUE(spinUntil([&] { return trace == "ab"; }));
}

struct Frames final : QObject {
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) times.push_back(steady_clock::now());
    return false;
  }
  [[nodiscard]] steady_clock::duration largestGap(steady_clock::time_point start, steady_clock::time_point end) const {
    auto last = start;
    steady_clock::duration largest{};
    for (const auto time : times) {
      largest = std::max(largest, time - last);
      last = time;
    }
    return std::max(largest, end - last);
  }
  std::vector<steady_clock::time_point> times;
};

// A machine under load may drop frames, so a smooth stretch may take several calls; a frozen window never has one.
TEST_F(QtBlockingCallTest, TheProgressBarGoesOnAtSixtyFramesASecond) {
  show();
  bar.start();
  bool isSmooth = false;
  std::string measured;
  for (int attempt = 0; attempt < 20 && !isSmooth; ++attempt) {
    Frames frames;
    bar.installEventFilter(&frames);
    const auto start = steady_clock::now();
    blockingCall.run([] { std::this_thread::sleep_for(milliseconds(300)); });
    const auto end = steady_clock::now();
    const auto gap = std::chrono::duration_cast<milliseconds>(frames.largestGap(start, end));
    const double rate = static_cast<double>(frames.times.size()) / Seconds(end - start).count();
    isSmooth = rate > 55 && gap < milliseconds(50);
    measured += std::to_string(rate) + " frames a second, largest gap " + std::to_string(gap.count()) + " ms\n";
  }
  EXPECT_TRUE(isSmooth) << measured;
  RecordProperty("measured", measured);
}

TEST_F(QtBlockingCallTest, AClickDuringTheCallIsDropped) {
  show();
  ASSERT_TRUE(doUntil("xdotool mousemove 250 250 click 1", [this] { return clicks > 0; })) << "the click works at all";
  ASSERT_TRUE(inputArrives());
  clicks = 0;
  runShell("xdotool mousemove 250 250 click 1; xdotool click 1");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(clicks, 0);
}

TEST_F(QtBlockingCallTest, KeysAndShortcutsDuringTheCallAreDropped) {
  button.setShortcut(Qt::Key_Escape);
  show();
  button.setFocus();
  runShell("xdotool key Escape; xdotool key space; xdotool key Escape");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(clicks, 0);
  EXPECT_TRUE(doUntil("xdotool key Escape", [this] { return clicks > 0; })) << "the shortcut works at all";
}

TEST_F(QtBlockingCallTest, ACloseRequestDuringTheCallIsDropped) {
  show();
  // The window manager obeys in order: once it has added desktops, it has sent the request to close.
  runShell(
      "xdotool key alt+F4; xdotool set_num_desktops 7; "
      "for i in $(seq 500); do [ \"$(xdotool get_num_desktops)\" = 7 ] && break; done");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(closeRequests, 0);
  EXPECT_TRUE(widget.isVisible());
}

TEST_F(QtBlockingCallTest, APressBeforeTheCallDoesNotClickAfterIt) {
  show();
  outputOf("xdotool mousemove 250 250 mousedown 1");
  ASSERT_TRUE(spinUntil([this] { return button.isDown(); }));
  blockingCall.run([] {});
  outputOf("xdotool mouseup 1");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(clicks, 0);
  EXPECT_FALSE(button.isDown());
}

TEST_F(QtBlockingCallTest, AReleaseDuringTheCallLeavesNoButtonPressed) {
  show();
  outputOf("xdotool mousemove 250 250 mousedown 1");
  ASSERT_TRUE(spinUntil([this] { return button.isDown(); }));
  runShell("xdotool mouseup 1");
  EXPECT_TRUE(inputArrives());
  EXPECT_EQ(clicks, 0);
  EXPECT_FALSE(button.isDown());
  EXPECT_TRUE(doUntil("xdotool click 1", [this] { return clicks > 0; }));
}

TEST_F(QtBlockingCallTest, ReturnTypedDuringTheCallDoesNotDismissTheAlertThatFollows) {
  show();
  runShell("xdotool key Return; xdotool key Return");
  bool isUp = true;
  QTimer::singleShot(0, &widget, [&] {
    EXPECT_TRUE(spinUntil([] { return QApplication::activeModalWidget() != nullptr; }));
    EXPECT_TRUE(spinUntil([] { return QApplication::activeModalWidget()->isActiveWindow(); }));
    EXPECT_TRUE(inputArrives());
    isUp = QApplication::activeModalWidget() != nullptr;
    doUntil("xdotool key Return", [] { return QApplication::activeModalWidget() == nullptr; });
  });
  runAlert({"Headline", "Text", "OK"}, "Test", &widget);
  EXPECT_TRUE(isUp);
}

// Input that waits must not keep the event loop spinning.
TEST_F(QtBlockingCallTest, DroppedInputCostsNoProcessorTime) {
  show();
  const auto start = std::clock();
  blockingCall.run([] {
    outputOf("xdotool mousemove 250 250 click 1");
    std::this_thread::sleep_for(milliseconds(300));
  });
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  EXPECT_LT(seconds, 0.15);
}

}  // namespace
