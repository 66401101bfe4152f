#include "platform/linux/qt/QtProgressBar.h"

#include <QAccessibleWidget>
#include <QPainterPath>
#include <chrono>
#include <cmath>
#include <numbers>

#include "platform/linux/qt/LookStyle.h"

namespace platform::Linux {
namespace {

constexpr std::chrono::milliseconds frame{16};
constexpr std::chrono::milliseconds frameOfPulse{100};
constexpr double secondsPerPass = 1.4;
constexpr double secondsPerPulse = 2.4;
constexpr int thickness = 6;
constexpr double bandShare = 0.36;

// The value of a bar without an end would be a number that nobody knows.
class BusyBar final : public QAccessibleWidget {
 public:
  explicit BusyBar(ProgressBarWidget& bar) : QAccessibleWidget(&bar, QAccessible::ProgressBar), _bar(bar) {}

  [[nodiscard]] QAccessible::State state() const override {
    auto state = QAccessibleWidget::state();
    state.busy = _bar.isAnimating();
    return state;
  }

 private:
  const ProgressBarWidget& _bar;
};

QAccessibleInterface* accessibleBar(const QString& /*className*/, QObject* object) {
  auto* bar = dynamic_cast<ProgressBarWidget*>(object);
  return bar == nullptr ? nullptr : new BusyBar(*bar);
}

// Where the band's left edge stands `seconds` after the start: from outside on the left to outside on the right, slow at
// both ends.
double bandPlace(double seconds, double width) {
  const double pass = std::fmod(seconds / secondsPerPass, 1.0);
  const double eased = 0.5 - 0.5 * std::cos(pass * std::numbers::pi);
  const double band = width * bandShare;
  return eased * (width + band) - band;
}

QPainterPath rounded(const QRectF& rect) {
  QPainterPath path;
  path.addRoundedRect(rect, rect.height() / 2, rect.height() / 2);
  return path;
}

// The band is as round as the track where it is inside, and where it leaves the track it takes the track's own end.
void drawBand(QPainter& painter, const QPainterPath& track, const QRectF& band) {
  const LookColors& colors = LookStyle::colors();
  QLinearGradient shine(band.topLeft(), band.topRight());
  shine.setColorAt(0, colors.accent);
  shine.setColorAt(0.5, colors.accentLight);
  shine.setColorAt(1, colors.accent);
  painter.fillPath(track & rounded(band), shine);
}

// The whole bar in one colour, which swells and fades: it says "at work" and moves nothing.
QColor pulseColor(double seconds) {
  const LookColors& colors = LookStyle::colors();
  const double share = 0.5 - 0.5 * std::cos(seconds / secondsPerPulse * 2 * std::numbers::pi);
  const auto mixed = [share](int from, int to) { return static_cast<int>(std::lround(from + share * (to - from))); };
  return {mixed(colors.accentDark.red(), colors.accentLight.red()),
          mixed(colors.accentDark.green(), colors.accentLight.green()),
          mixed(colors.accentDark.blue(), colors.accentLight.blue())};
}

std::chrono::milliseconds timeOfFrame() { return LookStyle::settings().animates ? frame : frameOfPulse; }

}  // namespace

ProgressBarWidget::ProgressBarWidget(QWidget* parent) : QProgressBar(parent) {
  QAccessible::installFactory(accessibleBar);  // counts once, however often
  setRange(0, 0);
  setTextVisible(false);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  _frames.setTimerType(Qt::PreciseTimer);
  QObject::connect(&_frames, &QTimer::timeout, this, [this] { update(); });
}

void ProgressBarWidget::start() {
  if (isAnimating()) return;
  _elapsed.start();
  _frames.start(timeOfFrame());
}

void ProgressBarWidget::changeEvent(QEvent* event) {
  if (event->type() == QEvent::StyleChange && isAnimating()) _frames.start(timeOfFrame());
  QProgressBar::changeEvent(event);
}

QSize ProgressBarWidget::sizeHint() const { return {200, thickness}; }

QSize ProgressBarWidget::minimumSizeHint() const { return {40, thickness}; }

void ProgressBarWidget::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  if (isRightToLeft()) painter.setTransform(QTransform(-1, 0, 0, 1, width(), 0));
  std::optional<double> seconds;
  if (isAnimating()) seconds = static_cast<double>(_elapsed.nsecsElapsed()) / 1e9;
  drawProgressBar(painter, size(), seconds);
}

void drawProgressBar(QPainter& painter, QSizeF area, std::optional<double> seconds) {
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF place(0, (area.height() - thickness) / 2, area.width(), thickness);
  const QPainterPath track = rounded(place);
  painter.fillPath(track, LookStyle::colors().track);
  if (LookStyle::colors().trackEdge.alpha() > 0)
    painter.strokePath(rounded(place.adjusted(0.5, 0.5, -0.5, -0.5)), LookStyle::colors().trackEdge);
  if (!seconds) return;
  if (!LookStyle::settings().animates) return painter.fillPath(track, pulseColor(*seconds));
  drawBand(painter, track, {bandPlace(*seconds, place.width()), place.y(), place.width() * bandShare, thickness});
}

}  // namespace platform::Linux
