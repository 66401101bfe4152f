#include "platform/linux/qt/FaceView.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QVariant>

#include "platform/linux/qt/Display.h"

namespace platform::Linux {
namespace {

constexpr double cornerRadius = 5;
constexpr int footerHeight = 58;
constexpr int contentStart = 60;  // the footer and two hairlines of one point

QColor grey(int white) { return {white, white, white}; }

QBrush contentBrush(bool hasBloom, double height) {
  if (!hasBloom) return Qt::white;
  QLinearGradient gradient(0, 0, 0, height);
  gradient.setColorAt(0, grey(233));
  gradient.setColorAt(1, grey(214));
  return gradient;
}

// Afterwards, because a clip has no smooth edge.
void cutCorners(QPainter& painter, const QRect& bounds) {
  QPainterPath corners;
  corners.addRect(bounds);
  corners.addRoundedRect(bounds, cornerRadius, cornerRadius);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
  painter.fillPath(corners, Qt::black);
}

}  // namespace

void FaceView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const int bottom = height();
  painter.fillRect(0, bottom - footerHeight, width(), footerHeight, grey(214));
  painter.fillRect(0, bottom - footerHeight - 1, width(), 1, grey(232));
  painter.fillRect(0, bottom - contentStart, width(), 1, grey(171));
  const int contentHeight = bottom - contentStart;
  if (contentHeight > 0)
    painter.fillRect(0, 0, width(), contentHeight, contentBrush(property("hasBloom").toBool(), contentHeight));
  if (Display::composesWindows()) cutCorners(painter, rect());
}

}  // namespace platform::Linux
