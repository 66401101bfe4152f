#include "platform/linux/qt/QtRunLoop.h"

#include <algorithm>

namespace platform::Linux {
namespace {

// Qt's timer counts milliseconds in an int; waking up early does no harm.
constexpr std::chrono::milliseconds longestSleep = std::chrono::hours(24);

}  // namespace

QtRunLoop::QtRunLoop() {
  _wakeUp.setSingleShot(true);
  _wakeUp.setTimerType(Qt::PreciseTimer);
  QObject::connect(&_wakeUp, &QTimer::timeout, &_wakeUp, [this] { fireWhatIsDue(); });
}

void QtRunLoop::arm() {
  const auto due = nextDue();
  if (!due) return _wakeUp.stop();
  const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now());
  _wakeUp.start(std::clamp(remaining, std::chrono::milliseconds(0), longestSleep));
}

}  // namespace platform::Linux
