#include "platform/fake/FakeGraphics.h"

#include <ostream>

namespace platform::fake {

void RecordingContext::scaleBy(double horizontal, double vertical) {
  steps.push_back({.operation = "scale", .rect = {{}, {horizontal, vertical}}});
}

void RecordingContext::clipToRoundedRect(const foundation::Rect& rect, double horizontalRadius, double verticalRadius) {
  const bool even = horizontalRadius == verticalRadius;
  steps.push_back({.operation = even ? "clipRounded" : "clipUneven", .rect = rect, .number = horizontalRadius});
}

void RecordingContext::setFillColor(const foundation::Color& color) {
  _fillColor = color;
  _pattern.clear();
}

void RecordingContext::setFillPattern(const std::shared_ptr<const foundation::Image>& image) {
  _fillColor = {};
  _pattern = dynamic_cast<const FakeImage&>(*image).name;
}

void RecordingContext::fillRect(const foundation::Rect& rect) {
  steps.push_back({.operation = "fillRect", .rect = rect, .color = _fillColor, .image = _pattern});
}

void RecordingContext::fillPathOfRect(const foundation::Rect& rect) {
  steps.push_back({.operation = "fillPath", .rect = rect, .color = _fillColor, .image = _pattern});
}

void RecordingContext::drawLinearGradient(const foundation::Color& start, const foundation::Color& end,
                                          const foundation::Rect& rect, double degrees) {
  steps.push_back({.operation = "gradient", .rect = rect, .color = start, .endColor = end, .number = degrees});
}

void RecordingContext::drawImage(const foundation::Image& image, const foundation::Rect& rect,
                                 foundation::CompositingOperation operation, double fraction) {
  const bool copies = operation == foundation::CompositingOperation::copy;
  steps.push_back({.operation = copies ? "drawImage copy" : "drawImage over",
                   .rect = rect,
                   .image = dynamic_cast<const FakeImage&>(image).name,
                   .number = fraction});
}

void PrintTo(const DrawingStep& step, std::ostream* out) {
  const foundation::Rect& rect = step.rect;
  *out << step.operation << " {{" << rect.origin.x << ", " << rect.origin.y << "}, {" << rect.size.width << ", "
       << rect.size.height << "}} " << step.color.red * 255 << " " << step.endColor.red * 255 << " " << step.image << " "
       << step.number;
}

std::shared_ptr<const foundation::Image> FakeViewResources::imageNamed(std::string_view name) {
  const auto found = images.find(name);
  return found == images.end() ? nullptr : found->second;
}

std::shared_ptr<foundation::View> FakeViewResources::loadNib(std::string_view name, foundation::ViewController& owner,
                                                             std::string& cause) {
  const auto found = nibs.find(name);
  const auto view = found == nibs.end() ? nullptr : found->second(owner);
  if (view == nullptr) cause = found == nibs.end() ? "there is no nib of that name" : "the nib cannot be read";
  return view;
}

}  // namespace platform::fake
