#include "platform/linux/qt/QtGraphicsContext.h"

#include <QLinearGradient>
#include <cmath>

#include "platform/linux/qt/QtImage.h"

namespace platform::Linux {
namespace {

QRectF qtRect(const foundation::Rect& rect) { return {rect.origin.x, rect.origin.y, rect.size.width, rect.size.height}; }

QPointF qtPoint(foundation::Point point) { return {point.x, point.y}; }

QColor qtColor(const foundation::Color& color) {
  return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green), static_cast<float>(color.blue),
                          static_cast<float>(color.alpha));
}

// The picture in the device's own pixels.
QImage inPixels(const QtImage& image, double scale) {
  QImage version = image.versionForScale(scale);
  const bool fits = version.devicePixelRatio() == scale;
  version.setDevicePixelRatio(1);
  if (fits) return version;
  const int width = std::max(static_cast<int>(std::lround(image.size().width * scale)), 1);
  const int height = std::max(static_cast<int>(std::lround(image.size().height * scale)), 1);
  return version.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

}  // namespace

QtGraphicsContext::QtGraphicsContext(QPainter& painter, foundation::Size area, Corners corners, bool increasesContrast)
    : _painter(painter), _area(0, 0, area.width, area.height), _corners(corners), _increasesContrast(increasesContrast) {
  _painter.save();
  _painter.translate(0, area.height);
  _painter.scale(1, -1);
  _painter.setPen(Qt::NoPen);
  _painter.setBrush(Qt::black);
  _painter.setRenderHint(QPainter::SmoothPixmapTransform);
}

QtGraphicsContext::~QtGraphicsContext() { restoreGraphicsState(); }

void QtGraphicsContext::saveGraphicsState() {
  _painter.save();
  _shapes.emplace_back();
}

void QtGraphicsContext::restoreGraphicsState() {
  _painter.restore();
  const QPainterPath shape = _shapes.back();
  _shapes.pop_back();
  if (!shape.isEmpty()) cutOutside(shape);
}

void QtGraphicsContext::cutOutside(const QPainterPath& shape) {
  QPainterPath outside;
  outside.addRect(_area);
  outside.addPath(shape);
  _painter.save();
  _painter.setWorldTransform({});
  _painter.setRenderHint(QPainter::Antialiasing);
  _painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
  _painter.fillPath(outside, Qt::black);
  _painter.restore();
}

double QtGraphicsContext::scale() const { return _painter.device()->devicePixelRatioF(); }

double QtGraphicsContext::hairline() const {
  const double pixels = std::floor(scale());
  return (pixels < 2 ? 1 : pixels - std::fmod(pixels, 2)) / scale();
}

// In the painter's coordinates. Edges in the middle of a pixel all go the same way, whatever the arithmetic has left of
// them.
QRectF QtGraphicsContext::inWholePixels(const foundation::Rect& rect) const {
  constexpr double rounding = 1e-6;
  const double pixels = scale();
  const QTransform& transform = _painter.worldTransform();
  const auto edge = [pixels](double points) { return std::floor(points * pixels + 0.5 + rounding) / pixels; };
  const QRectF place = transform.mapRect(qtRect(rect));
  return transform.inverted().mapRect(
      QRectF({edge(place.left()), edge(place.top())}, QPointF(edge(place.right()), edge(place.bottom()))));
}

void QtGraphicsContext::clipToRect(const foundation::Rect& rect) {
  _painter.setClipRect(inWholePixels(rect), Qt::IntersectClip);
}

void QtGraphicsContext::clipToRoundedRect(const foundation::Rect& rect, double horizontalRadius, double verticalRadius) {
  if (_corners == Corners::Square) return clipToRect(rect);
  QPainterPath path;
  path.addRoundedRect(qtRect(rect), horizontalRadius, verticalRadius);
  const QPainterPath shape = _painter.worldTransform().map(path);
  if (shape.boundingRect() != _area) return _painter.setClipPath(path, Qt::IntersectClip);
  clipToRect(rect);
  _shapes.back() = shape;
}

void QtGraphicsContext::setFillColor(const foundation::Color& color) { _painter.setBrush(qtColor(color)); }

void QtGraphicsContext::setFillPattern(const std::shared_ptr<const foundation::Image>& image) {
  if (const auto picture = std::dynamic_pointer_cast<const QtImage>(image))
    _painter.setBrush(QBrush(inPixels(*picture, scale())));
}

// A pattern is laid in the device's pixels, from the bottom-left corner of the painter's area.
void QtGraphicsContext::fill(const foundation::Rect& rect, QPainter::CompositionMode mode) {
  if (rect.isEmpty()) return;
  _painter.save();
  _painter.setCompositionMode(mode);
  const QBrush brush = _painter.brush();
  QRectF area = inWholePixels(rect);
  if (brush.style() == Qt::TexturePattern) {
    const double pixels = scale();
    const QRectF inPoints = _painter.worldTransform().mapRect(area);
    area = QRectF(inPoints.topLeft() * pixels, inPoints.size() * pixels);
    _painter.setWorldTransform(QTransform::fromScale(1 / pixels, 1 / pixels));
    _painter.setBrushOrigin(QPointF(0, std::round(_area.height() * pixels)));
  }
  _painter.fillRect(area, brush);
  _painter.restore();
}

void QtGraphicsContext::fillRect(const foundation::Rect& rect) { fill(rect, QPainter::CompositionMode_Source); }

void QtGraphicsContext::fillPathOfRect(const foundation::Rect& rect) { fill(rect, QPainter::CompositionMode_SourceOver); }

void QtGraphicsContext::drawLinearGradient(const foundation::Color& start, const foundation::Color& end,
                                           const foundation::Rect& rect, double degrees) {
  if (rect.isEmpty()) return;
  const auto [from, to] = foundation::gradientAxis(rect, degrees);
  QLinearGradient gradient(qtPoint(from), qtPoint(to));
  gradient.setColorAt(0, qtColor(start));
  gradient.setColorAt(1, qtColor(end));
  _painter.fillRect(inWholePixels(rect), gradient);
}

void QtGraphicsContext::drawImage(const foundation::Image& image, const foundation::Rect& rect,
                                  foundation::CompositingOperation operation, double fraction) {
  const auto* picture = dynamic_cast<const QtImage*>(&image);
  if (picture == nullptr || rect.isEmpty()) return;
  _painter.save();
  const bool copies = operation == foundation::CompositingOperation::copy;
  _painter.setCompositionMode(copies ? QPainter::CompositionMode_Source : QPainter::CompositionMode_SourceOver);
  _painter.setOpacity(fraction);
  _painter.translate(rect.origin.x, rect.origin.y + rect.size.height);
  _painter.scale(1, -1);
  _painter.drawImage(QRectF(0, 0, rect.size.width, rect.size.height), picture->versionForScale(scale()));
  _painter.restore();
}

}  // namespace platform::Linux
