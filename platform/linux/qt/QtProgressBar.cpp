#include "platform/linux/qt/QtProgressBar.h"

#include <QPainter>
#include <algorithm>
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
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  const QRectF track(0, (height() - thickness) / 2.0, width(), thickness);
  painter.setBrush(trackColor);
  painter.drawRoundedRect(track, thickness / 2.0, thickness / 2.0);
  if (!isAnimating()) return;
  const double seconds = static_cast<double>(_elapsed.nsecsElapsed()) / 1e9;
  const QRectF band(bandPlace(seconds, track.width()), track.y(), track.width() * bandShare, thickness);
  QLinearGradient shine(band.topLeft(), band.topRight());
  shine.setColorAt(0, bandColor);
  shine.setColorAt(0.5, bandLightColor);
  shine.setColorAt(1, bandColor);
  painter.setBrush(shine);
  const QRectF visible = band & track;
  const double radius = std::min(thickness, static_cast<int>(visible.width())) / 2.0;
  painter.drawRoundedRect(visible, radius, thickness / 2.0);
}

}  // namespace platform::Linux
