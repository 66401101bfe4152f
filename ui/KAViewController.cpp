#include "ui/KAViewController.h"

#include "foundation/views/ViewWindow.h"

using foundation::View;
using foundation::ViewWindow;

bool KAViewController::loadView() {
  if (!ViewController::loadView()) return false;
  ktViewDidLoad();
  return true;
}

void KAViewController::setView(const std::shared_ptr<View>& view) {
  const auto before = std::dynamic_pointer_cast<KAView>(viewIfLoaded());
  if (view == nullptr && before != nullptr) before->setViewController(nullptr);
  const bool wasLoaded = _viewLoaded;
  ViewController::setView(view);
  _viewLoaded = view != nullptr;
  if (const auto kaView = std::dynamic_pointer_cast<KAView>(view)) kaView->setViewController(this);
  if (view == nullptr && wasLoaded) ktViewDidUnload();
}

foundation::Size KAViewController::recommendedViewSize() const {
  return viewIfLoaded() == nullptr ? foundation::Size{} : viewIfLoaded()->frame().size;
}

void KAViewController::setNeedsRecalculateKeyViewLoop() {
  ViewWindow* window = viewIfLoaded() == nullptr ? nullptr : viewIfLoaded()->window();
  if (window == nullptr) return;
  window->setNeedsRecalculateKeyViewLoop();
}

void KAViewController::ktViewWillAppear() {
  if (const auto view = std::dynamic_pointer_cast<KAView>(viewIfLoaded())) view->setNeedsLayout();
}

void KAViewController::ktViewWillMoveToSuperview(View* /*superview*/) {}
void KAViewController::ktViewWillMoveToWindow(ViewWindow* /*window*/) {}

void KAViewController::tearDown() {
  if (_viewLoaded) setView(nullptr);
}
