#pragma once
// A widget that shows a view tree, behind the widgets that stand in it. Main thread only.
#include <QWidget>
#include <memory>

#include "foundation/views/ViewWindow.h"
#include "platform/linux/qt/ViewWidget.h"

namespace platform::Linux {

// The view fills the widget. Dynamic properties of the widget are set on the view as takeProperty() does. Corners are
// square where nothing composes translucent windows; the widget checks that whenever it is shown, not for every frame. When
// a host fills its window it draws a hairline around it, for window managers draw no frame around the wizard. When
// the key-view loop is recalculated, the Tab key goes through the widgets of the window in reading order.
class ViewHostWidget final : public QWidget {
 public:
  // The run loop drives the animations of the views and outlives the widget.
  ViewHostWidget(const std::shared_ptr<foundation::View>& view, foundation::RunLoop& runLoop, QWidget* parent);

  [[nodiscard]] foundation::View& view() const { return *_window.contentView(); }

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  void drawEdge(QPainter& painter, double thickness) const;
  void needsDisplay();
  void updateOverlays();

  foundation::ViewWindow _window;
  ViewOverlays _overlays{*this};  // goes before the views, so that the overlays of surviving views survive the host
  bool _isUpdatePending = false;
  bool _isComposed = true;
};

}  // namespace platform::Linux
