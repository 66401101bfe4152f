#include "platform/linux/qt/ViewHostWidget.h"

#include <QDynamicPropertyChangeEvent>
#include <algorithm>

#include "platform/linux/qt/Display.h"
#include "platform/linux/qt/LookStyle.h"
#include "platform/linux/qt/QtGraphicsContext.h"

namespace platform::Linux {
namespace {

constexpr double cornerRadius = 5;  // of the face

// Makes the Tab key go through the window's widgets in reading order: row by row from the top, each from its start.
void orderTabs(QWidget& window) {
  auto widgets = window.findChildren<QWidget*>();
  const bool fromRight = window.layoutDirection() == Qt::RightToLeft;
  const auto place = [&](const QWidget* widget) {
    const QPoint corner = widget->mapTo(&window, fromRight ? widget->rect().topRight() : QPoint());
    return std::pair(corner.y(), fromRight ? -corner.x() : corner.x());
  };
  widgets.removeIf([](const QWidget* widget) { return (widget->focusPolicy() & Qt::TabFocus) == 0; });
  std::ranges::stable_sort(widgets, {}, place);
  for (qsizetype i = 1; i < widgets.size(); ++i) QWidget::setTabOrder(widgets[i - 1], widgets[i]);
}

}  // namespace

ViewHostWidget::ViewHostWidget(const std::shared_ptr<foundation::View>& view, foundation::RunLoop& runLoop, QWidget* parent)
    : QWidget(parent), _window(runLoop) {
  _window.setContentView(view);
  _window.onNeedsDisplay = [this] { needsDisplay(); };
  _window.onRecalculateKeyViewLoop = [this] { orderTabs(*window()); };
}

bool ViewHostWidget::event(QEvent* event) {
  if (event->type() == QEvent::DynamicPropertyChange)
    takeProperty(view(), *this, static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName());
  return QWidget::event(event);
}

// Overlays wait for the event loop: a caller that is in the middle of a change of the tree may ask for display.
void ViewHostWidget::needsDisplay() {
  update();
  if (std::exchange(_isUpdatePending, true)) return;
  QMetaObject::invokeMethod(
      this, [this] { updateOverlays(); }, Qt::QueuedConnection);
}

void ViewHostWidget::updateOverlays() {
  _isUpdatePending = false;
  if (foundation::View* content = _window.contentView()) _overlays.update(*content);
}

void ViewHostWidget::paintEvent(QPaintEvent* /*event*/) {
  using Corners = QtGraphicsContext::Corners;
  QPainter painter(this);
  const foundation::Size area{static_cast<double>(width()), static_cast<double>(height())};
  double line = 1;
  {
    QtGraphicsContext context(painter, area, _isComposed ? Corners::Round : Corners::Square,
                              LookStyle::settings().highContrast);
    _window.display(context);
    line = context.hairline();
  }
  if (size() == window()->size()) drawEdge(painter, line);
}

void ViewHostWidget::drawEdge(QPainter& painter, double thickness) const {
  const double inset = thickness / 2;
  const double radius = _isComposed ? cornerRadius - inset : 0;
  painter.setRenderHint(QPainter::Antialiasing, _isComposed);
  painter.setPen(QPen(LookStyle::colors().faceEdge, thickness));
  painter.setBrush(Qt::NoBrush);
  painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), radius, radius);
}

void ViewHostWidget::showEvent(QShowEvent* /*event*/) {
  _isComposed = Display::composesWindows();
  updateOverlays();
}

void ViewHostWidget::resizeEvent(QResizeEvent* /*event*/) {
  _window.setSize({static_cast<double>(width()), static_cast<double>(height())});
}

}  // namespace platform::Linux
