#include "platform/linux/qt/LookStyle.h"

#include <QPainter>
#include <QPushButton>
#include <QStyleFactory>
#include <QStyleOptionButton>

namespace platform::Linux {
namespace {

constexpr double roundness = 5;
constexpr double ringWidth = 2;

QColor faceOf(const QStyleOption& option) {
  if ((option.state & QStyle::State_Enabled) == 0) return {236, 236, 238};
  if ((option.state & QStyle::State_Sunken) != 0) return {222, 226, 232};
  return Qt::white;
}

// The edges without the focus are light enough that the ring's appearance is seen, too.
QPen edgeOf(const QStyleOption& option) {
  if ((option.state & QStyle::State_HasFocus) != 0) return {accentColor, ringWidth};
  if ((option.state & QStyle::State_Enabled) == 0) return {QColor(190, 190, 194), 1};
  const auto* button = qstyleoption_cast<const QStyleOptionButton*>(&option);
  const bool isDefault = button != nullptr && (button->features & QStyleOptionButton::DefaultButton) != 0;
  return {isDefault ? accentColor : QColor(172, 172, 176), 1};
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

LookStyle::LookStyle() : QProxyStyle(QStyleFactory::create("Fusion")) {}

void LookStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                              const QWidget* widget) const {
  if (element == PE_PanelButtonCommand) return drawButton(*option, *painter);
  if (element == PE_FrameFocusRect && qobject_cast<const QPushButton*>(widget) != nullptr) return;
  QProxyStyle::drawPrimitive(element, option, painter, widget);
}

}  // namespace platform::Linux
