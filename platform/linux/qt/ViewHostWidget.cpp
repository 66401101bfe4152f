#include "platform/linux/qt/ViewHostWidget.h"

#include <QDynamicPropertyChangeEvent>
#include <QVariant>

#include "platform/linux/qt/Display.h"
#include "platform/linux/qt/QtGraphicsContext.h"

namespace platform::Linux {

ViewHostWidget::ViewHostWidget(const std::shared_ptr<View>& view, QWidget* parent) : QWidget(parent) {
  _window.setContentView(view);
  _window.onNeedsDisplay = [this] { update(); };
}

bool ViewHostWidget::event(QEvent* event) {
  if (event->type() == QEvent::DynamicPropertyChange) {
    const QByteArray name = static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName();
    view().setFlagForKey(property(name).toBool(), name.toStdString());
  }
  return QWidget::event(event);
}

void ViewHostWidget::paintEvent(QPaintEvent* /*event*/) {
  using Corners = QtGraphicsContext::Corners;
  QPainter painter(this);
  const Size area{static_cast<double>(width()), static_cast<double>(height())};
  QtGraphicsContext context(painter, area, _isComposed ? Corners::Round : Corners::Square);
  _window.display(context);
}

void ViewHostWidget::showEvent(QShowEvent* /*event*/) { _isComposed = Display::composesWindows(); }

void ViewHostWidget::resizeEvent(QResizeEvent* /*event*/) {
  _window.setSize({static_cast<double>(width()), static_cast<double>(height())});
}

}  // namespace platform::Linux
