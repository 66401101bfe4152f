#include "foundation/graphics/Graphics.h"

#include <cmath>
#include <numbers>

namespace foundation {
namespace {

GraphicsContext* currentContext = nullptr;

}  // namespace

GraphicsContext* GraphicsContext::current() { return currentContext; }

GraphicsContext::Focus::Focus(GraphicsContext& context) : _before(currentContext) { currentContext = &context; }

GraphicsContext::Focus::~Focus() { currentContext = _before; }

std::pair<Point, Point> gradientAxis(const Rect& rect, double degrees) {
  const double angle = degrees * std::numbers::pi / 180;
  const double across = std::cos(angle);
  const double up = std::sin(angle);
  const double half = (std::fabs(across) * rect.size.width + std::fabs(up) * rect.size.height) / 2;
  const Point middle{rect.origin.x + rect.size.width / 2, rect.origin.y + rect.size.height / 2};
  return {{middle.x - across * half, middle.y - up * half}, {middle.x + across * half, middle.y + up * half}};
}

}  // namespace foundation
