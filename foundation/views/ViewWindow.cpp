#include "foundation/views/View.h"
#include "foundation/views/ViewResources.h"
#include "platform/Platform.h"

namespace platform {

ViewWindow::ViewWindow() {
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

void ViewWindow::setSize(foundation::Size size) {
  _root->setFrameSize(size);
  if (View* content = contentView()) content->setFrame({{}, size});
}

void ViewWindow::recalculateKeyViewLoop() {
  if (onRecalculateKeyViewLoop) onRecalculateKeyViewLoop();
}

void ViewWindow::display(foundation::GraphicsContext& context) {
  _root->viewWillDraw();
  const foundation::GraphicsContext::Focus focus(context);
  _root->drawTree(context);
}

std::shared_ptr<const foundation::Image> imageNamed(std::string_view name) {
  ViewResources* resources = current().viewResources;
  return resources == nullptr ? nullptr : resources->imageNamed(name);
}

}  // namespace platform
