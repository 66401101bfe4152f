#include "platform/linux/qt/Letters.h"

#include <QApplication>
#include <QLabel>
#include <QLayout>
#include <QScreen>
#include <algorithm>

#include "platform/linux/qt/LookStyle.h"

namespace platform::Linux {
namespace {

constexpr double step = 0.05;

bool hasRoom(const QWidget& widget) {
  QLayout* layout = widget.layout();
  if (layout == nullptr) return true;
  layout->activate();
  const QSize least = layout->minimumSize();
  const int height = layout->hasHeightForWidth() ? layout->minimumHeightForWidth(widget.width()) : least.height();
  return least.width() <= widget.width() && height <= widget.height();
}

// From the window inwards, for a layout gives the widgets in it their sizes.
bool everythingHasRoom(QWidget& window) {
  if (window.layout() != nullptr) window.layout()->activate();
  return std::ranges::all_of(window.findChildren<QWidget*>(), [](const QWidget* widget) { return hasRoom(*widget); });
}

}  // namespace

void setLetters(QWidget& window, double scale) {
  QFont font = QApplication::font();
  font.setPointSizeF(designedLetterSize * scale);
  window.setFont(font);
  for (auto* label : window.findChildren<QLabel*>()) {
    const double own = label->property("letterScale").toDouble();
    if (own <= 0) continue;
    QFont larger = label->font();
    larger.setFamilies(font.families());
    larger.setPointSizeF(font.pointSizeF() * own);
    label->setFont(larger);
  }
}

int widthForLetters(int designed) {
  const int wanted = static_cast<int>(designed * LookStyle::settings().letterScale);
  return std::clamp(wanted, designed, std::max(designed, QGuiApplication::primaryScreen()->availableSize().width()));
}

void fitLetters(QWidget& window) {
  for (double scale = LookStyle::settings().letterScale;; scale = std::max(scale - step, 1.0)) {
    setLetters(window, scale);
    if (scale <= 1 || everythingHasRoom(window)) return;
  }
}

}  // namespace platform::Linux
