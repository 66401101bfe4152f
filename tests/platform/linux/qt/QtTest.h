#pragma once
// Helpers that the tests of the Qt side share: waiting for a condition while the event loop runs, and looking from outside.
#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <string>

#include "tests/support/PrivateDisplay.h"

namespace tests {

// Runs the event loop until `condition` holds; false when it does not within the time.
inline bool spinUntil(const std::function<bool()>& condition, int milliseconds = 10000) {
  QElapsedTimer elapsed;
  elapsed.start();
  QTimer tick;
  tick.start(5);
  while (!condition()) {
    if (elapsed.elapsed() > milliseconds) return false;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
  return true;
}

// Where the display server says the window is, in its own coordinates (top-left).
struct OutsideView {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool isViewable = false;
  bool operator==(const OutsideView&) const = default;
};

inline void PrintTo(const OutsideView& view, std::ostream* stream) {
  *stream << view.width << "x" << view.height << " at " << view.x << "," << view.y
          << (view.isViewable ? "" : ", not viewable");
}

inline OutsideView seenFromOutside(const QWidget& widget) {
  const auto text = tests::outputOf("xwininfo -id " + std::to_string(widget.winId()));
  const auto number = [&text](const char* label) {
    const auto place = text.find(label);
    return place == std::string::npos ? -1 : std::atoi(text.c_str() + place + std::string(label).size());
  };
  return {number("Absolute upper-left X:"), number("Absolute upper-left Y:"), number("Width:"), number("Height:"),
          text.find("IsViewable") != std::string::npos};
}

// True once the window has the keyboard, also in the eyes of the window manager, which acts on the window that it has given
// it to.
inline bool isActiveForAll(const QWidget& window) {
  return window.isActiveWindow() &&
         tests::outputOf("xdotool getactivewindow 2>/dev/null") == std::to_string(window.winId()) + "\n";
}

// Does the shell line from outside, again and again, until `condition` holds. For keys that the window manager takes: while
// the server brings its keyboard up, which the first made-up key starts, the window manager may miss some.
inline bool doUntil(const std::string& line, const std::function<bool()>& condition) {
  return spinUntil([&] {
    if (condition()) return true;
    tests::outputOf(line);
    return spinUntil(condition, 200);
  });
}

// True once a key pressed now has arrived in this program: so has all input before it.
inline bool inputArrives() {
  struct KeyWatcher final : QObject {
    bool eventFilter(QObject* /*receiver*/, QEvent* event) override {
      hasSeenKey |= event->type() == QEvent::KeyPress;
      return false;
    }
    bool hasSeenKey = false;
  } watcher;
  qApp->installEventFilter(&watcher);
  return doUntil("xdotool key F9", [&] { return watcher.hasSeenKey; });
}

}  // namespace tests
