#pragma once
// The demo controller's window: what it is, which version, and what it is doing.
//
// Main thread only.
#include <QLabel>
#include <QString>
#include <QWidget>
#include <functional>
#include <optional>

#include "foundation/graphics/Geometry.h"

class ControllerWindow final : public QWidget {
 public:
  ControllerWindow(const QString& name, const QString& version);

  void showState(const QString& state) { _state->setText(state); }

  // With the window's own frame, in points with the origin at the bottom-left of the primary screen.
  [[nodiscard]] std::optional<foundation::Rect> frameOnScreen() const;
  // Whole points; what is inside the frame gets the size that is left.
  void placeOnScreen(const foundation::Rect& frame);

  // Called instead of closing the window.
  std::function<void()> onClose;
  // Called once, when the window is on the screen.
  std::function<void()> onShown;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  [[nodiscard]] QColor accent() const;
  void paintEmblem(QPainter& painter) const;
  void paintShelf(QPainter& painter) const;

  const QString _version;
  QLabel* _state;
};
