#include "platform/linux/qt/Look.h"

#include <QFont>
#include <QPalette>
#include <QStyleFactory>

namespace platform::Linux {
namespace {

constexpr double letterSize = 10;  // typographic points

QPalette lightPalette() {
  constexpr QColor ink(29, 29, 31);
  constexpr QColor paleInk(150, 150, 154);
  QPalette palette(QColor(240, 240, 241), QColor(246, 246, 247));
  palette.setColor(QPalette::Base, Qt::white);
  palette.setColor(QPalette::Highlight, QColor(36, 120, 224));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(role, ink);
    palette.setColor(QPalette::Disabled, role, paleInk);
  }
  return palette;
}

}  // namespace

void applyLook(QApplication& application) {
  QApplication::setStyle(QStyleFactory::create("Fusion"));
  QApplication::setPalette(lightPalette());
  QFont font = QApplication::font();
  font.setPointSizeF(letterSize);
  QApplication::setFont(font);
  application.setQuitOnLastWindowClosed(false);
}

}  // namespace platform::Linux
