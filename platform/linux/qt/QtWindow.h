#pragma once
// The wizard window: frameless, dragged by its face, placed to the pixel.
//
// Main thread only. Screen coordinates have their origin at the bottom-left corner of the primary screen and count in
// device-independent pixels; whole ones, so what is set is rounded.
#include <QPointer>
#include <QWidget>
#include <functional>

#include "platform/UserInterface.h"

namespace platform::Linux {

// The top-level widget. Closing it, however that is asked for, calls `onClose` and leaves the window as it is. It is as
// much wider than designed as letters are larger, and its letters have the room that they need; it follows the settings
// while it is shown.
class WindowWidget final : public QWidget {
 public:
  WindowWidget();
  std::function<void()> onClose;
  // Called each time the display has been told to show the window, before it has a picture of it.
  std::function<void(QWindow& window)> onShow;

  // Takes the present width for the one of letters of the designed size.
  void takeDesignedWidth();
  void setVisible(bool visible) override;

 protected:
  void changeEvent(QEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;

 private:
  int _designedWidth = 0;  // until it is taken
};

class QtWindow final : public Window {
 public:
  explicit QtWindow(QWidget& widget) : _widget(&widget) {}

  // The zero rectangle when the widget has gone.
  [[nodiscard]] foundation::Rect frame() const override;
  // The window cannot be resized by hand, so this is its only size, whatever the layout would like.
  void setFrame(const foundation::Rect& frame, bool display) override;
  // A place off the screens, where less than half of the window would be seen, becomes the nearest one wholly on a screen.
  void setFrameOrigin(foundation::Point origin) override;
  void center() override;
  void setTitle(std::string_view title) override;
  // From then on the size is the only one, also when no frame was set.
  void makeKeyAndOrderFront() override;

 private:
  QPointer<QWidget> _widget;
};

}  // namespace platform::Linux
