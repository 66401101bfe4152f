#pragma once
// Drawing for tests: a context that writes down what is asked of it, and view resources that a test fills. One thread.
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "foundation/views/ViewController.h"
#include "foundation/views/ViewResources.h"

namespace platform::fake {

class FakeImage final : public foundation::Image {
 public:
  FakeImage(std::string name, foundation::Size size) : name(std::move(name)), _size(size) {}
  [[nodiscard]] foundation::Size size() const override { return _size; }
  const std::string name;

 private:
  foundation::Size _size;
};

// The operations that a context received, in order. Fields that an operation does not have are as they are made here.
struct DrawingStep {
  std::string operation;  // "save", "fillRect", "drawImage copy", ...
  foundation::Rect rect{};
  foundation::Color color{};     // of fills with a colour, and where a gradient starts
  foundation::Color endColor{};  // of gradients
  std::string image{};           // of images, and of fills with a pattern
  double number = 0;             // radius, angle, fraction
  bool operator==(const DrawingStep&) const = default;
};

class RecordingContext final : public foundation::GraphicsContext {
 public:
  void saveGraphicsState() override { steps.push_back({.operation = "save"}); }
  void restoreGraphicsState() override { steps.push_back({.operation = "restore"}); }
  void translateBy(foundation::Point offset) override { steps.push_back({.operation = "translate", .rect = {offset, {}}}); }
  void scaleBy(double horizontal, double vertical) override;
  void clipToRect(const foundation::Rect& rect) override { steps.push_back({.operation = "clip", .rect = rect}); }
  void clipToRoundedRect(const foundation::Rect& rect, double horizontalRadius, double verticalRadius) override;
  void setFillColor(const foundation::Color& color) override;
  void setFillPattern(const std::shared_ptr<const foundation::Image>& image) override;
  void fillRect(const foundation::Rect& rect) override;
  void fillPathOfRect(const foundation::Rect& rect) override;
  void drawLinearGradient(const foundation::Color& start, const foundation::Color& end, const foundation::Rect& rect,
                          double degrees) override;
  void drawImage(const foundation::Image& image, const foundation::Rect& rect, foundation::CompositingOperation operation,
                 double fraction) override;

  std::vector<DrawingStep> steps;

 private:
  foundation::Color _fillColor;
  std::string _pattern;
};

// Names a step in a test's failure.
void PrintTo(const DrawingStep& step, std::ostream* out);

class FakeViewResources final : public foundation::ViewResources {
 public:
  std::shared_ptr<const foundation::Image> imageNamed(std::string_view name) override;
  std::shared_ptr<foundation::View> loadNib(std::string_view name, foundation::ViewController& owner,
                                            std::string& cause) override;

  void addImage(const std::string& name, foundation::Size size) { images[name] = std::make_shared<FakeImage>(name, size); }

  std::map<std::string, std::shared_ptr<const foundation::Image>, std::less<>> images;
  // Makes the view and connects the outlets of the owner; nullptr for a nib that cannot be read.
  using Nib = std::function<std::shared_ptr<foundation::View>(foundation::ViewController& owner)>;
  std::map<std::string, Nib, std::less<>> nibs;
};

}  // namespace platform::fake
