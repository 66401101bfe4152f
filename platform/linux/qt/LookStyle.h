#pragma once
// How buttons and texts are drawn, and the colours of everything that the platform draws. Main thread only.
#include <QProxyStyle>

#include "platform/linux/qt/DesktopSettings.h"

namespace platform::Linux {

// Everything that carries a meaning has 3 to 1 and more with what is beside it, and with high contrast 4.5 to 1.
struct LookColors {
  QColor ink;      // of letters
  QColor paleInk;  // of letters on what cannot be pressed
  QColor accent;   // the ring of the keyboard's focus, the default button's edge, the bar's band
  QColor accentLight;
  QColor accentDark;
  QColor edge;  // of buttons
  QColor paleEdge;
  QColor windowEdge;  // of alerts
  QColor faceEdge;    // of the wizard, laid over its face
  QColor track;       // of the bar
  QColor trackEdge;   // transparent where the track needs none
};

// Flat buttons with a hairline around them; the default button's is in the accent's colour, and the one that has the
// keyboard has a ring that is two points thick or more and stands out from the face and from the button. Everything else is
// as the base style draws it.
class LookStyle final : public QProxyStyle {
 public:
  explicit LookStyle(DesktopSettings settings);
  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
  void drawItemText(QPainter* painter, const QRect& rect, int flags, const QPalette& palette, bool enabled,
                    const QString& text, QPalette::ColorRole role) const override;

  // Those of the application's style; the defaults if it is not this one.
  static const DesktopSettings& settings();
  static const LookColors& colors();

 private:
  const DesktopSettings _settings;
};

}  // namespace platform::Linux
