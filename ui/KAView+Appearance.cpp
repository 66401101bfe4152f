// The appearance cycle: turns the notifications of the view tree into callbacks of the controller. A "will" checks the
// view's own hidden flag, a "did" also those of its ancestors; the difference is deliberate.
#include "ui/KAView.h"
#include "ui/KAViewController.h"

void KAView::appearWhen(bool condition) {
  KAViewController* controller = viewController();
  if (controller == nullptr || !condition || _viewAppearance != Appearance::Disappeared) return;
  _viewAppearance = Appearance::Appearing;
  controller->ktViewWillAppear();
}

void KAView::finishAppearingWhen(bool condition) {
  KAViewController* controller = viewController();
  if (controller == nullptr || !condition || _viewAppearance != Appearance::Appearing) return;
  _viewAppearance = Appearance::Appeared;
  controller->ktViewDidAppear();
}

void KAView::disappear() {
  KAViewController* controller = viewController();
  if (controller == nullptr || _viewAppearance != Appearance::Appeared) return;
  _viewAppearance = Appearance::Disappearing;
  controller->ktViewWillDisappear();
}

void KAView::finishDisappearing() {
  KAViewController* controller = viewController();
  if (controller == nullptr || _viewAppearance != Appearance::Disappearing) return;
  _viewAppearance = Appearance::Disappeared;
  controller->ktViewDidDisappear();
}

void KAView::viewWillMoveToSuperview(foundation::View* superview) {
  View::viewWillMoveToSuperview(superview);
  KAViewController* controller = viewController();
  if (controller == nullptr) return;
  if (superview == nullptr) {
    controller->ktViewWillBeRemovedFromSuperview();
    disappear();
    return;
  }
  controller->ktViewWillMoveToSuperview(superview);
  appearWhen(superview->window() != nullptr && !isHidden());
}

void KAView::viewDidMoveToSuperview() {
  View::viewDidMoveToSuperview();
  KAViewController* controller = viewController();
  if (controller == nullptr) return;
  if (superview() == nullptr) {
    controller->ktViewWasRemovedFromSuperview();
    finishDisappearing();
    return;
  }
  controller->ktViewDidMoveToSuperview();
  finishAppearingWhen(isVisibleOnWindow());
}

void KAView::viewWillMoveToWindow(foundation::ViewWindow* window) {
  View::viewWillMoveToWindow(window);
  KAViewController* controller = viewController();
  if (controller == nullptr) return;
  if (window == nullptr) {
    controller->ktViewWillBeRemovedFromWindow();
    disappear();
    return;
  }
  controller->ktViewWillMoveToWindow(window);
  appearWhen(superview() != nullptr && !isHidden());
}

void KAView::viewDidMoveToWindow() {
  View::viewDidMoveToWindow();
  KAViewController* controller = viewController();
  if (controller == nullptr) return;
  if (window() == nullptr) {
    controller->ktViewWasRemovedFromWindow();
    finishDisappearing();
    return;
  }
  controller->ktViewDidMoveToWindow();
  finishAppearingWhen(superview() != nullptr && !isHiddenOrHasHiddenAncestor());
}

void KAView::viewDidHide() {
  if (window() != nullptr) disappear();
  View::viewDidHide();
  if (window() != nullptr) finishDisappearing();
}

void KAView::viewDidUnhide() {
  appearWhen(window() != nullptr);
  View::viewDidUnhide();
  finishAppearingWhen(window() != nullptr);
}
