#include "platform/linux/qt/QtProgressBar.h"

#include <QPainterPath>
#include <chrono>
#include <cmath>
#include <numbers>

namespace platform::Linux {
namespace {

constexpr std::chrono::milliseconds frame{16};
constexpr double secondsPerPass = 1.4;
constexpr int thickness = 6;
constexpr double bandShare = 0.36;

constexpr QColor trackColor(0, 0, 0, 30);
constexpr QColor bandColor(36, 120, 224);
constexpr QColor bandLightColor(96, 170, 250);

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
  path.addRoundedRect(rect, thickness / 2.0, thickness / 2.0);
  return path;
}

}  // namespace

ProgressBarWidget::ProgressBarWidget(QWidget* parent) : QProgressBar(parent) {
  setRange(0, 0);
  setTextVisible(false);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  _frames.setTimerType(Qt::PreciseTimer);
  QObject::connect(&_frames, &QTimer::timeout, this, [this] { update(); });
}

void ProgressBarWidget::start() {
  if (isAnimating()) return;
  _elapsed.start();
  _frames.start(frame);
}

QSize ProgressBarWidget::sizeHint() const { return {200, thickness}; }

QSize ProgressBarWidget::minimumSizeHint() const { return {40, thickness}; }

void ProgressBarWidget::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  std::optional<double> seconds;
  if (isAnimating()) seconds = static_cast<double>(_elapsed.nsecsElapsed()) / 1e9;
  drawProgressBar(painter, size(), seconds);
}

// The band is as round as the track where it is inside, and where it leaves the track it takes the track's own end.
void drawProgressBar(QPainter& painter, QSizeF area, std::optional<double> seconds) {
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF place(0, (area.height() - thickness) / 2, area.width(), thickness);
  const QPainterPath track = rounded(place);
  painter.fillPath(track, trackColor);
  if (!seconds) return;
  const QRectF band(bandPlace(*seconds, place.width()), place.y(), place.width() * bandShare, thickness);
  QLinearGradient shine(band.topLeft(), band.topRight());
  shine.setColorAt(0, bandColor);
  shine.setColorAt(0.5, bandLightColor);
  shine.setColorAt(1, bandColor);
  painter.fillPath(track & rounded(band), shine);
}

}  // namespace platform::Linux
