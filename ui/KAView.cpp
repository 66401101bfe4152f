#include "ui/KAView.h"

#include <cmath>

#include "ui/KAViewController.h"

using foundation::Point;
using foundation::Rect;
using foundation::Size;

namespace {

// Half of the difference in single precision, rounded with halves away from zero.
double wholeHalf(double difference) { return std::round(static_cast<float>(difference * 0.5)); }

// The new place of the frame's edge when the frame becomes smaller by `delta`. The signs are as designed.
double moved(double edge, double delta, bool flexibleMinus, bool flexiblePlus) {
  if (flexibleMinus && flexiblePlus) return edge + delta * 0.5;
  if (flexibleMinus) return edge - delta;
  if (flexiblePlus) return edge + delta;
  return edge;
}

}  // namespace

bool KAView::isVisibleOnWindow() const { return window() != nullptr && !isHiddenOrHasHiddenAncestor(); }

void KAView::centerToSuperviewAnimated(bool animated) {
  const Size own = bounds().size;
  const Size around = superview() == nullptr ? Size{} : superview()->bounds().size;
  const Point origin{wholeHalf(around.width - own.width), wholeHalf(around.height - own.height)};
  if (animated)
    animator().setFrameOrigin(origin);
  else
    setFrameOrigin(origin);
}

void KAView::calcSize() { setCalculatedSize(bounds().size); }

void KAView::calcSizeIfNeeded() {
  if (_sizeCalculated) return;
  calcSize();
  _sizeCalculated = true;
}

void KAView::sizeToFitAnimated(bool animated) {
  calcSizeIfNeeded();
  if (animated && isVisibleOnWindow())
    animator().setFrameSize(_minRequiredSize);
  else
    setFrameSize(_minRequiredSize);
}

void KAView::sizeAndMoveToFitAnimated(bool animated) {
  calcSizeIfNeeded();
  const Rect before = frame();
  const Size size = _minRequiredSize;
  const auto flexible = [mask = autoresizingMask()](unsigned bit) { return (mask & bit) != 0; };
  const double x = moved(before.origin.x, before.size.width - size.width, flexible(foundation::ViewMinXMargin),
                         flexible(foundation::ViewMaxXMargin));
  const double y = moved(before.origin.y, before.size.height - size.height, flexible(foundation::ViewMaxYMargin),
                         flexible(foundation::ViewMinYMargin));
  if (animated && isVisibleOnWindow())
    animator().setFrame({{x, y}, size});
  else
    setFrame({{x, y}, size});
}

void KAView::setBounds(const Rect& bounds) {
  View::setBounds(bounds);
  setNeedsLayout();
}

void KAView::setFrame(const Rect& frame) {
  View::setFrame(frame);
  setNeedsLayout();
}

void KAView::setNeedsLayout() {
  _needsLayout = true;
  setNeedsDisplay(true);
}

void KAView::layoutIfNeeded() {
  if (_needsLayout) layoutSubviews();
}

void KAView::viewWillDraw() {
  layoutIfNeeded();
  View::viewWillDraw();
}

// The controller in the responder chain
//
// An event that a view does not handle travels along the chain of next responders. The controller wants to see it before
// the superview and the window do, so the chain has to read: view, controller, whatever followed the view before. The view
// tree knows nothing of controllers. It sets a view's next responder whenever the view enters or leaves a superview. That
// is why setNextResponder is overridden: while a view has a controller, its own link always points to the controller, and a
// responder that anyone else sets goes behind the controller.
//
// setViewController changes links only through this override, and the result depends on the controller that is stored at
// each moment. With a view v, the old controller a, the new one b and the responder s behind them:
//
//   v -> a -> s    at first
//   v -> a         step 1, while a is still stored: the override leaves v -> a, then a loses its next responder
//   v -> b -> a    step 4, while b is stored: v's own link goes to b, and b gets what v's link held before
//
// So a replaced controller stays behind the new one and ends the chain, and s is dropped. Taking the controller away leaves
// v -> a. Setting a again also leaves v -> a: a is v's next responder already, and must not become its own. This is the
// designed result. A caller that wants s back in the chain sets the view's next responder again, as a change of superview
// does. All links are weak: a destroyed controller ends the chain.
KAViewController* KAView::viewController() const { return _viewController.get(); }

void KAView::setViewController(KAViewController* controller) {
  if (KAViewController* old = viewController()) {
    setNextResponder(old->nextResponder());
    old->setNextResponder(nullptr);
  }
  _viewController = controller;
  foundation::Responder* next = nextResponder();
  if (controller == nullptr || controller == next) return;
  setNextResponder(controller);
  controller->setNextResponder(next);
}

void KAView::setNextResponder(foundation::Responder* responder) {
  KAViewController* controller = viewController();
  if (controller == nullptr) return View::setNextResponder(responder);
  controller->setNextResponder(responder);
  View::setNextResponder(controller);
}
