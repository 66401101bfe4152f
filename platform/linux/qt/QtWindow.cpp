#include "platform/linux/qt/QtWindow.h"

#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QWindow>
#include <cmath>

#include "platform/linux/qt/QtElements.h"

namespace platform::Linux {
namespace {

// Coordinates beyond this lie outside every screen, and would not fit the display server's numbers.
constexpr double farthest = 30000;

int whole(double points) { return static_cast<int>(std::lround(std::fmin(std::fmax(points, -farthest), farthest))); }

// Qt takes any top-level widget that is not of its own classes for a filler.
QAccessibleInterface* accessibleWindow(const QString& /*className*/, QObject* object) {
  auto* window = dynamic_cast<WindowWidget*>(object);
  return window == nullptr ? nullptr : new QAccessibleWidget(window, QAccessible::Window);
}

QRect primaryScreen() { return QGuiApplication::primaryScreen()->geometry(); }

}  // namespace

WindowWidget::WindowWidget() {
  setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
  setAttribute(Qt::WA_TranslucentBackground);
  QAccessible::installFactory(accessibleWindow);  // counts once, however often
}

void WindowWidget::closeEvent(QCloseEvent* event) {
  event->ignore();
  if (onClose) onClose();
}

void WindowWidget::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton && windowHandle() != nullptr) windowHandle()->startSystemMove();
}

foundation::Rect QtWindow::frame() const {
  if (_widget == nullptr) return {};
  const QRect screen = primaryScreen();
  const QRect place = _widget->geometry();
  const int above = place.y() - screen.y();
  return {{static_cast<double>(place.x() - screen.x()), static_cast<double>(screen.height() - above - place.height())},
          {static_cast<double>(place.width()), static_cast<double>(place.height())}};
}

void QtWindow::setFrame(const foundation::Rect& frame, bool display) {
  if (_widget == nullptr) return;
  _widget->setFixedSize(std::max(whole(frame.size.width), 1), std::max(whole(frame.size.height), 1));
  setFrameOrigin(frame.origin);
  if (display) _widget->repaint();
}

void QtWindow::setFrameOrigin(foundation::Point origin) {
  if (_widget == nullptr) return;
  const QRect screen = primaryScreen();
  const int above = whole(screen.height() - origin.y - _widget->height());
  _widget->move(screen.x() + whole(origin.x), screen.y() + above);
}

void QtWindow::center() {
  if (_widget == nullptr) return;
  QRect place = _widget->rect();
  place.moveCenter(QGuiApplication::primaryScreen()->availableGeometry().center());
  _widget->move(place.topLeft());
}

void QtWindow::setTitle(std::string_view title) {
  if (_widget != nullptr) _widget->setWindowTitle(qtString(title));
}

void QtWindow::makeKeyAndOrderFront() {
  if (_widget == nullptr) return;
  _widget->setFocus();  // no button has it, so that nothing typed by chance presses one; Tab goes to the first
  _widget->show();
  _widget->raise();
  _widget->activateWindow();
}

}  // namespace platform::Linux
