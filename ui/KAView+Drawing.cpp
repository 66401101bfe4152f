#include <string>

#include "foundation/views/ImageNamed.h"
#include "ui/KAView.h"

using foundation::CompositingOperation;
using foundation::Image;
using foundation::Rect;
using foundation::Size;

namespace {

Size sizeOf(const Image* image) { return image == nullptr ? Size{} : image->size(); }

void drawWhole(const Image* image, const Rect& rect, CompositingOperation operation) {
  auto* context = foundation::GraphicsContext::current();
  if (image != nullptr && context != nullptr) context->drawImage(*image, rect, operation, 1);
}

}  // namespace

void KAView::drawThreePartImageInBounds_left_fill_right(const Rect& bounds, const Image* left, const Image* fill,
                                                        const Image* right) {
  const double width = bounds.size.width;
  const Size leftSize = sizeOf(left);
  const Size rightSize = sizeOf(right);
  drawWhole(left, {{0, 0}, leftSize}, CompositingOperation::sourceOver);
  drawWhole(right, {{width - rightSize.width, 0}, rightSize}, CompositingOperation::copy);
  const double between = width - leftSize.width - rightSize.width;
  drawWhole(fill, {{leftSize.width, 0}, {between, sizeOf(fill).height}}, CompositingOperation::copy);
}

void KAView::drawHeaderBackgroundHighlighted_rounded(bool highlighted, bool rounded) {
  const std::string set = highlighted ? "headerbg-light" : "headerbg-dark";
  const auto fill = foundation::imageNamed(set + "-fill");
  if (!rounded) return drawWhole(fill.get(), bounds(), CompositingOperation::copy);
  const auto left = foundation::imageNamed(set + "-left");
  const auto right = foundation::imageNamed(set + "-right");
  drawThreePartImageInBounds_left_fill_right(bounds(), left.get(), fill.get(), right.get());
}
