#pragma once
// The thin progress bar that says "at work" and never how far.
//
// Main thread only.
#include <QElapsedTimer>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QTimer>
#include <optional>

#include "platform/UserInterface.h"

namespace platform::Linux {

// A band that glides along the bar, or with settings that want nothing to move a bar that swells and fades where it is.
// Drawn by this class: the busy look of Qt's styles differs from desktop to desktop, and
// some do not move at all. The band's place follows from the time, so a late frame does not slow it down.
class ProgressBarWidget final : public QProgressBar {
 public:
  explicit ProgressBarWidget(QWidget* parent);
  void start();
  [[nodiscard]] bool isAnimating() const { return _frames.isActive(); }
  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  QTimer _frames;
  QElapsedTimer _elapsed;
};

// Draws the bar as it looks `seconds` after the start of its animation, or at rest without them, in the middle of an area
// that begins at the painter's origin.
void drawProgressBar(QPainter& painter, QSizeF area, std::optional<double> seconds);

class QtProgressIndicator final : public ProgressIndicator {
 public:
  explicit QtProgressIndicator(ProgressBarWidget& widget) : _widget(&widget) {}
  // Says nothing new: the animation goes on during every blocking call.
  void setUsesThreadedAnimation(bool /*threaded*/) override {}
  void startAnimation() override {
    if (_widget != nullptr) _widget->start();
  }

 private:
  QPointer<ProgressBarWidget> _widget;
};

}  // namespace platform::Linux
