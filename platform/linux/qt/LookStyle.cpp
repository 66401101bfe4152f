#include "platform/linux/qt/LookStyle.h"

#include <QApplication>
#include <QPainter>
#include <QPushButton>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QTextLayout>

namespace platform::Linux {
namespace {

constexpr double roundness = 5;

// With high contrast the ring covers a line of the edge, which may be as dark, and two points more.
double ringWidth() { return LookStyle::settings().highContrast ? 3 : 2; }

// The blues are the palette's: headerBarBrightStartColor, limitedConnectivityLinkTextColor and headerBarBrightEndColor. The
// edges without the focus are light enough that the ring's appearance is seen, too.
constexpr LookColors designedColors{.ink = {29, 29, 31},
                                    .paleInk = {150, 150, 154},
                                    .accent = {2, 92, 166},
                                    .accentLight = {7, 108, 183},
                                    .accentDark = {6, 69, 115},
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

// The text with a new line in place of every blank that it is broken at. Qt indents a line from right to left that ends in
// a blank by the blank's width.
QString withoutBlanksAtBreaks(const QString& text, const QFont& font, int width) {
  QString broken = text;
  QTextLayout layout(QString(text).replace('\n', QChar::LineSeparator), font);
  QTextOption option;
  option.setTextDirection(Qt::RightToLeft);
  option.setWrapMode(QTextOption::WordWrap);
  layout.setTextOption(option);
  layout.beginLayout();
  for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(width);
    const qsizetype end = line.textStart() + line.textLength();
    if (end < broken.size() && broken[end - 1] == ' ') broken[end - 1] = '\n';
  }
  layout.endLayout();
  return broken;
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

void LookStyle::drawItemText(QPainter* painter, const QRect& rect, int flags, const QPalette& palette, bool enabled,
                             const QString& text, QPalette::ColorRole role) const {
  const bool isShifted = (flags & Qt::TextWordWrap) != 0 && (flags & Qt::TextForceRightToLeft) != 0;
  const QString shown = isShifted ? withoutBlanksAtBreaks(text, painter->font(), rect.width()) : text;
  QProxyStyle::drawItemText(painter, rect, flags, palette, enabled, shown, role);
}

const DesktopSettings& LookStyle::settings() {
  static const DesktopSettings defaults;
  const auto* style = dynamic_cast<const LookStyle*>(QApplication::style());
  return style == nullptr ? defaults : style->_settings;
}

const LookColors& LookStyle::colors() { return settings().highContrast ? contrastColors : designedColors; }

}  // namespace platform::Linux
