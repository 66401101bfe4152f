#include "platform/linux/qt/QtAlert.h"

#include <QAccessibleWidget>
#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QWindow>
#include <chrono>
#include <cstdlib>

#include "platform/linux/qt/Letters.h"
#include "platform/linux/qt/LookStyle.h"
#include "platform/linux/qt/QtElements.h"

namespace platform::Linux {
namespace {

constexpr int iconSize = 48;
constexpr int designedTextWidth = 306;
constexpr double headlineScale = 1.1;
// An edge of the alert that is nearer than this to the same edge of the window would leave a sliver of the window.
constexpr int clearDistance = 16;

// The display server counts in pixels of its own. Only a size that is whole in these too, at every scale in steps of a
// quarter, comes back from there as it was; any other may come back smaller, and cut a text.
int wholeAtEveryScale(int length) {
  constexpr int step = 4;
  return (length + step - 1) / step * step;
}

// The alert's panel: without a window manager's frame, as the window that it stands over, and dragged by its face. Follows
// the size of letters that the desktop's user wants.
class AlertDialog final : public QDialog {
 public:
  explicit AlertDialog(QWidget* parent) : QDialog(parent, Qt::Dialog | Qt::FramelessWindowHint) {}

  // Makes letters and panel as large as they have to be. The panel's middle stays where it is.
  void takeSize() {
    setLetters(*this, LookStyle::settings().letterScale);
    for (auto* label : findChildren<QLabel*>()) label->setFixedWidth(widthForLetters(designedTextWidth));
    layout()->activate();
    const QPoint middle = geometry().center();
    const QSize needed = sizeHint();
    setFixedSize(wholeAtEveryScale(needed.width()), wholeAtEveryScale(needed.height()));
    QRect place({}, size());
    place.moveCenter(middle);
    move(place.topLeft());
  }

 protected:
  void changeEvent(QEvent* event) override {
    QDialog::changeEvent(event);
    if (event->type() == QEvent::StyleChange && isVisible()) takeSize();
  }
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setPen(QPen(LookStyle::colors().windowEdge, 1));
    painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
  }
  void mousePressEvent(QMouseEvent* event) override {
    if (event->button() == Qt::LeftButton && windowHandle() != nullptr) windowHandle()->startSystemMove();
  }
};

// A screen reader says every text in an alert when it appears, in a dialog only those of three words and more: Chinese and
// Japanese are written without blanks. A description with the same texts would be said besides.
QAccessibleInterface* accessibleAlert(const QString& /*className*/, QObject* object) {
  auto* alert = dynamic_cast<AlertDialog*>(object);
  return alert == nullptr ? nullptr : new QAccessibleWidget(alert, QAccessible::AlertMessage);
}

QLabel* textLabel(std::string_view text, QWidget* parent) {
  auto* label = new QLabel(parent);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setText(qtString(text));
  return label;
}

QLabel* headlineLabel(std::string_view text, QWidget* parent) {
  auto* label = textLabel(text, parent);
  QFont font = label->font();
  font.setBold(true);
  label->setFont(font);
  label->setProperty("letterScale", headlineScale);
  return label;
}

// A warning sign, drawn smooth at any scale. It says nothing that the texts do not, so assistive tools hear nothing of it.
class WarningSign final : public QWidget {
 public:
  explicit WarningSign(QWidget* parent) : QWidget(parent) { setFixedSize(iconSize, iconSize); }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor amber(240, 160, 32);
    painter.setPen(QPen(amber, 7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(amber);
    painter.drawPolygon(QPolygonF({{24, 7}, {43, 40}, {5, 40}}));
    painter.setPen(QPen(Qt::white, 4.5, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(24, 16), QPointF(24, 28));
    painter.drawPoint(QPointF(24, 36.5));
  }
};

QPushButton* dismissButton(std::string_view title, QDialog* dialog) {
  auto* button = new QPushButton(literalTitle(title), dialog);
  button->setShortcut({});
  button->setDefault(true);
  button->setMinimumSize(96, 28);
  QObject::connect(button, &QPushButton::clicked, dialog, &QDialog::accept);
  return button;
}

void fill(QDialog& dialog, const Alert& alert) {
  auto* rows = new QGridLayout(&dialog);
  rows->setContentsMargins(24, 22, 24, 18);
  rows->setHorizontalSpacing(18);
  rows->setVerticalSpacing(8);
  rows->setSizeConstraint(QLayout::SetNoConstraint);
  rows->addWidget(new WarningSign(&dialog), 0, 0, 3, 1, Qt::AlignTop);  // beside the gap too, so that it parts no texts
  rows->addWidget(headlineLabel(alert.messageText, &dialog), 0, 1);
  rows->addWidget(textLabel(alert.informativeText, &dialog), 1, 1);
  rows->setRowMinimumHeight(2, 10);
  rows->setRowStretch(2, 1);
  auto* button = dismissButton(alert.defaultButton, &dialog);
  rows->addWidget(button, 3, 0, 1, 2, Qt::AlignRight);
  button->setFocus();
}

// Over the window and clear of its edges, else in the middle of the screen. Left to the window manager it may appear
// anywhere.
void place(QDialog& dialog) {
  const QWidget* window = dialog.parentWidget();
  const QRect under = window != nullptr ? window->frameGeometry() : QGuiApplication::primaryScreen()->availableGeometry();
  QRect frame({}, dialog.size());
  frame.moveCenter(under.center());
  if (window != nullptr && std::abs(frame.top() - under.top()) < clearDistance) frame.translate(0, 2 * clearDistance);
  dialog.move(frame.topLeft());
}

// Qt gives the keyboard to every modal window, so this one is not modal.
void runBehind(QDialog& dialog, const std::function<void()>& putBehind) {
  QEventLoop loop;
  QObject::connect(&dialog, &QDialog::finished, &loop, &QEventLoop::quit);
  dialog.setAttribute(Qt::WA_ShowWithoutActivating);
  dialog.show();
  QGuiApplication::sync();  // the display server has to hear of the alert first
  putBehind();
  QApplication::alert(&dialog);
  if (dialog.isVisible()) loop.exec();  // it may have been dismissed meanwhile
}

// A window manager may leave the keyboard with what the user works in; a window that has it in time needs no mark.
void runInFront(QDialog& dialog) {
  constexpr std::chrono::milliseconds patience{300};
  QTimer::singleShot(patience, &dialog, [&dialog] { QApplication::alert(&dialog); });
  dialog.exec();
}

}  // namespace

void runAlert(const Alert& alert, std::string_view title, QWidget* parent, const std::function<void()>& putBehind) {
  QAccessible::installFactory(accessibleAlert);  // counts once, however often
  AlertDialog dialog(parent != nullptr && parent->isVisible() ? parent : nullptr);
  dialog.setWindowTitle(qtString(title));
  fill(dialog, alert);
  dialog.takeSize();
  place(dialog);
  putBehind ? runBehind(dialog, putBehind) : runInFront(dialog);
}

}  // namespace platform::Linux
