#include "platform/linux/qt/ViewWidget.h"

#include <QDynamicPropertyChangeEvent>
#include <QLayout>
#include <QVariant>

#include "platform/linux/qt/ViewHostWidget.h"

namespace platform::Linux {
namespace {

QWidget* widgetOver(const foundation::View& view) {
  const auto* overlay = dynamic_cast<const WidgetOverlay*>(view.overlay());
  return overlay == nullptr ? nullptr : overlay->widget();
}

// The widget that the area of a view's superview is shown in.
const QWidget* superviewWidget(const ViewWidget& widget) {
  const QWidget* parent = widget.parentWidget();
  while (parent != nullptr && dynamic_cast<const ViewWidget*>(parent) == nullptr &&
         dynamic_cast<const ViewHostWidget*>(parent) == nullptr)
    parent = parent->parentWidget();
  return parent;
}

// Widgets count from the top.
foundation::Rect frameIn(const QWidget& superviewWidget, const QWidget& widget) {
  const QPoint corner = widget.mapTo(&superviewWidget, QPoint());
  return {{double(corner.x()), double(superviewWidget.height() - corner.y() - widget.height())},
          {double(widget.width()), double(widget.height())}};
}

void takeFrame(foundation::View& view, const foundation::Rect& frame) {
  if (view.frame() != frame) view.setFrame(frame);
}

}  // namespace

ViewWidget::ViewWidget(foundation::View& view, QWidget* parent) : QWidget(parent), _view(view) {
  view.setOverlay(std::make_unique<WidgetOverlay>(*this));
}

bool ViewWidget::event(QEvent* event) {
  if (event->type() == QEvent::DynamicPropertyChange)
    takeProperty(_view, *this, static_cast<QDynamicPropertyChangeEvent*>(event)->propertyName());
  if (event->type() == QEvent::Resize || event->type() == QEvent::Move) _view.setNeedsDisplay(true);
  return QWidget::event(event);
}

void ViewOverlays::update(foundation::View& content) {
  const auto before = std::exchange(_shown, {});
  const Place host{_host, QPointF(0, _host.height()), content.isHidden()};
  if (QWidget* overlay = widgetOver(content)) {
    placeOverlay(content, *overlay, host, _host.rect());
    placeSubviews(content, {*overlay, QPointF(0, overlay->height()), false});
  } else {
    placeSubviews(content, host);
  }
  QList<QPointer<QWidget>> left;
  for (const auto& widget : before)
    if (!_shown.contains(widget)) left << widget;
  release(left);
}

void ViewOverlays::placeSubviews(foundation::View& superview, const Place& place) {
  const foundation::Point origin = superview.bounds().origin;
  for (const auto& view : std::vector(superview.subviews())) {
    const foundation::Rect frame = view->frame();
    const QPointF bottomLeft = place.bottomLeft + QPointF(frame.origin.x - origin.x, origin.y - frame.origin.y);
    const QRectF area(bottomLeft - QPointF(0, frame.size.height), QSizeF(frame.size.width, frame.size.height));
    const bool isHidden = place.isHidden || view->isHidden();
    if (QWidget* overlay = widgetOver(*view)) {
      placeOverlay(*view, *overlay, {place.widget, {}, isHidden}, area.toRect());
      placeSubviews(*view, {*overlay, QPointF(0, overlay->height()), false});
    } else {
      placeSubviews(*view, {place.widget, bottomLeft, isHidden});
    }
  }
}

void ViewOverlays::placeOverlay(foundation::View& view, QWidget& overlay, const Place& place, const QRect& area) {
  _shown << &overlay;
  const bool isInside = place.widget.isAncestorOf(&overlay);
  const bool isContained = isInside && (overlay.parentWidget() != &place.widget || place.widget.layout() != nullptr);
  if (!isInside) overlay.setParent(&place.widget);
  if (isContained)
    takeFrame(view, frameIn(place.widget, overlay));
  else
    overlay.setGeometry(area);
  overlay.setVisible(!place.isHidden);
}

// A widget that another host has taken stays there.
void ViewOverlays::release(const QList<QPointer<QWidget>>& widgets) {
  for (const auto& widget : widgets)
    if (widget != nullptr && _host.isAncestorOf(widget)) widget->setParent(nullptr);
}

void takeProperty(foundation::View& view, const QWidget& widget, const QByteArray& name) {
  if (name == "autoresizingMask")
    view.setAutoresizingMask(widget.property(name).toUInt());
  else
    view.setFlagForKey(widget.property(name).toBool(), name.toStdString());
}

void takeGeometry(const QWidget& topLevel) {
  auto widgets = topLevel.findChildren<QWidget*>();
  widgets.prepend(const_cast<QWidget*>(&topLevel));
  for (QWidget* widget : widgets) {
    if (widget->layout() != nullptr) widget->layout()->activate();
    const auto* viewWidget = dynamic_cast<ViewWidget*>(widget);
    if (viewWidget == nullptr) continue;
    const QWidget* around = superviewWidget(*viewWidget);
    takeFrame(viewWidget->view(), around == nullptr
                                      ? foundation::Rect{{}, {double(widget->width()), double(widget->height())}}
                                      : frameIn(*around, *widget));
    if (widget->testAttribute(Qt::WA_WState_ExplicitShowHide)) viewWidget->view().setHidden(widget->isHidden());
  }
}

foundation::View* enclosingView(QWidget* widget) {
  for (; widget != nullptr; widget = widget->parentWidget()) {
    if (const auto* viewWidget = dynamic_cast<ViewWidget*>(widget)) return &viewWidget->view();
    if (const auto* host = dynamic_cast<ViewHostWidget*>(widget)) return &host->view();
  }
  return nullptr;
}

}  // namespace platform::Linux
