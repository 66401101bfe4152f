#pragma once
// A widget that shows a view tree, behind the widgets that stand in it. Main thread only.
#include <QWidget>
#include <memory>

#include "foundation/views/ViewWindow.h"

namespace platform::Linux {

// The view fills the widget. Dynamic boolean properties of the widget are set on the view under their name. Corners are
// square where nothing composes translucent windows; that is asked whenever the widget comes up, not for every frame. When
// the key-view loop is recalculated, the Tab key goes through the widgets of the window as one reads them.
class ViewHostWidget final : public QWidget {
 public:
  ViewHostWidget(const std::shared_ptr<foundation::View>& view, foundation::RunLoop& runLoop, QWidget* parent);

  [[nodiscard]] foundation::View& view() const { return *_window.contentView(); }

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  foundation::ViewWindow _window;
  bool _isComposed = true;
};

}  // namespace platform::Linux
