#pragma once
// How buttons are drawn. Main thread only.
#include <QProxyStyle>

namespace platform::Linux {

inline constexpr QColor accentColor(20, 84, 180);

// Flat buttons with a hairline around them; the default button's is in the accent's colour, and the one that has the
// keyboard has a ring that is two points thick and stands out at 3 to 1 and more from the face and from the button.
// Everything else is as the base style draws it.
class LookStyle final : public QProxyStyle {
 public:
  LookStyle();
  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
};

}  // namespace platform::Linux
