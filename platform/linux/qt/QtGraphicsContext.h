#pragma once
// Drawing of views with QPainter. Main thread only.
#include <QPainter>
#include <QPainterPath>
#include <vector>

#include "foundation/graphics/Graphics.h"

namespace platform::Linux {

class QtGraphicsContext final : public foundation::GraphicsContext {
 public:
  enum class Corners { Round, Square };

  // Draws with `painter`, whose area has the given size, turned so that y goes upwards. Square corners ignore radii: for
  // windows whose transparency would show as black. The painter outlives the context and is as it was afterwards.
  //
  // The edges of fills, gradients and clips lie on whole pixels of the device, so that bands meet without gap or overlap.
  //
  // Qt's clips have no smooth edge. A rounded clip of the whole area gets one all the same: its corners are cut out when
  // the graphics state is restored, for there is nothing behind the area.
  QtGraphicsContext(QPainter& painter, foundation::Size area, Corners corners, bool increasesContrast = false);
  ~QtGraphicsContext() override;
  QtGraphicsContext(const QtGraphicsContext&) = delete;
  QtGraphicsContext& operator=(const QtGraphicsContext&) = delete;

  void saveGraphicsState() override;
  void restoreGraphicsState() override;
  void translateBy(foundation::Point offset) override { _painter.translate(offset.x, offset.y); }
  void scaleBy(double horizontal, double vertical) override { _painter.scale(horizontal, vertical); }
  void clipToRect(const foundation::Rect& rect) override;
  void clipToRoundedRect(const foundation::Rect& rect, double horizontalRadius, double verticalRadius) override;
  void setFillColor(const foundation::Color& color) override;
  void setFillPattern(const std::shared_ptr<const foundation::Image>& image) override;
  void fillRect(const foundation::Rect& rect) override;
  void fillPathOfRect(const foundation::Rect& rect) override;
  void drawLinearGradient(const foundation::Color& start, const foundation::Color& end, const foundation::Rect& rect,
                          double degrees) override;
  [[nodiscard]] double hairline() const override;
  [[nodiscard]] bool increasesContrast() const override { return _increasesContrast; }
  void drawImage(const foundation::Image& image, const foundation::Rect& rect, foundation::CompositingOperation operation,
                 double fraction) override;

 private:
  void fill(const foundation::Rect& rect, QPainter::CompositionMode mode);
  void cutOutside(const QPainterPath& shape);
  [[nodiscard]] double scale() const;
  [[nodiscard]] QRectF inWholePixels(const foundation::Rect& rect) const;

  QPainter& _painter;
  QRectF _area;  // in the painter's coordinates
  Corners _corners;
  bool _increasesContrast;
  std::vector<QPainterPath> _shapes{{}};  // for each saved state what is left standing when it ends; empty is everything
};

}  // namespace platform::Linux
