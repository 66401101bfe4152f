#include "platform/linux/qt/Look.h"

#include <QFont>
#include <QFontDatabase>
#include <QPalette>
#include <QTimer>
#include <algorithm>
#include <cmath>

#include "platform/linux/qt/Letters.h"
#include "platform/linux/qt/LookStyle.h"
#include "platform/linux/qt/QtElements.h"

namespace platform::Linux {
namespace {

QPalette lightPalette() {
  const LookColors& colors = LookStyle::colors();
  QPalette palette(QColor(240, 240, 241), QColor(246, 246, 247));
  palette.setColor(QPalette::Base, Qt::white);
  palette.setColor(QPalette::Highlight, colors.accent);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(role, colors.ink);
    palette.setColor(QPalette::Disabled, role, colors.paleInk);
  }
  return palette;
}

// The desktop names a family with its style behind it ("Cantarell Bold"). Empty if the font library has no such family.
QString familyOf(const std::string& name) {
  for (QString family = qtString(name); !family.isEmpty(); family.truncate(std::max(family.lastIndexOf(' '), qsizetype{0})))
    if (QFontDatabase::hasFamily(family)) return family;
  return {};
}

// A display server that is told of larger letters makes everything larger, the window too: then its scale is a whole
// multiple of theirs, and they are as large as they should be.
double scaleBeyondDisplays(double letterScale, double displayScale) {
  const double rest = displayScale / letterScale;
  const bool isIncluded = rest > 0.99 && std::abs(rest - std::round(rest)) < 0.01;
  return isIncluded ? 1 : letterScale;
}

QFont interfaceFont(const DesktopSettings& settings) {
  static const QFont ofTheLibrary = QApplication::font();
  QFont font = ofTheLibrary;
  if (const QString family = familyOf(settings.letterFamily); !family.isEmpty()) font.setFamilies({family});
  font.setPointSizeF(designedLetterSize * settings.letterScale);
  return font;
}

}  // namespace

void applyLook(DesktopSettings settings) {
  settings.letterScale = scaleBeyondDisplays(settings.letterScale, qApp->devicePixelRatio());
  const QFont font = interfaceFont(settings);
  QApplication::setFont(font);
  QApplication::setStyle(new LookStyle(std::move(settings)));  // windows take letters and size at its change
  QApplication::setPalette(lightPalette());
  QApplication::setQuitOnLastWindowClosed(false);
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

IconAfterFirstPaint::IconAfterFirstPaint(const platform::Bundle& bundle) : _bundle(bundle) {
  qApp->installEventFilter(this);
}

bool IconAfterFirstPaint::eventFilter(QObject* /*watched*/, QEvent* event) {
  if (event->type() != QEvent::Paint) return false;
  qApp->removeEventFilter(this);
  QTimer::singleShot(0, this, [this] { QApplication::setWindowIcon(applicationIcon(_bundle)); });
  return false;
}

}  // namespace platform::Linux
