#include "ui/KAView.h"

#include <cmath>

#include "ui/KAViewController.h"

using foundation::Point;
using foundation::Rect;
using foundation::Size;

namespace {

// Halves go away from zero, of a single-precision number.
double wholeHalf(double difference) { return std::round(static_cast<float>(difference * 0.5)); }

// Where the frame's edge goes when it becomes smaller by `delta`. The signs are as designed.
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
  const double x = moved(before.origin.x, before.size.width - size.width, flexible(platform::ViewMinXMargin),
                         flexible(platform::ViewMaxXMargin));
  const double y = moved(before.origin.y, before.size.height - size.height, flexible(platform::ViewMaxYMargin),
                         flexible(platform::ViewMinYMargin));
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

KAViewController* KAView::viewController() const { return _viewController.get(); }

void KAView::setViewController(KAViewController* controller) {
  if (KAViewController* old = viewController()) {
    setNextResponder(old->nextResponder());
    old->setNextResponder(nullptr);
  }
  _viewController = controller;
  platform::Responder* next = nextResponder();
  if (controller == nullptr || controller == next) return;
  setNextResponder(controller);
  controller->setNextResponder(next);
}

void KAView::setNextResponder(platform::Responder* responder) {
  KAViewController* controller = viewController();
  if (controller == nullptr) return View::setNextResponder(responder);
  controller->setNextResponder(responder);
  View::setNextResponder(controller);
}
