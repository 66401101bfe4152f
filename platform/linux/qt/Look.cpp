#include "platform/linux/qt/Look.h"

#include <QFont>
#include <QPalette>

#include "platform/linux/qt/LookStyle.h"
#include "platform/linux/qt/QtElements.h"

namespace platform::Linux {
namespace {

constexpr double letterSize = 10;  // typographic points

QPalette lightPalette() {
  constexpr QColor ink(29, 29, 31);
  constexpr QColor paleInk(150, 150, 154);
  QPalette palette(QColor(240, 240, 241), QColor(246, 246, 247));
  palette.setColor(QPalette::Base, Qt::white);
  palette.setColor(QPalette::Highlight, accentColor);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(role, ink);
    palette.setColor(QPalette::Disabled, role, paleInk);
  }
  return palette;
}

}  // namespace

void applyLook(QApplication& application) {
  QApplication::setStyle(new LookStyle);
  QApplication::setPalette(lightPalette());
  QFont font = QApplication::font();
  font.setPointSizeF(letterSize);
  QApplication::setFont(font);
  application.setQuitOnLastWindowClosed(false);
}

QIcon applicationIcon(const platform::Bundle& bundle) {
  QIcon icon;
  const auto name = bundle.infoString("CFBundleIconFile");
  if (!name) return icon;
  for (const int size : {16, 32, 48, 64, 128, 256})
    if (const auto path = bundle.pathForResource("artwork/" + *name + "-" + std::to_string(size), "png"))
      icon.addFile(qtString(*path), QSize(size, size));
  return icon;
}

}  // namespace platform::Linux
