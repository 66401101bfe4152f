#include "demo/controller/ControllerWindow.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QTimer>
#include <QVBoxLayout>
#include <utility>

namespace {

constexpr int headerHeight = 104;
constexpr int footerHeight = 48;
constexpr int margin = 28;
constexpr int emblemSize = 56;
constexpr int columns = 6;
constexpr int rows = 3;
constexpr int gap = 18;

QLabel* addLine(QVBoxLayout& lines, const QString& text, double pointSize, QFont::Weight weight, const QColor& colour) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  QFont font = label->font();
  font.setPointSizeF(pointSize);
  font.setWeight(weight);
  label->setFont(font);
  label->setStyleSheet("color: " + colour.name());
  lines.addWidget(label);
  return label;
}

}  // namespace

ControllerWindow::ControllerWindow(const QString& name, const QString& version) : _version(version) {
  setWindowTitle(name);
  auto* lines = new QVBoxLayout(this);
  lines->setContentsMargins(margin, 0, margin, 0);
  lines->setSpacing(0);
  auto* title = new QWidget;
  title->setFixedHeight(headerHeight);
  auto* titleLines = new QVBoxLayout(title);
  titleLines->setContentsMargins(emblemSize + 16, 26, 0, 26);
  addLine(*titleLines, name, 20, QFont::Bold, QColor(29, 39, 51));
  addLine(*titleLines, "Version " + version, 10.5, QFont::Normal, QColor(91, 104, 117));
  lines->addWidget(title);
  lines->addStretch();
  _state = addLine(*lines, "", 11, QFont::DemiBold, accent().darker(120));
  _state->setFixedHeight(footerHeight);
  resize(800, 520);
  move(QGuiApplication::primaryScreen()->availableGeometry().center() - rect().center());
}

// Another colour for each major version, so that one sees which one it is.
QColor ControllerWindow::accent() const {
  const int major = _version.section('.', 0, 0).toInt();
  return QColor::fromHsv((140 + 70 * major) % 360, 110, 185);
}

std::optional<foundation::Rect> ControllerWindow::frameOnScreen() const {
  if (QGuiApplication::platformName().startsWith("wayland")) return std::nullopt;
  const QRect frame = frameGeometry();
  const QRect screen = QGuiApplication::primaryScreen()->geometry();
  const int above = frame.y() - screen.y();
  return foundation::Rect{
      {static_cast<double>(frame.x() - screen.x()), static_cast<double>(screen.height() - above - frame.height())},
      {static_cast<double>(frame.width()), static_cast<double>(frame.height())}};
}

void ControllerWindow::placeOnScreen(const foundation::Rect& frame) {
  const QRect screen = QGuiApplication::primaryScreen()->geometry();
  const QSize decoration = frameGeometry().size() - geometry().size();
  resize(QSize(static_cast<int>(frame.size.width), static_cast<int>(frame.size.height)) - decoration);
  move(screen.x() + static_cast<int>(frame.origin.x),
       screen.y() + screen.height() - static_cast<int>(frame.origin.y + frame.size.height));
}

void ControllerWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  if (onClose) onClose();
}

void ControllerWindow::paintEvent(QPaintEvent* /*event*/) {
  if (onShown) QTimer::singleShot(0, this, std::exchange(onShown, nullptr));
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.fillRect(rect(), QColor(228, 232, 237));
  painter.fillRect(0, headerHeight, width(), height() - headerHeight - footerHeight, QColor(211, 217, 224));
  paintEmblem(painter);
  paintShelf(painter);
}

void ControllerWindow::paintEmblem(QPainter& painter) const {
  const QRectF emblem(margin, (headerHeight - emblemSize) / 2.0, emblemSize, emblemSize);
  painter.setPen(Qt::NoPen);
  painter.setBrush(accent());
  painter.drawRoundedRect(emblem, 14, 14);
  QFont font = painter.font();
  font.setPixelSize(36);
  font.setBold(true);
  painter.setFont(font);
  painter.setPen(Qt::white);
  painter.drawText(emblem, Qt::AlignCenter, windowTitle().left(1));
}

// The covers of a library.
void ControllerWindow::paintShelf(QPainter& painter) const {
  const QRectF shelf = QRectF(rect()).adjusted(margin, headerHeight + gap, -margin, -footerHeight - gap);
  const QSizeF cover((shelf.width() - (columns - 1) * gap) / columns, (shelf.height() - (rows - 1) * gap) / rows);
  painter.setPen(Qt::NoPen);
  for (int place = 0; place < columns * rows; ++place) {
    const int row = place / columns;
    const QPointF corner((place % columns) * (cover.width() + gap), row * (cover.height() + gap));
    painter.setBrush(accent().lighter(125 + 12 * (place * 7 % 5)));
    painter.drawRoundedRect(QRectF(shelf.topLeft() + corner, cover), 8, 8);
  }
}
