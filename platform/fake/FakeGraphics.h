#pragma once
// Drawing for tests: a context that writes down what is asked of it, and view resources that a test fills. One thread.
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/ViewController.h"
#include "platform/ViewResources.h"

namespace platform::fake {

class FakeImage final : public Image {
 public:
  FakeImage(std::string name, Size size) : name(std::move(name)), _size(size) {}
  [[nodiscard]] Size size() const override { return _size; }
  const std::string name;

 private:
  Size _size;
};

// What a context was asked to do, in order. Fields that an operation does not have are as they are made here.
struct DrawingStep {
  std::string operation;  // "save", "fillRect", "drawImage copy", ...
  Rect rect{};
  Color color{};        // of fills with a colour, and where a gradient starts
  Color endColor{};     // of gradients
  std::string image{};  // of images, and of fills with a pattern
  double number = 0;    // radius, angle, fraction
  bool operator==(const DrawingStep&) const = default;
};

class RecordingContext final : public GraphicsContext {
 public:
  void saveGraphicsState() override { steps.push_back({.operation = "save"}); }
  void restoreGraphicsState() override { steps.push_back({.operation = "restore"}); }
  void translateBy(Point offset) override { steps.push_back({.operation = "translate", .rect = {offset, {}}}); }
  void scaleBy(double horizontal, double vertical) override;
  void clipToRect(const Rect& rect) override { steps.push_back({.operation = "clip", .rect = rect}); }
  void clipToRoundedRect(const Rect& rect, double horizontalRadius, double verticalRadius) override;
  void setFillColor(const Color& color) override;
  void setFillPattern(const std::shared_ptr<const Image>& image) override;
  void fillRect(const Rect& rect) override;
  void fillPathOfRect(const Rect& rect) override;
  void drawLinearGradient(const Color& start, const Color& end, const Rect& rect, double degrees) override;
  void drawImage(const Image& image, const Rect& rect, CompositingOperation operation, double fraction) override;

  std::vector<DrawingStep> steps;

 private:
  Color _fillColor;
  std::string _pattern;
};

// Names a step in a test's failure.
void PrintTo(const DrawingStep& step, std::ostream* out);

class FakeViewResources final : public ViewResources {
 public:
  std::shared_ptr<const Image> imageNamed(std::string_view name) override;
  std::shared_ptr<View> loadNib(std::string_view name, ViewController& owner, std::string& cause) override;

  void addImage(const std::string& name, Size size) { images[name] = std::make_shared<FakeImage>(name, size); }

  std::map<std::string, std::shared_ptr<const Image>, std::less<>> images;
  std::map<std::string, std::function<std::shared_ptr<View>()>, std::less<>> nibs;
};

}  // namespace platform::fake
