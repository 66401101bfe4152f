#include "foundation/views/View.h"

#include <algorithm>

#include "foundation/views/ViewWindow.h"

namespace foundation {
namespace {

// Along one axis. The lowest three bits of `flexible` mark as flexible: the margin before the view, its length, the margin
// after it.
void resize(double& place, double& length, double growth, unsigned flexible) {
  const bool before = (flexible & 1U) != 0;
  const bool itself = (flexible & 2U) != 0;
  const bool after = (flexible & 4U) != 0;
  const int sharers = int{before} + int{itself} + int{after};
  if (sharers == 0) return;
  const double share = growth / sharers;
  if (before) place += share;
  if (itself) length += share;
}

}  // namespace

View::~View() {
  while (!_subviews.empty()) _subviews.back()->removeFromSuperview();
}

bool View::isDescendantOf(const View& view) const {
  for (const View* ancestor = this; ancestor != nullptr; ancestor = ancestor->_superview)
    if (ancestor == &view) return true;
  return false;
}

void View::addSubview(const std::shared_ptr<View>& view) {
  if (view == nullptr || isDescendantOf(*view)) return;
  // A copy: the caller's pointer may be the element of the old superview's list that goes away.
  const auto kept = view;  // NOLINT(performance-unnecessary-copy-initialization)
  kept->removeFromSuperview();
  kept->viewWillMoveToSuperview(this);
  if (_window != nullptr) kept->tellWillMoveToWindow(_window);
  _subviews.push_back(kept);
  kept->_superview = this;
  kept->setNextResponder(this);
  if (_window != nullptr) {
    kept->setWindow(_window);
    kept->tellDidMoveToWindow();
  }
  kept->viewDidMoveToSuperview();
  setNeedsDisplay(true);
}

void View::removeFromSuperview() {
  if (_superview == nullptr) return;
  const auto kept = shared_from_this();
  const bool leavesWindow = _window != nullptr;
  viewWillMoveToSuperview(nullptr);
  if (leavesWindow) tellWillMoveToWindow(nullptr);
  if (_superview == nullptr) return;  // a notification has done it already
  _superview->setNeedsDisplay(true);
  std::erase(_superview->_subviews, kept);
  _superview = nullptr;
  setNextResponder(nullptr);
  if (leavesWindow) {
    setWindow(nullptr);
    tellDidMoveToWindow();
  }
  viewDidMoveToSuperview();
}

void View::setWindow(ViewWindow* window) {
  _window = window;
  for (const auto& view : _subviews) view->setWindow(window);
}

// A notified view may change the tree, so the loops run over copies.
void View::tellWillMoveToWindow(ViewWindow* window) {
  viewWillMoveToWindow(window);
  for (const auto& view : std::vector(_subviews)) view->tellWillMoveToWindow(window);
}

void View::tellDidMoveToWindow() {
  viewDidMoveToWindow();
  for (const auto& view : std::vector(_subviews)) view->tellDidMoveToWindow();
}

bool View::isHiddenOrHasHiddenAncestor() const {
  for (const View* view = this; view != nullptr; view = view->_superview)
    if (view->_isHidden) return true;
  return false;
}

void View::setHidden(bool hidden) {
  if (hidden == _isHidden) return;
  _isHidden = hidden;
  if (_superview != nullptr) _superview->setNeedsDisplay(true);
  if (_superview == nullptr || !_superview->isHiddenOrHasHiddenAncestor()) tellHidden(hidden);
}

void View::tellHidden(bool hidden) {
  if (hidden)
    viewDidHide();
  else
    viewDidUnhide();
  for (const auto& view : std::vector(_subviews))
    if (!view->_isHidden) view->tellHidden(hidden);
}

void View::setFrame(const Rect& frame) {
  setFrameOrigin(frame.origin);
  setFrameSize(frame.size);
}

void View::setFrameOrigin(Point origin) {
  _frame.origin = origin;
  if (_superview != nullptr) _superview->setNeedsDisplay(true);
}

void View::setFrameSize(Size size) {
  const Size before = _frame.size;
  const Size boundsBefore = _bounds.size;
  _frame.size = size;
  if (!_hasOwnBoundsSize)
    _bounds.size = size;
  else if (before.width != 0 && before.height != 0)
    _bounds.size = {_bounds.size.width * size.width / before.width, _bounds.size.height * size.height / before.height};
  const Size growth{_bounds.size.width - boundsBefore.width, _bounds.size.height - boundsBefore.height};
  if (growth != Size{})
    for (const auto& view : std::vector(_subviews)) view->superviewGrew(growth);
  setNeedsDisplay(true);
}

void View::superviewGrew(Size growth) {
  Rect frame = _frame;
  resize(frame.origin.x, frame.size.width, growth.width, _autoresizingMask / ViewMinXMargin);
  resize(frame.origin.y, frame.size.height, growth.height, _autoresizingMask / ViewMinYMargin);
  if (frame != _frame) setFrame(frame);
}

void View::setBounds(const Rect& bounds) {
  _bounds = bounds;
  _hasOwnBoundsSize = bounds.size != _frame.size;
  setNeedsDisplay(true);
}

void View::setNeedsDisplay(bool needed) {
  _needsDisplay = needed;
  if (needed && _window != nullptr && _window->onNeedsDisplay) _window->onNeedsDisplay();
}

bool View::setFlagForKey(bool /*value*/, std::string_view /*key*/) { return false; }

void View::viewWillMoveToSuperview(View* /*superview*/) {}
void View::viewDidMoveToSuperview() {}
void View::viewWillMoveToWindow(ViewWindow* /*window*/) {}
void View::viewDidMoveToWindow() {}
void View::viewDidHide() {}
void View::viewDidUnhide() {}

void View::viewWillDraw() {
  for (const auto& view : std::vector(_subviews))
    if (!view->_isHidden) view->viewWillDraw();
}

void View::drawRect(const Rect& /*dirtyRect*/) {}

void View::drawTree(GraphicsContext& context) {
  if (_isHidden) return;
  context.saveGraphicsState();
  context.translateBy(_frame.origin);
  if (_hasOwnBoundsSize && !_bounds.isEmpty())
    context.scaleBy(_frame.size.width / _bounds.size.width, _frame.size.height / _bounds.size.height);
  context.translateBy({-_bounds.origin.x, -_bounds.origin.y});
  context.clipToRect(_bounds);
  _needsDisplay = false;
  drawRect(_bounds);
  for (const auto& view : std::vector(_subviews)) view->drawTree(context);
  context.restoreGraphicsState();
}

}  // namespace foundation
