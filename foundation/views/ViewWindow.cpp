#include "foundation/views/ViewWindow.h"

namespace foundation {

ViewWindow::ViewWindow(RunLoop& runLoop) : _runLoop(runLoop) {
  _root->_window = this;
  _root->setNextResponder(this);
}

ViewWindow::~ViewWindow() {
  onNeedsDisplay = nullptr;
  setContentView(nullptr);
  _root->_window = nullptr;
}

View* ViewWindow::contentView() const { return _root->subviews().empty() ? nullptr : _root->subviews().front().get(); }

void ViewWindow::setContentView(const std::shared_ptr<View>& view) {
  if (View* before = contentView()) before->removeFromSuperview();
  if (view != nullptr) view->setFrame({{}, _root->frame().size});
  _root->addSubview(view);
}

void ViewWindow::setSize(Size size) {
  _root->setFrameSize(size);
  if (View* content = contentView()) content->setFrame({{}, size});
}

void ViewWindow::recalculateKeyViewLoop() {
  if (onRecalculateKeyViewLoop) onRecalculateKeyViewLoop();
}

void ViewWindow::setNeedsRecalculateKeyViewLoop() {
  _runLoop.cancelPreviousPerformRequests(&_keyViewLoopRequest);
  _runLoop.performAfterDelay(Seconds(0), &_keyViewLoopRequest, [weak = WeakReference(this)] {
    if (ViewWindow* living = weak.get()) living->recalculateKeyViewLoop();
  });
}

void ViewWindow::display(GraphicsContext& context) {
  _root->viewWillDraw();
  const GraphicsContext::Focus focus(context);
  _root->drawTree(context);
}

}  // namespace foundation
