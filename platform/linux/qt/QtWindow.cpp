#include "platform/linux/qt/QtWindow.h"

#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QWindow>
#include <algorithm>
#include <cmath>

#include "platform/linux/qt/Letters.h"
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

int areaOf(const QRect& rect) { return rect.width() * rect.height(); }

// The screen's area that has the least way to the rectangle.
QRect nearestArea(const QRect& place) {
  const auto distance = [&](const QScreen* screen) {
    const QRect area = screen->availableGeometry();
    const int across = std::max({area.left() - place.right(), place.left() - area.right(), 0});
    const int along = std::max({area.top() - place.bottom(), place.top() - area.bottom(), 0});
    return std::hypot(across, along);
  };
  return std::ranges::min(QGuiApplication::screens(), {}, distance)->availableGeometry();
}

// A place of which the screens show less than half leaves a window that nobody can read or press; it becomes the nearest
// one that is wholly on a screen. Any other place is kept to the pixel.
QRect readable(QRect place) {
  int shown = 0;
  for (const QScreen* screen : QGuiApplication::screens()) shown += areaOf(place & screen->geometry());
  if (2 * shown >= areaOf(place)) return place;
  const QRect area = nearestArea(place);
  place.moveRight(std::min(place.right(), area.right()));
  place.moveBottom(std::min(place.bottom(), area.bottom()));
  place.moveLeft(std::max(place.left(), area.left()));
  place.moveTop(std::max(place.top(), area.top()));
  return place;
}

QRect primaryScreen() { return QGuiApplication::primaryScreen()->geometry(); }

}  // namespace

WindowWidget::WindowWidget() {
  setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
  setAttribute(Qt::WA_TranslucentBackground);
  QAccessible::installFactory(accessibleWindow);  // counts once, however often
}

void WindowWidget::takeDesignedWidth() {
  _designedWidth = width();
  resize(widthForLetters(_designedWidth), height());
  fitLetters(*this);
}

void WindowWidget::setVisible(bool visible) {
  QWidget::setVisible(visible);
  if (visible && onShow) onShow(*windowHandle());
}

// The middle stays where it is.
void WindowWidget::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() != QEvent::StyleChange || _designedWidth == 0) return;
  const int wider = widthForLetters(_designedWidth) - width();
  if (wider != 0) {
    isVisible() ? setFixedSize(width() + wider, height()) : resize(width() + wider, height());
    move(x() - wider / 2, y());
  }
  fitLetters(*this);
}

void WindowWidget::showEvent(QShowEvent* /*event*/) { fitLetters(*this); }

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
  const QPoint corner(screen.x() + whole(origin.x), screen.y() + above);
  _widget->move(readable({corner, _widget->size()}).topLeft());
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
  _widget->setFixedSize(_widget->size());
  _widget->show();
  _widget->raise();
  _widget->activateWindow();
}

}  // namespace platform::Linux
