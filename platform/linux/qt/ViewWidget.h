#pragma once
// The widgets in front of a view tree: the controls and layouts of the views that an interface description holds.
//
// Views are not widgets: a ViewHostWidget draws a whole tree of them. A view from an interface description that is not a
// host has a ViewWidget as its overlay, a transparent widget that holds the view's controls. The host keeps every
// ViewWidget of its tree over its view: same place, same visibility, gone from the window together with the view. Only
// where the description puts the widget into a layout or another container does the widget decide, and the view follows it.
// Bounds with a size of their own do not scale the controls.
//
// Main thread only.
#include <QPointer>
#include <QSet>
#include <QWidget>
#include <memory>
#include <vector>

#include "foundation/views/View.h"
#include "platform/UserInterface.h"

namespace platform::Linux {

class ViewWidget final : public QWidget {
 public:
  // Becomes the overlay of the view, which owns it from then on.
  ViewWidget(foundation::View& view, QWidget* parent);

  // The view outlives its widget.
  [[nodiscard]] foundation::View& view() const { return _view; }

 protected:
  bool event(QEvent* event) override;

 private:
  foundation::View& _view;
};

// Owns the widget and the elements that outlets of the description refer to.
class WidgetOverlay final : public foundation::ViewOverlay {
 public:
  explicit WidgetOverlay(QWidget& widget) : _widget(&widget) {}
  ~WidgetOverlay() override { delete _widget.data(); }
  WidgetOverlay(const WidgetOverlay&) = delete;
  WidgetOverlay& operator=(const WidgetOverlay&) = delete;

  // nullptr after Qt has destroyed the widget together with its parent.
  [[nodiscard]] QWidget* widget() const { return _widget; }
  void keep(std::shared_ptr<InterfaceElement> element) { _elements.push_back(std::move(element)); }

 private:
  QPointer<QWidget> _widget;
  std::vector<std::shared_ptr<InterfaceElement>> _elements;
};

// The overlays of one host.
class ViewOverlays {
 public:
  explicit ViewOverlays(QWidget& host) : _host(host) {}
  ~ViewOverlays() { release(_shown); }
  ViewOverlays(const ViewOverlays&) = delete;
  ViewOverlays& operator=(const ViewOverlays&) = delete;

  // Puts every overlay of the tree below `content`, which fills the host, over its view, and takes those of views that have
  // left the tree out of the window.
  void update(foundation::View& content);

 private:
  // A widget in which views are placed, and the point of it that the bottom-left corner of a view's bounds falls on.
  struct Place {
    QWidget& widget;
    QPointF bottomLeft;
    bool isHidden;
  };

  void placeSubviews(foundation::View& superview, const Place& place);
  void placeOverlay(foundation::View& view, QWidget& overlay, const Place& place, const QRect& area);
  void release(const QList<QPointer<QWidget>>& widgets);

  QWidget& _host;
  QList<QPointer<QWidget>> _shown;
};

// Sets the dynamic property `name` of the widget on the view: a boolean by its name, and the number "autoresizingMask".
void takeProperty(foundation::View& view, const QWidget& widget, const QByteArray& name);

// Sets the frame and the visibility of each view from its widget in the description, superviews first.
void takeGeometry(const QWidget& topLevel);

// The view whose area the widget lies in, or nullptr.
foundation::View* enclosingView(QWidget* widget);

}  // namespace platform::Linux
