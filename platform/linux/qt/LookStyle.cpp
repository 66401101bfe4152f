#include "platform/linux/qt/LookStyle.h"

#include <QApplication>
#include <QPainter>
#include <QPushButton>
#include <QStyleFactory>
#include <QStyleOptionButton>

namespace platform::Linux {
namespace {

constexpr double roundness = 5;

// With high contrast the ring covers a line of the edge, which may be as dark, and two points more.
double ringWidth() { return LookStyle::settings().highContrast ? 3 : 2; }

// The edges without the focus are light enough that the ring's appearance is seen, too.
constexpr LookColors designedColors{.ink = {29, 29, 31},
                                    .paleInk = {150, 150, 154},
                                    .accent = {20, 84, 180},
                                    .accentLight = {28, 98, 200},
                                    .accentDark = {12, 60, 140},
                                    .edge = {172, 172, 176},
                                    .paleEdge = {190, 190, 194},
                                    .windowEdge = {150, 150, 154},
                                    .faceEdge = {0, 0, 0, 70},
                                    .track = {0, 0, 0, 24},
                                    .trackEdge = {0, 0, 0, 0}};

constexpr LookColors contrastColors{.ink = {0, 0, 0},
                                    .paleInk = {70, 70, 70},
                                    .accent = {0, 50, 140},
                                    .accentLight = {0, 50, 140},
                                    .accentDark = {0, 20, 70},
                                    .edge = {0, 0, 0},
                                    .paleEdge = {70, 70, 70},
                                    .windowEdge = {0, 0, 0},
                                    .faceEdge = {0, 0, 0},
                                    .track = {255, 255, 255},
                                    .trackEdge = {0, 0, 0}};

QColor faceOf(const QStyleOption& option) {
  if ((option.state & QStyle::State_Enabled) == 0) return {236, 236, 238};
  if ((option.state & QStyle::State_Sunken) != 0) return {222, 226, 232};
  return Qt::white;
}

QPen edgeOf(const QStyleOption& option) {
  const LookColors& colors = LookStyle::colors();
  if ((option.state & QStyle::State_HasFocus) != 0) return {colors.accent, ringWidth()};
  if ((option.state & QStyle::State_Enabled) == 0) return {colors.paleEdge, 1};
  const auto* button = qstyleoption_cast<const QStyleOptionButton*>(&option);
  const bool isDefault = button != nullptr && (button->features & QStyleOptionButton::DefaultButton) != 0;
  return {isDefault ? colors.accent : colors.edge, 1};
}

void drawButton(const QStyleOption& option, QPainter& painter) {
  const QPen edge = edgeOf(option);
  const double inset = edge.widthF() / 2;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(edge);
  painter.setBrush(faceOf(option));
  painter.drawRoundedRect(QRectF(option.rect).adjusted(inset, inset, -inset, -inset), roundness, roundness);
  painter.restore();
}

}  // namespace

LookStyle::LookStyle(DesktopSettings settings)
    : QProxyStyle(QStyleFactory::create("Fusion")), _settings(std::move(settings)) {}

void LookStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                              const QWidget* widget) const {
  if (element == PE_PanelButtonCommand) return drawButton(*option, *painter);
  if (element == PE_FrameFocusRect && qobject_cast<const QPushButton*>(widget) != nullptr) return;
  QProxyStyle::drawPrimitive(element, option, painter, widget);
}

const DesktopSettings& LookStyle::settings() {
  static const DesktopSettings defaults;
  const auto* style = dynamic_cast<const LookStyle*>(QApplication::style());
  return style == nullptr ? defaults : style->_settings;
}

const LookColors& LookStyle::colors() { return settings().highContrast ? contrastColors : designedColors; }

}  // namespace platform::Linux
