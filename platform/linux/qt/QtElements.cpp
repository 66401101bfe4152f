#include "platform/linux/qt/QtElements.h"

#include <QVariant>

#include "platform/linux/qt/Letters.h"

namespace platform::Linux {

QString qtString(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

QString literalTitle(std::string_view title) { return qtString(title).replace('&', "&&"); }

// Assistive tools read a window's description when it appears and whenever it changes.
void QtTextField::describeWindow() const {
  QStringList texts;
  for (const auto* label : _label->window()->findChildren<QLabel*>())
    if (!label->text().isEmpty()) texts << label->text();
  _label->window()->setAccessibleDescription(texts.join('\n'));
}

void QtTextField::setStringValue(std::string_view text) {
  if (_label == nullptr) return;
  const QString shown = qtString(text);
  _label->setTextFormat(Qt::PlainText);
  _label->setText(shown);
  for (auto* named : _label->window()->findChildren<QWidget*>())
    if (named->property("namedBy").toString() == _label->objectName()) named->setAccessibleName(shown);
  describeWindow();
  if (_label->window()->isVisible()) fitLetters(*_label->window());
}

void QtButton::setTitle(std::string_view title) {
  if (_button == nullptr) return;
  const QKeySequence shortcut = _button->shortcut();
  _button->setText(literalTitle(title));
  _button->setShortcut(shortcut);  // setText puts the title's own mark in its place
}

}  // namespace platform::Linux
